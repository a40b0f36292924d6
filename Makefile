# The two commands of a newcomer are demo and check. Both install what a fresh Debian 12 lacks, and build.
MAKEFLAGS += --no-print-directory
BUILD := build/release

all: build

packages:
	@.ci/packages build

build: packages
	@cmake --preset release >/dev/null
	@cmake --build --preset release

demo: build
	@tools/demo.sh $(BUILD)

check: build
	@ctest --preset release --output-on-failure

bench: packages
	@.ci/packages bench
	@cmake --preset release -DPICTRA_BENCH=ON >/dev/null
	@cmake --build --preset release --target pictra_bench
	@$(BUILD)/bin/pictra_bench

# Pictures of other projects' tests, which are fetched, compared with other decoders. Not a part of CI.
suites: build
	@.ci/packages suites
	@tests/suites.sh $(BUILD)

# The library on other machines: vectors of 16 bytes, and the other byte order. Tests run in an emulator.
cross: packages
	@.ci/packages cross
	@for machine in aarch64 s390x; do \
	    cmake --preset $$machine >/dev/null && cmake --build --preset $$machine && ctest --preset $$machine || exit 1; \
	done

format:
	@git ls-files '*.h' '*.hpp' '*.c' '*.cpp' | xargs clang-format -i

clean:
	rm -rf build

.PHONY: all packages build demo check bench suites cross format clean
