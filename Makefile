# The everyday commands, `make help` lists them. CMake and Ninja do the building,
# in $(BUILD)/cmake.

# A build folder belongs to one host. To use a MySQL source tree as the host:
#   make HOST_SOURCE=dir HOST_BUILD=dir [HOST_MYSQLD=file] BUILD=build-other
BUILD ?= build
HOST_SOURCE ?=
HOST_BUILD ?=
HOST_MYSQLD ?=
JOBS ?= $(shell nproc)
export HOST_SOURCE HOST_BUILD HOST_MYSQLD

# SANITIZE=address, undefined or thread: a build of its own, in $(BUILD)/$(SANITIZE)
# with the host of $(BUILD). Under thread only what needs no server is tested.
SANITIZE ?=
host_folder := $(abspath $(BUILD))
folder := $(host_folder)$(SANITIZE:%=/%)
cmake := $(folder)/cmake
tests := $(if $(filter thread,$(SANITIZE)),-R ^unit)
override BUILD := $(folder)
export BUILD

.PHONY: all host build server stop demo test soak bench clean format lint help
.NOTPARALLEL:

all: build

host:
	@BUILD=$(host_folder) tools/host.sh
ifneq ($(SANITIZE),)
	@mkdir -p $(folder)/plugin
	@ln -sfn ../host $(folder)/host
	@cp -P $(host_folder)/plugin/component_*.so $(folder)/plugin/ 2>/dev/null || true
endif

build: host
	@test -e $(cmake)/build.ninja || cmake -S . -B $(cmake) -G Ninja \
	  -DMORVENA_SN_BUILD=$(folder) -DMORVENA_SN_SANITIZE=$(SANITIZE)
	@cmake --build $(cmake) -- -j $(JOBS) $(if $(tests),unit_tests)

server: build
	@tools/server.sh start

stop:
	@tools/server.sh stop

demo: build
	@tools/demo.sh

test: build
	cd $(cmake) && ctest --output-on-failure -j $(JOBS) $(tests)

# What it needs and no more: the comparison is to take minutes.
bench: host
	@test -e $(cmake)/build.ninja || \
	  cmake -S . -B $(cmake) -G Ninja -DMORVENA_SN_BUILD=$(folder)
	@cmake --build $(cmake) --target bench_programs -- -j $(JOBS)
	@bench/bench.sh

# MINUTES, SEED: see tests/soak/soak.sh.
soak: build
	@tests/soak/soak.sh $(folder)/test/soak

clean:
	@find $(folder) -type f -name started -printf '%h\0' 2>/dev/null | \
	  xargs -0r -n 1 tools/server.sh kill --run
	rm -rf $(folder)

format:
	@tools/lint.sh format

# clang-tidy needs a build's compile commands, and takes minutes.
lint:
	@tools/lint.sh formatted
	@tools/lint.sh tidy || test $$? = 77

help:
	@echo 'make          fetch the host server, build $(BUILD)/plugin/morvena_sn.so'
	@echo 'make host     fetch the host server only, into $(BUILD)/host'
	@echo 'make test     build, then run all tests'
	@echo 'make soak     read for MINUTES (10) while everything else goes wrong'
	@echo 'make server   start a private server with the plug-in; make stop ends it'
	@echo 'make demo     read real data through the plug-in, and compare with SQL'
	@echo 'make bench    measure reads beside SQL and the server'"'"'s own; see docs/performance.md'
	@echo 'make format   clang-format the sources'
	@echo 'make lint     are they formatted, and what does clang-tidy say of them'
	@echo 'make clean    end the servers in $(BUILD) and delete it'
	@echo 'Variables: BUILD, HOST_SOURCE, HOST_BUILD, HOST_MYSQLD, SANITIZE (see'
	@echo 'Makefile), JOBS'
