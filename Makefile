# Entry points. Each target installs what is missing first, so both work on a fresh machine.
#   make run    - build and run the main job: torqctl's tour on the embedded reference HAL; installs
#                 and builds only what that needs
#   make test   - build and run every test
# More: make build, make test-asan, make test-tsan, make test-libcxx, make fuzz, make bench,
#       make bench-instructions, make format, make clean

BUILD       ?= build
JOBS        ?= $(shell nproc)
CMAKE_FLAGS ?=
CTEST_FLAGS ?= --output-on-failure --timeout 600

configure = cmake -S . -B $(1) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo $(2) $(CMAKE_FLAGS) >/dev/null

# The clang builds (sanitizers, fuzzing, libc++) keep line tables only: a report still names the
# file and line of every frame, and a build compiles about a quarter faster than with full debug
# information.
CLANG = -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
        "-DCMAKE_C_FLAGS_RELWITHDEBINFO=-O2 -gline-tables-only -DNDEBUG" \
        "-DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-O2 -gline-tables-only -DNDEBUG"
# One ASan build serves the tests and the fuzz targets: the libraries carry the fuzzers' coverage
# instrumentation in the tests too (it changes no result), and whichever runs second compiles only
# its own executables.
ASAN_BUILD = $(BUILD)-asan
ASAN_CONFIG = $(CLANG) -DZEL_SANITIZE_ADDRESS=ON -DZEL_BUILD_FUZZERS=ON -DZEL_BUILD_BENCHMARKS=OFF

.PHONY: all deps deps-run deps-bench build run test test-asan test-tsan test-libcxx fuzz bench \
        bench-instructions format clean

all: build

deps:
	@bash scripts/install-deps.sh test

deps-run:
	@bash scripts/install-deps.sh run

deps-bench:
	@bash scripts/install-deps.sh bench

# Everything: the library, the tools, the tests and the benchmarks.
build: deps
	@$(call configure,$(BUILD),-DZEL_BUILD_TESTS=ON -DZEL_BUILD_BENCHMARKS=ON)
	@cmake --build $(BUILD) -j $(JOBS)

# Only torqctl and what it links (the library, the host platform, the simulator). A build dir
# that exists is used as it is configured (make test turns the tests on in it; that costs run
# nothing, as only torqctl is built), so a repeated run neither configures nor compiles.
run: deps-run
	@[ -f $(BUILD)/build.ninja ] || \
	    $(call configure,$(BUILD),-DZEL_BUILD_TESTS=OFF -DZEL_BUILD_BENCHMARKS=OFF)
	@cmake --build $(BUILD) -j $(JOBS) --target torqctl
	@$(BUILD)/tools/torqctl/torqctl tour

test: build
	@cd $(BUILD) && ctest $(CTEST_FLAGS) -j $(JOBS)

# Sanitizer builds use clang, as the device does. Any report fails the test that made it: ASan,
# UBSan (built with -fno-sanitize-recover) and TSan stop at the first report, LeakSanitizer fails
# the exit code. The findings the library keeps on purpose are suppressed in one place,
# tests/support/src/sanitizer_suppressions.cpp.
ASAN_ENV = ASAN_OPTIONS=halt_on_error=1:detect_leaks=1 UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1
# TSan waits a second at every exit by default (to catch races with threads still running); with
# one process per test that second was most of the run, so it waits 50 ms.
TSAN_ENV = TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1:atexit_sleep_ms=50

test-asan: deps
	@$(call configure,$(ASAN_BUILD),$(ASAN_CONFIG))
	@cmake --build $(ASAN_BUILD) -j $(JOBS)
	@cd $(ASAN_BUILD) && $(ASAN_ENV) ctest $(CTEST_FLAGS) -j $(JOBS)

test-tsan: deps
	@$(call configure,$(BUILD)-tsan,$(CLANG) -DZEL_SANITIZE_THREAD=ON -DZEL_BUILD_BENCHMARKS=OFF)
	@cmake --build $(BUILD)-tsan -j $(JOBS)
	@cd $(BUILD)-tsan && $(TSAN_ENV) ctest $(CTEST_FLAGS) -j $(JOBS)

# libFuzzer (clang, with ASan and UBSan, in the ASan build): builds the fuzz targets and runs each
# for FUZZ_SECONDS, starting from its checked-in corpus (fuzz/corpus/<target>); what it finds goes
# to $(FUZZ_OUT)/corpus (new inputs) and $(FUZZ_OUT)/crashes (failing ones), never into the tree.
FUZZ_SECONDS ?= 20
FUZZ_TARGETS ?= string_utils callback_client parcelables torqctl_parser torqctl_json conformance
FUZZ_OUT = $(ASAN_BUILD)/fuzz-runs

fuzz: deps
	@$(call configure,$(ASAN_BUILD),$(ASAN_CONFIG))
	@cmake --build $(ASAN_BUILD) -j $(JOBS) --target $(addprefix fuzz_,$(FUZZ_TARGETS))
	@mkdir -p $(FUZZ_OUT)/crashes
	@for t in $(FUZZ_TARGETS); do \
	    mkdir -p $(FUZZ_OUT)/corpus/$$t; \
	    echo "fuzz_$$t: $(FUZZ_SECONDS) s"; \
	    $(ASAN_ENV) $(ASAN_BUILD)/fuzz/fuzz_$$t -max_total_time=$(FUZZ_SECONDS) -timeout=10 \
	        -print_final_stats=1 -artifact_prefix=$(FUZZ_OUT)/crashes/$$t- \
	        $(FUZZ_OUT)/corpus/$$t fuzz/corpus/$$t > $(FUZZ_OUT)/fuzz_$$t.log 2>&1 \
	        || { tail -n 60 $(FUZZ_OUT)/fuzz_$$t.log; exit 1; }; \
	    grep -E "stat::(number_of_executed_units|new_units_added):" $(FUZZ_OUT)/fuzz_$$t.log; \
	done

test-libcxx: deps
	@$(call configure,$(BUILD)-libcxx,$(CLANG) -DZEL_USE_LIBCXX=ON -DZEL_BUILD_BENCHMARKS=OFF)
	@cmake --build $(BUILD)-libcxx -j $(JOBS)
	@cd $(BUILD)-libcxx && ctest $(CTEST_FLAGS) -j $(JOBS)

# Timings (ratios to the bare transaction, informative), the instruction tables and the
# docs-ready plot $(BUILD)/bench-results/scaling.svg; the tables go to $(BUILD)/bench-results too.
bench: deps-bench
	@$(call configure,$(BUILD),-DZEL_BUILD_TESTS=ON -DZEL_BUILD_BENCHMARKS=ON)
	@cmake --build $(BUILD) -j $(JOBS) --target zel_bench
	@mkdir -p $(BUILD)/bench-results
	@$(BUILD)/bench/zel_bench $(BUILD)/bench-results > $(BUILD)/bench-results/timings.md; \
	    status=$$?; cat $(BUILD)/bench-results/timings.md; exit $$status
	@bash bench/instructions.sh $(BUILD) || [ $$? -eq 1 ]
	@gnuplot -e "dir='$(BUILD)/bench-results'; out='$(BUILD)/bench-results/scaling.svg'" bench/scaling.gp
	@echo "plot: $(BUILD)/bench-results/scaling.svg"

# The library's own instructions per call, counted under callgrind (about two minutes on 2
# cores); fails when a row is over its budget in bench/instruction-budget.txt. Writes the tables
# to $(BUILD)/bench-results.
bench-instructions: deps-bench
	@$(call configure,$(BUILD),-DZEL_BUILD_TESTS=ON -DZEL_BUILD_BENCHMARKS=ON)
	@cmake --build $(BUILD) -j $(JOBS) --target zel_bench
	@bash bench/instructions.sh $(BUILD)

format:
	@git ls-files '*.cpp' '*.h' | xargs clang-format -i

clean:
	rm -rf $(BUILD) $(BUILD)-asan $(BUILD)-tsan $(BUILD)-libcxx
