# Front door: `make run` shows the agent at work against the demo signature server,
# `make test` builds and runs every test (a normal and a sanitizer build).
BUILD      ?= build
ASAN_BUILD ?= build-asan
BENCH_BUILD ?= build-bench
FUZZ_BUILD ?= build-fuzz
FUZZ_SECONDS ?= 60
JOBS       ?= $(shell nproc)
CMAKE_FLAGS ?=

.PHONY: all help bootstrap build build-asan test test-normal test-asan run bench fuzz format format-check layers portability clean

all: build

help:
	@echo "make               the same as make build"
	@echo "make run           the agent's main job against the demo signature server (builds first)"
	@echo "make test          every test, in a normal and a sanitizer build (test-normal, test-asan: one of them)"
	@echo "make build         the normal build in $(BUILD) (build-asan: the sanitizer build in $(ASAN_BUILD))"
	@echo "make bench         the performance figures against their goals (docs/performance.md)"
	@echo "make fuzz          every fuzz target for FUZZ_SECONDS each (default $(FUZZ_SECONDS))"
	@echo "make format        clang-format every source file (format-check: only report)"
	@echo "make layers        check that every include points into its own layer or one below"
	@echo "make portability   compile the portable core as a Mac does, refusing Linux-only calls"
	@echo "make bootstrap     install the packages the build needs, where missing"
	@echo "make clean         remove $(BUILD) and $(ASAN_BUILD)"
	@echo "One test: ctest --test-dir $(BUILD) -R NAME --output-on-failure (see README.md, Tests)"

bootstrap:
	@bash scripts/bootstrap

build: bootstrap
	@cmake -S . -B $(BUILD) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo $(CMAKE_FLAGS) >/dev/null
	@cmake --build $(BUILD) -j $(JOBS)

build-asan: bootstrap
	@cmake -S . -B $(ASAN_BUILD) -G Ninja -DCMAKE_BUILD_TYPE=Debug -DVARNOTH_SANITIZE=ON $(CMAKE_FLAGS) >/dev/null
	@cmake --build $(ASAN_BUILD) -j $(JOBS)

test-normal: build
	@echo "== tests (normal build)"
	@ctest --test-dir $(BUILD) --output-on-failure -j $(JOBS)

test-asan: build-asan
	@echo "== tests (AddressSanitizer + UndefinedBehaviorSanitizer build)"
	@ASAN_OPTIONS=detect_leaks=1:abort_on_error=0 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
		ctest --test-dir $(ASAN_BUILD) --output-on-failure -j $(JOBS)

test: test-normal test-asan

run: build
	@bash scripts/run-demo $(BUILD)

# The agent's figures against their goals, as a table (an optimised build with the desktop agent); fails
# when a goal is missed.
bench: bootstrap
	@cmake -S . -B $(BENCH_BUILD) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVARNOTH_BUILD_BENCH=ON -DVARNOTH_BUILD_TESTS=OFF $(CMAKE_FLAGS) >/dev/null
	@cmake --build $(BENCH_BUILD) -j $(JOBS) --target receive_bench compare_bench update_run_bench agent_process_bench server_bench
	@python3 bench/report.py $(BENCH_BUILD)

# Every fuzz target for FUZZ_SECONDS each (clang, libFuzzer, AddressSanitizer + UndefinedBehaviorSanitizer).
fuzz: bootstrap
	@FUZZ_SECONDS=$(FUZZ_SECONDS) JOBS=$(JOBS) bash fuzz/run-fuzzers $(FUZZ_BUILD)

format:
	@git ls-files '*.cpp' '*.h' '*.mm' '*.m' | xargs clang-format -i

format-check:
	@git ls-files '*.cpp' '*.h' '*.mm' '*.m' | xargs clang-format --dry-run --Werror

# Every project include points into its own layer or one below, and none forms a loop.
layers:
	@python3 scripts/check-layers

# What a Mac builds compiles without glibc's extensions and names no Linux-only call outside platform/linux/.
portability: bootstrap
	@python3 scripts/check-portability

clean:
	@rm -rf $(BUILD) $(ASAN_BUILD)
