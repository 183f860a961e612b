# The two commands every new user needs:
#   make run    installs what is missing, builds Brenvo (Release) and starts it
#   make test   installs what is missing, builds with AddressSanitizer and UBSan, runs the whole suite
# Both work on a fresh Debian 12 machine; packages are installed through sudo when not root.

SHELL := /bin/bash
JOBS ?= $(shell nproc)
RELEASE := build/release
CHECKED := build/checked
# Compiles are shared between build folders and work trees when ccache is there; nothing needs it.
LAUNCHER := $(if $(shell command -v ccache),-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)

PACKAGES := build-essential cmake ninja-build pkg-config qt6-base-dev libqt6svg6 libgl-dev libicu-dev \
            libgtest-dev libgmock-dev libbenchmark-dev adwaita-icon-theme fonts-dejavu-core \
            findutils coreutils dbus-daemon
PEERS := gdu ncdu time

.PHONY: setup build run test bench fuzz tsan stress clean

# Installs the Debian packages named in $(1) that are missing (through sudo when not root).
define install
	@missing=$$(for p in $(1); do dpkg-query -W -f='$${Status}\n' $$p 2>/dev/null | grep -q 'install ok installed' || echo $$p; done); \
	if [ -n "$$missing" ]; then \
	  echo "Installing:" $$missing; \
	  if [ "$$(id -u)" = 0 ]; then SUDO=; \
	  elif command -v sudo >/dev/null; then SUDO=sudo; \
	  else echo "Missing packages and no sudo: run 'make setup' as root, or install sudo." >&2; exit 1; fi; \
	  $$SUDO apt-get update -qq && DEBIAN_FRONTEND=noninteractive $$SUDO apt-get install -y -qq --no-install-recommends $$missing; \
	fi
endef

setup:
	$(call install,$(PACKAGES))

$(RELEASE)/build.ninja:
	cmake -S . -B $(RELEASE) -G Ninja -DCMAKE_BUILD_TYPE=Release -DBRENVO_TESTS=OFF $(LAUNCHER)

build: setup $(RELEASE)/build.ninja
	cmake --build $(RELEASE) -j $(JOBS)

run: build
	@if [ -n "$$DISPLAY$$WAYLAND_DISPLAY" ] || [ "$$QT_QPA_PLATFORM" = offscreen ]; then \
	  exec $(RELEASE)/src/app/brenvo $(ARGS); \
	else \
	  echo "No display found (neither DISPLAY nor WAYLAND_DISPLAY is set), so the window can't open."; \
	  echo "Running the command-line scanner instead: brenvo-cli scan ~"; \
	  $(RELEASE)/src/app/brenvo-cli scan ~; \
	fi

$(CHECKED)/build.ninja:
	cmake -S . -B $(CHECKED) -G Ninja -DCMAKE_BUILD_TYPE=Debug -DBRENVO_SANITIZE=ON -DBRENVO_BENCH=OFF $(LAUNCHER)

test: setup $(CHECKED)/build.ninja
	cmake --build $(CHECKED) -j $(JOBS)
	cd $(CHECKED) && ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1 \
	  QT_QPA_PLATFORM=offscreen ctest --output-on-failure -j $(JOBS)

bench: build
	@echo "Benchmarks: $(RELEASE)/bench/brenvo_bench; peers: bench/peers.sh TREE"
	$(RELEASE)/bench/brenvo_bench
	QT_QPA_PLATFORM=offscreen $(RELEASE)/bench/brenvo_page_bench

# The three readers of outside bytes under libFuzzer (the snapshot decoder, the JSON reader, the XML
# property-list reader), FUZZ_SECONDS each.
FUZZ_SECONDS ?= 60
FUZZERS := snapshot_fuzz json_fuzz xml_plist_fuzz
CLANG := clang libclang-rt-14-dev
fuzz: setup
	$(call install,$(CLANG))
	cmake -S . -B build/fuzz -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_COMPILER=clang++ \
	  -DBRENVO_FUZZ=ON -DBRENVO_GUI=OFF -DBRENVO_BENCH=OFF $(LAUNCHER)
	cmake --build build/fuzz -j $(JOBS) --target $(FUZZERS)
	@for f in $(FUZZERS); do \
	  mkdir -p build/fuzz/corpus/$$f && cp -n tests/fuzz/seeds/$$f/* build/fuzz/corpus/$$f/ && \
	  build/fuzz/tests/fuzz/$$f -max_total_time=$(FUZZ_SECONDS) -max_len=65536 build/fuzz/corpus/$$f || exit 1; \
	done

# The engine and model tests built with ThreadSanitizer (clang) and run; they must be clean.
tsan: setup
	$(call install,$(CLANG))
	cmake -S . -B build/tsan -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_COMPILER=clang++ \
	  -DBRENVO_TSAN=ON -DBRENVO_BENCH=OFF $(LAUNCHER)
	cmake --build build/tsan -j $(JOBS) --target brenvo_core_tests brenvo_model_tests
	TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1" build/tsan/tests/brenvo_core_tests
	TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1 suppressions=$(CURDIR)/tests/tsan.supp" \
	  QT_QPA_PLATFORM=offscreen build/tsan/tests/brenvo_model_tests

# The whole suite STRESS_RUNS times in a row while `stress` keeps both cores busy: a test that leans on
# timing fails here first. Prints how many runs failed, and fails if any did.
STRESS_RUNS ?= 20
stress: test
	$(call install,stress)
	@stress --cpu $(JOBS) --quiet & load=$$!; trap 'kill $$load 2>/dev/null' EXIT; failed=0; \
	for run in $$(seq $(STRESS_RUNS)); do \
	  if (cd $(CHECKED) && ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 QT_QPA_PLATFORM=offscreen \
	      ctest -j $(JOBS) --output-on-failure > ../stress-$$run.log 2>&1); then echo "run $$run: passed"; \
	  else failed=$$((failed + 1)); echo "run $$run: FAILED (build/stress-$$run.log)"; fi; \
	done; echo "$$failed of $(STRESS_RUNS) runs failed"; [ $$failed = 0 ]

clean:
	rm -rf build
