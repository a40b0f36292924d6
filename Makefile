# The two commands of a newcomer are demo and check. Both install what a fresh Debian 12 lacks, and build.
MAKEFLAGS += --no-print-directory
BUILD := build/release

# For every command below, and for those of scripts: all processors, and Ninja where it is there. A directory that was
# configured with another generator keeps it.
JOBS := $(shell nproc)
export CMAKE_BUILD_PARALLEL_LEVEL ?= $(JOBS)
export CTEST_PARALLEL_LEVEL ?= $(JOBS)
export CMAKE_GENERATOR ?= $(if $(shell command -v ninja),Ninja,Unix Makefiles)

all: build

prerequisites:
	@.ci/packages build

build: prerequisites
	@cmake --preset release >/dev/null
	@cmake --build --preset release

demo: build
	@tools/demo.sh $(BUILD)

check: build
	@.ci/packages check
	@ctest --preset release --output-on-failure

bench: prerequisites
	@.ci/packages bench
	@cmake --preset release -DPICTRA_BENCH=ON >/dev/null
	@cmake --build --preset release --target pictra_bench
	@$(BUILD)/bin/pictra_bench

# Pictures of other projects' tests, which are fetched, compared with other decoders. Not a part of CI.
suites: build
	@.ci/packages suites
	@tests/suites.sh $(BUILD)

# The library on other machines: vectors of 16 bytes, and the other byte order. Tests run in an emulator.
cross: prerequisites
	@.ci/packages cross
	@$(MAKE) preset-aarch64 preset-s390x

# A preset, configured, built and tested. What the compiler says is shown when it fails.
preset-%:
	@cmake --preset $* >/dev/null
	@cmake --build --preset $* >build/$*/log || { cat build/$*/log; exit 1; }
	@ctest --preset $*

# Debian packages, in build/packages/debs; the same ones again, wherever and whenever the commit is built.
packages: prerequisites
	@.ci/packages packages
	@cmake --preset packages >/dev/null
	@cmake --build --preset packages
	@rm -rf build/packages/debs
	@cd build/packages && SOURCE_DATE_EPOCH=$$(git log -1 --format=%ct) cpack
	@rm -rf build/packages/debs/_CPack_Packages

# Installs the packages in a system of their own and uses them there. As root.
try-packages: packages
	@packaging/try.sh build/packages/debs

reproducible: prerequisites
	@.ci/packages packages
	@packaging/reproducible.sh

abi: prerequisites
	@.ci/packages abi
	@packaging/abi.sh

format:
	@git ls-files '*.h' '*.hpp' '*.c' '*.cpp' | xargs clang-format -i

clean:
	rm -rf build

.PHONY: all prerequisites build demo check bench suites cross packages try-packages reproducible abi format clean
