# Front door of the project: `make demo` and `make test` work on a fresh Debian machine.
BUILD_DIR ?= build
SAN_BUILD_DIR ?= build-san
JOBS ?= 2
CMAKE_FLAGS ?=

DEB_PACKAGES := cmake g++ make rapidjson-dev libeigen3-dev libgtest-dev libgmock-dev googletest \
                libbenchmark-dev libcli11-dev libstb-dev \
                python3-dev pybind11-dev python3-numpy python3-distributed python3-pandas \
                python3-pytest
PEER_PACKAGES := libpcl-dev libopen3d-dev

SUDO := $(shell [ "$$(id -u)" = 0 ] || echo sudo)

BENCH_BUILD_DIR ?= build-bench

# Fuzzing (see docs/reliability.md): clang and its runtime libraries come from Debian, for these
# targets only; the normal build stays with g++.
FUZZ_BUILD_DIR ?= build-fuzz
COVERAGE_BUILD_DIR ?= build-coverage
TSAN_BUILD_DIR ?= build-tsan
FUZZ_SECONDS ?= 60
FUZZ_PACKAGES := clang libclang-rt-14-dev llvm-14
# Each target with its seed corpus folder under fuzz/corpus; a new target adds one pair here and
# one velmar_add_fuzzer call in fuzz/CMakeLists.txt.
FUZZ_TARGETS := config_fuzzer:config frame_fuzzer:frames recording_fuzzer:recording \
  datafile_fuzzer:datafiles import_fuzzer:import
FUZZ_NAMES := $(foreach t,$(FUZZ_TARGETS),$(firstword $(subst :, ,$(t))))

.PHONY: all deps deps-peers deps-fuzz build test test-san test-tsan fuzz fuzz-coverage demo example \
        bench bench-ground bench-peers bench-python install-check clean

all: build

# Installs only the packages of $(1) that are missing; apt-get update runs only when something
# must be installed.
define install_missing
	@missing=""; for p in $(1); do \
	  dpkg-query -W -f='$${Status}' $$p 2>/dev/null | grep -q "ok installed" || missing="$$missing $$p"; \
	done; \
	if [ -n "$$missing" ]; then \
	  echo "installing:$$missing"; \
	  $(SUDO) apt-get update -qq && \
	  DEBIAN_FRONTEND=noninteractive $(SUDO) apt-get install -y -qq --no-install-recommends $$missing; \
	fi
endef

deps:
	$(call install_missing,$(DEB_PACKAGES))

# The peers of `make bench-peers` only; nothing else needs them.
deps-peers:
	$(call install_missing,$(PEER_PACKAGES))

deps-fuzz: deps
	$(call install_missing,$(FUZZ_PACKAGES))

build: deps
	cmake -S . -B $(BUILD_DIR) $(CMAKE_FLAGS)
	cmake --build $(BUILD_DIR) -j$(JOBS)

test: build
	cd $(BUILD_DIR) && ctest --output-on-failure -j$(JOBS)

# AddressSanitizer + UndefinedBehaviorSanitizer build of everything, then every test.
test-san: deps
	cmake -S . -B $(SAN_BUILD_DIR) -DCMAKE_BUILD_TYPE=Debug -DVELMAR_SANITIZE=ON $(CMAKE_FLAGS)
	cmake --build $(SAN_BUILD_DIR) -j$(JOBS)
	cd $(SAN_BUILD_DIR) && \
	  ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 \
	  UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1:suppressions=$(CURDIR)/tests/ubsan.supp \
	  ctest --output-on-failure -j$(JOBS)

# The concurrency tests (several host threads on one pipeline and on pipelines of their own)
# under ThreadSanitizer.
test-tsan: deps
	cmake -S . -B $(TSAN_BUILD_DIR) -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	  -DCMAKE_CXX_FLAGS="-fsanitize=thread" -DCMAKE_EXE_LINKER_FLAGS="-fsanitize=thread" \
	  -DCMAKE_SHARED_LINKER_FLAGS="-fsanitize=thread" -DVELMAR_BUILD_PYTHON=OFF $(CMAKE_FLAGS)
	cmake --build $(TSAN_BUILD_DIR) -j$(JOBS) --target algo_tests reliability_tests
	TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 \
	  $(TSAN_BUILD_DIR)/tests/algo_tests --gtest_filter='*Concurren*'
	TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 \
	  $(TSAN_BUILD_DIR)/tests/reliability/reliability_tests --gtest_filter='Concurrency*'

# Every fuzz target under libFuzzer with AddressSanitizer and UndefinedBehaviorSanitizer, for
# FUZZ_SECONDS each, on a working copy of its seed corpus; any finding fails the target and is
# kept in $(FUZZ_BUILD_DIR)/findings.
fuzz: deps-fuzz
	cmake -S . -B $(FUZZ_BUILD_DIR) -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	  -DVELMAR_FUZZ=ON -DVELMAR_BUILD_TESTS=OFF $(CMAKE_FLAGS)
	cmake --build $(FUZZ_BUILD_DIR) -j$(JOBS) --target $(FUZZ_NAMES)
	./fuzz/run-fuzzers $(FUZZ_BUILD_DIR) $(FUZZ_SECONDS) $(FUZZ_TARGETS)

# Line coverage of src/ by the seed corpora (and by what `make fuzz` found, when present).
fuzz-coverage: deps-fuzz
	cmake -S . -B $(COVERAGE_BUILD_DIR) -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=Debug \
	  -DCMAKE_CXX_FLAGS="-fprofile-instr-generate -fcoverage-mapping" -DVELMAR_BUILD_PYTHON=OFF \
	  $(CMAKE_FLAGS)
	cmake --build $(COVERAGE_BUILD_DIR) -j$(JOBS) --target $(addsuffix _replay,$(FUZZ_NAMES))
	./fuzz/coverage $(COVERAGE_BUILD_DIR) $(FUZZ_BUILD_DIR) $(FUZZ_TARGETS)

demo: build
	./tools/demo.sh $(BUILD_DIR)

# The minimal host program of examples/, on a bundled configuration.
example: build
	./$(BUILD_DIR)/examples/host_demo configs/demo.json

# Optimised build of the benchmarks; prints every figure (see docs/performance.md).
bench: deps
	cmake -S . -B $(BENCH_BUILD_DIR) -DCMAKE_BUILD_TYPE=Release -DVELMAR_BUILD_BENCH=ON \
	  -DVELMAR_BUILD_PEERS=OFF -DVELMAR_BUILD_TESTS=OFF $(CMAKE_FLAGS)
	cmake --build $(BENCH_BUILD_DIR) -j$(JOBS) --target algo_bench ground_bench ground_quality \
	  deskew_bench
	./$(BENCH_BUILD_DIR)/bench/algo_bench $(BENCH_ARGS)
	./$(BENCH_BUILD_DIR)/bench/ground_bench
	./$(BENCH_BUILD_DIR)/bench/ground_quality
	./$(BENCH_BUILD_DIR)/bench/deskew_bench

# Ground detection of configs/marlo128.json (or GROUND_CONFIG) on simulated drives and on the
# real frames of ../shared/data: precision, recall and F1 per frame set and per dataset class, and
# the time per frame (see docs/algorithms.md).
bench-ground: deps
	cmake -S . -B $(BENCH_BUILD_DIR) -DCMAKE_BUILD_TYPE=Release -DVELMAR_BUILD_BENCH=ON \
	  -DVELMAR_BUILD_PEERS=OFF -DVELMAR_BUILD_TESTS=OFF $(CMAKE_FLAGS)
	cmake --build $(BENCH_BUILD_DIR) -j$(JOBS) --target ground_quality
	./$(BENCH_BUILD_DIR)/bench/ground_quality $(GROUND_CONFIG)

# Our filters and ground detection against PCL and Open3D on the same simulated and real frames,
# after checking that both read our recordings (see docs/performance.md). PEERS_ARGS=--search
# prints the parameter search instead of the tables.
bench-peers: deps deps-peers
	cmake -S . -B $(BENCH_BUILD_DIR) -DCMAKE_BUILD_TYPE=Release -DVELMAR_BUILD_BENCH=ON \
	  -DVELMAR_BUILD_PEERS=ON -DVELMAR_BUILD_TESTS=OFF $(CMAKE_FLAGS)
	cmake --build $(BENCH_BUILD_DIR) -j$(JOBS) --target peers_interop peers_bench
	./$(BENCH_BUILD_DIR)/bench/peers/peers_interop
	OMP_NUM_THREADS=1 ./$(BENCH_BUILD_DIR)/bench/peers/peers_bench $(PEERS_ARGS)

# Python calls against C++ calls of the default Marlo128 pipeline, and velmar.batch throughput
# with one and two workers (see docs/performance.md).
bench-python: deps
	cmake -S . -B $(BENCH_BUILD_DIR) -DCMAKE_BUILD_TYPE=Release -DVELMAR_BUILD_BENCH=ON \
	  -DVELMAR_BUILD_PEERS=OFF -DVELMAR_BUILD_TESTS=OFF $(CMAKE_FLAGS)
	cmake --build $(BENCH_BUILD_DIR) -j$(JOBS) --target velmar_python
	PYTHONPATH=$(BENCH_BUILD_DIR)/python /usr/bin/python3 bench/python_bench.py $(BENCH_ARGS)

# Installs into a temporary prefix and builds the example host against it with find_package.
install-check: build
	./.ci/install-check $(BUILD_DIR)

clean:
	rm -rf $(BUILD_DIR) $(SAN_BUILD_DIR) $(BENCH_BUILD_DIR) $(FUZZ_BUILD_DIR) $(COVERAGE_BUILD_DIR) \
	  $(TSAN_BUILD_DIR)
