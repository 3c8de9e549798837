# Entry points. Each target installs what is missing first, so both work on a fresh machine.
#   make run    - build and run the main job: torqctl's tour on the embedded reference HAL
#   make test   - build and run every test
# More: make build, make test-asan, make test-tsan, make test-libcxx, make bench, make format, make clean

BUILD       ?= build
JOBS        ?= $(shell nproc)
CMAKE_FLAGS ?=
CTEST_FLAGS ?= --output-on-failure --timeout 600

configure = cmake -S . -B $(1) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo $(2) $(CMAKE_FLAGS) >/dev/null

.PHONY: all deps build run test test-asan test-tsan test-libcxx bench format clean

all: build

deps:
	@bash scripts/install-deps.sh

build: deps
	@$(call configure,$(BUILD),)
	@cmake --build $(BUILD) -j $(JOBS)

run: build
	@$(BUILD)/tools/torqctl/torqctl tour

test: build
	@cd $(BUILD) && ctest $(CTEST_FLAGS) -j $(JOBS)

# Sanitizer builds use clang, as the device does.
test-asan: deps
	@$(call configure,$(BUILD)-asan,-DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ -DZEL_SANITIZE_ADDRESS=ON -DZEL_BUILD_BENCHMARKS=OFF)
	@cmake --build $(BUILD)-asan -j $(JOBS)
	@cd $(BUILD)-asan && ctest $(CTEST_FLAGS) -j $(JOBS)

test-tsan: deps
	@$(call configure,$(BUILD)-tsan,-DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ -DZEL_SANITIZE_THREAD=ON -DZEL_BUILD_BENCHMARKS=OFF)
	@cmake --build $(BUILD)-tsan -j $(JOBS)
	@cd $(BUILD)-tsan && ctest $(CTEST_FLAGS) -j $(JOBS)

test-libcxx: deps
	@$(call configure,$(BUILD)-libcxx,-DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ -DZEL_USE_LIBCXX=ON -DZEL_BUILD_BENCHMARKS=OFF)
	@cmake --build $(BUILD)-libcxx -j $(JOBS)
	@cd $(BUILD)-libcxx && ctest $(CTEST_FLAGS) -j $(JOBS)

bench: build
	@if [ -x $(BUILD)/bench/zel_bench ]; then $(BUILD)/bench/zel_bench; else echo "no benchmarks built"; fi

format:
	@git ls-files '*.cpp' '*.h' | xargs clang-format -i

clean:
	rm -rf $(BUILD) $(BUILD)-asan $(BUILD)-tsan $(BUILD)-libcxx
