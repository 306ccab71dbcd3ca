# The commands for developers. Each target first sets up what it needs.
JOBS ?= $(shell nproc)
PREFIX ?= $(CURDIR)/build/install

.DEFAULT_GOAL := help
.PHONY: help setup build run test asan tsan tsan-quick fuzz seeded bench format lint tidy install wheel

help: ## Show this list
	@awk -F ':.*## ' '/^[a-z]+:.*## / {printf "  make %-8s %s\n", $$1, $$2}' $(MAKEFILE_LIST)

setup: ## Install what the project needs (quick if everything is installed)
	@scripts/setup.sh

build: build-dev ## Build everything for everyday work (build/dev)

run: build-release ## Build, then a short tour on 336,776 flights
	@PYTHONPATH=build/release/python scripts/tour.sh build/release/bin/kvbig .venv/bin/python

test: build-dev ## Build, then run all tests
	ctest --preset dev --parallel $(JOBS)

asan: build-asan ## Run all tests under the sanitizers
	ctest --preset asan --parallel $(JOBS)

tsan: build-tsan ## Run the tests of what threads share under the thread sanitizer
	ctest --preset tsan --parallel $(JOBS)

tsan-quick: setup ## Run a few of them, in a small program
	@[ -f build/tsan/build.ninja ] || cmake --preset tsan
	cmake --build --preset tsan --parallel $(JOBS) --target test_shared
	ctest --preset tsan-quick --parallel $(JOBS)

fuzz: build-fuzz ## Load mutated files for a minute; findings are kept in build/fuzz
	@mkdir -p build/fuzz/corpus
	build/fuzz/bin/fuzz_load -max_total_time=60 -max_len=8192 -print_final_stats=1 \
	  -artifact_prefix=build/fuzz/ build/fuzz/corpus tests/persistence/corpus

seeded: setup ## Put small faults into a copy, and see that tests catch them
	@scripts/seeded.py --jobs $(JOBS)

bench: build-bench ## Measure, and write docs/performance.md
	@scripts/bench.sh build/bench

format: setup ## Format all sources with clang-format and ruff
	@git ls-files '*.h' '*.cpp' | xargs clang-format-16 -i
	@.venv/bin/ruff format --quiet python scripts tests bench examples

lint: setup ## Check layout, names, types, floors, sizes and wording
	@scripts/lint.sh

tidy: setup ## The same, and clang-tidy on what has changed since it was last clean
	@scripts/lint.sh --all

install: build-release ## Install below PREFIX (default build/install)
	cmake --install build/release --prefix $(PREFIX)

wheel: setup ## Install the Python package into a fresh environment and use it
	@scripts/check_wheel.sh

build-release: targets = kvbig kvhost kvbigdata kvruntime kvarray kvbigdata_host
build-fuzz: targets = fuzz_load
build-tsan: targets = test_host test_runtime test_array test_shared kvbig kvbigdata_host
build-%: setup
	@[ -f build/$*/build.ninja ] || cmake --preset $*
	cmake --build --preset $* --parallel $(JOBS) $(addprefix --target ,$(targets))
