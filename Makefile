# Front door: make run, make test, make bench.
BUILD ?= build
JOBS  ?= $(shell nproc)

.PHONY: all deps configure build test bench run clean

all: build

deps:
	@scripts/install-deps.sh

configure: deps
	@cmake -S . -B $(BUILD) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null

build: configure
	@cmake --build $(BUILD) -j $(JOBS)

test: build
	@cd $(BUILD) && ctest --output-on-failure -j $(JOBS)

bench: build
	@$(BUILD)/korvane_bench

run: build
	@scripts/run.sh $(BUILD)

clean:
	rm -rf $(BUILD)
