# The everyday commands, `make help` lists them. CMake and Ninja do the building,
# in $(BUILD)/cmake.

# A build folder belongs to one host. To use a MySQL source tree as the host:
#   make HOST_SOURCE=dir HOST_BUILD=dir [HOST_MYSQLD=file] BUILD=build-other
BUILD ?= build
HOST_SOURCE ?=
HOST_BUILD ?=
HOST_MYSQLD ?=
JOBS ?= $(shell nproc)
export BUILD HOST_SOURCE HOST_BUILD HOST_MYSQLD

folder := $(abspath $(BUILD))
cmake := $(folder)/cmake

.PHONY: all host build server stop demo test soak bench clean format help
.NOTPARALLEL:

all: build

host:
	@tools/host.sh

build: host
	@test -e $(cmake)/build.ninja || \
	  cmake -S . -B $(cmake) -G Ninja -DMORVENA_SN_BUILD=$(folder)
	@cmake --build $(cmake) -- -j $(JOBS)

server: build
	@tools/server.sh start

stop:
	@tools/server.sh stop

demo: build
	@tools/demo.sh

test: build
	cd $(cmake) && ctest --output-on-failure -j $(JOBS)

# What it needs and no more: the comparison is to take minutes.
bench: host
	@test -e $(cmake)/build.ninja || \
	  cmake -S . -B $(cmake) -G Ninja -DMORVENA_SN_BUILD=$(folder)
	@cmake --build $(cmake) --target bench_programs -- -j $(JOBS)
	@bench/bench.sh

# MINUTES, SEED: see tests/soak/soak.sh.
soak: build
	@BUILD=$(folder) tests/soak/soak.sh $(folder)/test/soak

clean:
	@test ! -d $(folder)/run || tools/server.sh stop
	rm -rf $(folder)

format:
	@command -v clang-format >/dev/null || { echo "format: clang-format is not installed"; exit 1; }
	git ls-files -co --exclude-standard '*.h' '*.cc' '*.c' | xargs clang-format -i

help:
	@echo 'make          fetch the host server, build $(BUILD)/plugin/morvena_sn.so'
	@echo 'make host     fetch the host server only, into $(BUILD)/host'
	@echo 'make test     build, then run all tests'
	@echo 'make soak     read for MINUTES (10) while everything else goes wrong'
	@echo 'make server   start a private server with the plug-in; make stop ends it'
	@echo 'make demo     read real data through the plug-in, and compare with SQL'
	@echo 'make bench    measure reads beside SQL and the server'"'"'s own; see docs/performance.md'
	@echo 'make format   clang-format the sources'
	@echo 'make clean    stop the private server and delete $(BUILD)'
	@echo 'Variables: BUILD, HOST_SOURCE, HOST_BUILD, HOST_MYSQLD (see Makefile), JOBS'
