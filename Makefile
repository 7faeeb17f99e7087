# Front door to the CMake presets. `make demo` and `make test` work on a fresh
# machine: both install the Debian packages the build needs first.
JOBS ?= 2
PREFIX ?= /usr/local
FUZZ_SECONDS ?= 60

PACKAGES := cmake ninja-build g++ clang libclang-rt-dev pkg-config libicu-dev icu-devtools \
	libxerces-c-dev rapidjson-dev libboost-dev libgtest-dev libgmock-dev \
	libbenchmark-dev libspdlog-dev liblog4cxx-dev nlohmann-json3-dev rsyslog netbase

.PHONY: all deps build test demo bench asan tsan fuzz fuzz-replay install clean

all: build

deps:
	@missing=$$(for p in $(PACKAGES); do \
	    dpkg-query -W -f='$${Status}\n' $$p 2>/dev/null | grep -q 'install ok installed' || echo $$p; \
	  done); \
	if [ -n "$$missing" ]; then \
	  echo "Installing:" $$missing; \
	  SUDO=$$( [ "$$(id -u)" = 0 ] || echo sudo ); \
	  $$SUDO apt-get update -qq && \
	  DEBIAN_FRONTEND=noninteractive $$SUDO apt-get install -y -qq $$missing; \
	fi

build/%/build.ninja: | deps
	cmake --preset $*

build: deps build/release/build.ninja
	cmake --build --preset release -j $(JOBS)

test: build
	ctest --preset release -j $(JOBS)

demo: build
	cd build/release/examples && ./qzdemo qzdemo-activity.bin
	@echo
	@echo "== 17. retrace replays the activity file as text"
	cd build/release/examples && ../tools/retrace/retrace qzdemo-activity.bin

bench: deps build/bench/build.ninja
	cmake --build --preset bench -j $(JOBS)
	@echo "Benchmarks built in build/bench/bench; run them one at a time, e.g. build/bench/bench/bench_logging"

asan: deps build/asan/build.ninja
	cmake --build --preset asan -j $(JOBS)
	ctest --preset asan -j $(JOBS)

tsan: deps build/tsan/build.ninja
	cmake --build --preset tsan -j $(JOBS)
	ctest --preset tsan -j $(JOBS)

fuzz: deps build/fuzz/build.ninja
	cmake --build --preset fuzz -j $(JOBS)
	@set -e; for f in build/fuzz/fuzz/fuzz_*; do \
	  [ -x "$$f" ] || continue; n=$$(basename $$f); \
	  mkdir -p build/fuzz/corpus/$$n build/fuzz/crashes; \
	  echo "== $$n ($(FUZZ_SECONDS)s)"; \
	  $$f -max_total_time=$(FUZZ_SECONDS) -artifact_prefix=build/fuzz/crashes/ build/fuzz/corpus/$$n fuzz/corpus/$$n \
	    $$( [ -d fuzz/regressions/$$n ] && echo fuzz/regressions/$$n ); \
	done

# Runs each target once over every seed and every saved crash input
# (fuzz/regressions/<target>/), with no mutation, so that a finding stays
# fixed. CI runs it; a target with no input at all is an error.
fuzz-replay: deps build/fuzz/build.ninja
	cmake --build --preset fuzz -j $(JOBS)
	@set -e; for f in build/fuzz/fuzz/fuzz_*; do \
	  [ -x "$$f" ] || continue; n=$$(basename $$f); \
	  inputs=$$(find fuzz/corpus/$$n fuzz/regressions/$$n -type f 2>/dev/null | LC_ALL=C sort); \
	  if [ -z "$$inputs" ]; then echo "$$n: no seed or regression input"; exit 1; fi; \
	  echo "== $$n: $$(echo "$$inputs" | wc -l) inputs"; \
	  if ! $$f -runs=1 $$inputs > build/fuzz/replay-$$n.log 2>&1; then \
	    cat build/fuzz/replay-$$n.log; echo "$$n: replay failed"; exit 1; \
	  fi; \
	done

install: build
	cmake --install build/release --prefix $(PREFIX)

clean:
	rm -rf build
