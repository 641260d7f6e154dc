# The front door. Every target installs what is missing first, so each works on a
# fresh Debian machine as root.
BUILD      ?= build
JOBS       ?= $(shell nproc)
CMAKE_ARGS ?=
# CI builds treat warnings as errors.
ifeq ($(CI),true)
CMAKE_ARGS += -DAGENTUTIL_WERROR=ON
endif

.PHONY: all deps build test soak demo asan fuzz bench install clean

all: build

deps:
	@scripts/install-deps

$(BUILD)/build.ninja:
	cmake -S . -B $(BUILD) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo $(CMAKE_ARGS)

build: deps $(BUILD)/build.ninja
ifneq ($(strip $(CMAKE_ARGS)),)
	cmake -S . -B $(BUILD) $(CMAKE_ARGS)
endif
	cmake --build $(BUILD) -j $(JOBS)

# Unit, simulator and ceph labels; the ceph label runs on a throwaway sandbox cluster.
# Then, unless SANITIZE=0, the unit and sim labels again under the sanitizers (make asan).
SANITIZE ?= 1
test: build
	@scripts/run-tests $(BUILD)
ifneq ($(SANITIZE),0)
	@$(MAKE) --no-print-directory asan
endif

# The seeded random histories of backups and restores on a sandbox cluster, for many more
# seeds than make test runs (SOAK_SEEDS: "1-200", "7,9"; a failure names its seed).
SOAK_SEEDS ?= 1-100
soak: build
	@AGENTUTIL_HISTORY_SEEDS=$(SOAK_SEEDS) scripts/run-tests $(BUILD) -R Random_History --timeout 86400

demo: build
	@scripts/demo $(BUILD)

# AddressSanitizer + UndefinedBehaviorSanitizer over the unit and sim labels.
asan: deps
	cmake -S . -B build-asan -G Ninja -DCMAKE_BUILD_TYPE=Debug -DAGENTUTIL_SANITIZE=ON
	cmake --build build-asan -j $(JOBS)
	ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
	  ctest --test-dir build-asan -L 'unit|sim' -j $(JOBS) --output-on-failure

# libFuzzer targets for every parser of outside text, one at a time, each fuzzing for
# FUZZ_SECONDS (60 s: about 17 minutes for the 15 targets with their corpus merges) from
# its kept corpus tests/fuzz/corpus/<name>, which is written back minimised.
FUZZ_SECONDS ?= 60
fuzz: deps
	CC=clang CXX=clang++ cmake -S . -B build-fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	  -DAGENTUTIL_FUZZ=ON -DAGENTUTIL_TESTS=OFF
	cmake --build build-fuzz -j $(JOBS)
	@scripts/run-fuzzers build-fuzz $(FUZZ_SECONDS)

bench: deps
	cmake -S . -B build-bench -G Ninja -DCMAKE_BUILD_TYPE=Release -DAGENTUTIL_BENCH=ON -DAGENTUTIL_TESTS=OFF
	cmake --build build-bench -j $(JOBS)
	@scripts/run-benches build-bench

install: build
	cmake --install $(BUILD)

clean:
	rm -rf $(BUILD) build-asan build-fuzz build-bench
