# Front door of the build: each target wraps a CMake preset (see CMakePresets.json).
#   make            release build (build/release)
#   make test       install missing packages, build with ASan+UBSan, run every test
#   make demo       release build of the tool, then scripts/demo (output in build/demo)
#   make bench      build and run every benchmark with release flags
#   make fuzz       build every fuzz target with clang
#   make fuzz-run   a short run of each fuzz target over its seed corpus (FUZZ_SECONDS each)
#   make tsan       build with ThreadSanitizer and run the tests labelled `threads`
#   make install    install the release build into PREFIX
#   make clean      remove build/

SHELL := /bin/bash
.SHELLFLAGS := -o pipefail -c

JOBS ?= $(shell nproc 2>/dev/null || echo 2)
FUZZ_SECONDS ?= 30
PREFIX ?= /usr/local

CONFIGURE = cmake --preset $(1) --log-level=WARNING >/dev/null
BUILD = cmake --build --preset $(1) -j $(JOBS) $(2) -- --quiet | { grep -v '^ninja: no work to do' || true; }

.PHONY: all release test asan demo bench fuzz fuzz-run tsan install deps clean

all: release

deps:
	@scripts/install-deps

release:
	@$(call CONFIGURE,release)
	@$(call BUILD,release)

asan:
	@$(call CONFIGURE,asan)
	@$(call BUILD,asan)

test:
	@scripts/install-deps
	@$(call CONFIGURE,asan)
	@$(call BUILD,asan)
	@scripts/run-ctest --preset asan -j $(JOBS)
	@# The sanitizer's own operator new stands first in an instrumented process, so the
	@# routing of operator new to the memory service is checked in the plain build.
	@$(call CONFIGURE,release)
	@$(call BUILD,release,--target kvimage-tests)
	@scripts/run-ctest --preset release -R '^PlatformMemory\.'

demo:
	@scripts/install-deps
	@$(call CONFIGURE,release)
	@$(call BUILD,release,--target runtime)
	@scripts/demo build/release build/demo

bench:
	@scripts/install-deps
	@$(call CONFIGURE,bench)
	@$(call BUILD,bench,--target benchmarks)
	@scripts/run-benchmarks build/release/bench

fuzz:
	@$(call CONFIGURE,fuzz)
	@$(call BUILD,fuzz)

fuzz-run: fuzz
	@scripts/fuzz-run build/fuzz $(FUZZ_SECONDS)

tsan:
	@$(call CONFIGURE,tsan)
	@$(call BUILD,tsan)
	@scripts/run-ctest --preset tsan -j $(JOBS)

install: release
	@cmake --install build/release --prefix $(PREFIX) >/dev/null
	@echo "installed into $(PREFIX)"

clean:
	@rm -rf build
