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

.PHONY: all deps deps-peers build test test-san demo example bench bench-peers bench-python \
        install-check clean

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

demo: build
	./tools/demo.sh $(BUILD_DIR)

# The minimal host program of examples/, on a bundled configuration.
example: build
	./$(BUILD_DIR)/examples/host_demo configs/demo.json

# Optimised build of the benchmarks; prints every figure (see docs/performance.md).
bench: deps
	cmake -S . -B $(BENCH_BUILD_DIR) -DCMAKE_BUILD_TYPE=Release -DVELMAR_BUILD_BENCH=ON \
	  -DVELMAR_BUILD_PEERS=OFF -DVELMAR_BUILD_TESTS=OFF $(CMAKE_FLAGS)
	cmake --build $(BENCH_BUILD_DIR) -j$(JOBS) --target algo_bench ground_bench
	./$(BENCH_BUILD_DIR)/bench/algo_bench $(BENCH_ARGS)
	./$(BENCH_BUILD_DIR)/bench/ground_bench

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
	rm -rf $(BUILD_DIR) $(SAN_BUILD_DIR) $(BENCH_BUILD_DIR)
