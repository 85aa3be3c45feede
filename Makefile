# Front door: `make run` shows the agent at work against the demo signature server,
# `make test` builds and runs every test (a normal and a sanitizer build).
BUILD      ?= build
ASAN_BUILD ?= build-asan
JOBS       ?= $(shell nproc)
CMAKE_FLAGS ?=

.PHONY: all bootstrap build build-asan test test-normal test-asan run bench fuzz format clean

all: build

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

format:
	@git ls-files '*.cpp' '*.h' | xargs clang-format -i

clean:
	@rm -rf $(BUILD) $(ASAN_BUILD)
