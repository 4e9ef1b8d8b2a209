# Front door: make run, make test, make bench, make deb.
BUILD ?= build
JOBS  ?= $(shell nproc)

.PHONY: all deps configure build test bench run deb clean

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

# The Debian package, built the Debian way in a copy of the tree:
# $(BUILD)/korvane_<version>_<arch>.deb.
deb: deps
	@scripts/build-deb.sh $(BUILD)

clean:
	rm -rf $(BUILD)
