# The everyday commands; `make help` lists them. CMake and Ninja do the building,
# in $(BUILD)/cmake. Each command builds what it needs and no more.

# The host is the MySQL server that the plug-in is built for and runs in: its
# headers, its compile flags and its programs. $(BUILD)/host holds them. Without
# the HOST_ variables it is the server that Debian packages. A build folder
# belongs to one host. To use a MySQL source tree:
#   make HOST_SOURCE=dir HOST_BUILD=dir [HOST_MYSQLD=file] BUILD=build-other
SHELL := bash
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

# $(call build,TARGET...): says nothing where nothing is to do.
define build
@test -e $(cmake)/build.ninja || cmake -S . -B $(cmake) -G Ninja \
  -DMORVENA_SN_BUILD=$(folder) -DMORVENA_SN_SANITIZE=$(SANITIZE)
@set -o pipefail; ninja -C $(cmake) -j $(JOBS) $(1) | tools/quiet_ninja.sh
endef

.PHONY: all host plugin everything server stop demo test soak bench install \
  flags flags-compile flags-link clean format lint help
.NOTPARALLEL:

all: plugin

host:
	@BUILD=$(host_folder) tools/host.sh
ifneq ($(SANITIZE),)
	@mkdir -p $(folder)/plugin
	@ln -sfn ../host $(folder)/host
	@cp -P $(host_folder)/plugin/component_*.so $(folder)/plugin/ 2>/dev/null || true
endif

plugin: host
	$(call build,plugin)

everything: host
	$(call build,all)

server: plugin
	@tools/server.sh start

stop:
	@tools/server.sh stop

demo: host
	$(call build,plugin example)
	@tools/demo.sh

test: host
	$(call build,$(if $(tests),unit_tests,all))
	cd $(cmake) && ctest --output-on-failure -j $(JOBS) $(tests)

bench: host
	$(call build,bench_programs)
	@bench/bench.sh

# MINUTES, SEED: see tests/soak/soak.sh.
soak: host
	$(call build,plugin soak)
	@tests/soak/soak.sh $(folder)/test/soak

# PREFIX=dir: the header, the plug-in and a CMake package.
install: plugin
	@test -n '$(PREFIX)' || { echo 'make install PREFIX=dir: say where to'; false; }
	cmake --install $(cmake) --prefix $(abspath $(PREFIX))

# The flags of a plug-in that is built elsewhere, on standard output and nothing
# else there. They name the plug-in's file, so it is built first where it is not.
flags flags-compile flags-link:
	@test -e $(folder)/plugin/morvena_sn.so -a -e $(folder)/flags/compile || \
	  $(MAKE) --no-print-directory plugin BUILD=$(host_folder) >&2
	@cat $(if $(findstring -link,$@),,$(folder)/flags/compile) \
	  $(if $(findstring -compile,$@),,$(folder)/flags/link)

clean:
	@find $(folder) -type f -name started -printf '%h\0' 2>/dev/null | \
	  xargs -0r -n 1 tools/server.sh kill --run
	rm -rf $(folder)

format:
	@tools/lint.sh format

# clang-tidy needs a build's compile commands, and takes minutes.
lint:
	@tools/lint.sh formatted
	@tools/lint.sh links
	@tools/lint.sh tidy || test $$? = 77

help:
	@echo 'make          build $(BUILD)/plugin/morvena_sn.so; fetch the server first'
	@echo 'make test     build everything, then run all tests'
	@echo 'make demo     read real data through the plug-in, and compare with SQL'
	@echo 'make server   start a private server with the plug-in; make stop ends it'
	@echo 'make bench    measure reads beside SQL and the server'"'"'s own; see docs/performance.md'
	@echo 'make soak     read for MINUTES (10) while everything else goes wrong'
	@echo 'make flags    print the flags that compile and link a plug-in of your own;'
	@echo '              flags-compile and flags-link print one half'
	@echo 'make install  put header, plug-in and a CMake package into PREFIX'
	@echo 'make host     fetch the server only, into $(BUILD)/host'
	@echo 'make format   clang-format the sources'
	@echo 'make lint     formatting, links between documents, clang-tidy'
	@echo 'make clean    end the servers in $(BUILD) and delete it'
	@echo 'Variables: BUILD, HOST_SOURCE, HOST_BUILD, HOST_MYSQLD, SANITIZE (see'
	@echo 'Makefile), JOBS'
