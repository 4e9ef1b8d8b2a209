# Front door: make run, make test, make bench, make fuzz, make deb.
BUILD ?= build
JOBS  ?= $(shell nproc)

ASAN_BUILD   ?= build-asan
FUZZ_BUILD   ?= build-fuzz
FUZZ_SECONDS ?= 60

.PHONY: all deps configure build test test-asan fuzz-build fuzz-smoke fuzz bench run deb clean

all: build

deps:
	@scripts/install-deps.sh

configure: deps
	@cmake -S . -B $(BUILD) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null

build: configure
	@cmake --build $(BUILD) -j $(JOBS)

test: build
	@cd $(BUILD) && ctest --output-on-failure -j $(JOBS)
	@$(MAKE) --no-print-directory test-asan fuzz-smoke

# The unit tests once more, everything built with AddressSanitizer and
# UndefinedBehaviorSanitizer (the end-to-end scripts run once, above).
test-asan: deps
	@cmake -S . -B $(ASAN_BUILD) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKORVANE_SANITIZE=ON >/dev/null
	@cmake --build $(ASAN_BUILD) -j $(JOBS)
	@cd $(ASAN_BUILD) && LSAN_OPTIONS=suppressions=$(CURDIR)/tests/sanitizer/lsan.supp \
	  UBSAN_OPTIONS=print_stacktrace=1 ctest --output-on-failure -j $(JOBS) -E '^e2e_'

# The fuzz harnesses (clang, libFuzzer): a configuration of their own.
fuzz-build: deps
	@CXX=clang++ cmake -S fuzz -B $(FUZZ_BUILD) -G Ninja >/dev/null
	@cmake --build $(FUZZ_BUILD) -j $(JOBS)

# Each harness over its seed corpus plus 20 s of fresh input, two at a time.
fuzz-smoke: fuzz-build
	@cd $(FUZZ_BUILD) && ctest --output-on-failure -j 2

# Each harness for FUZZ_SECONDS: executions, coverage, crashes, leaks, UB.
fuzz: fuzz-build
	@fuzz/run.sh $(FUZZ_BUILD) $(FUZZ_SECONDS)

bench: build
	@$(BUILD)/korvane_bench

run: build
	@scripts/run.sh $(BUILD)

# The Debian package, built the Debian way in a copy of the tree:
# $(BUILD)/korvane_<version>_<arch>.deb.
deb: deps
	@scripts/build-deb.sh $(BUILD)

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(FUZZ_BUILD)
