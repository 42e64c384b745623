# The two set-up commands of the README. Each installs what is missing, configures and builds.
JOBS ?= $(shell nproc)

# ccache, when installed, keeps the rebuild of an unchanged tree short (CI builds three trees).
ifneq ($(shell command -v ccache 2>/dev/null),)
export CMAKE_C_COMPILER_LAUNCHER ?= ccache
export CMAKE_CXX_COMPILER_LAUNCHER ?= ccache
export CCACHE_BASEDIR ?= $(CURDIR)
endif

.PHONY: run test deps build build-asan fuzz format clean

deps:
	bash scripts/install-deps.sh

build: deps
	cmake --preset dev
	cmake --build --preset dev -j $(JOBS)

build-asan: deps
	cmake --preset asan
	cmake --build --preset asan -j $(JOBS)

run: build
	bash scripts/run-demo.sh build/dev

test: build
	bash scripts/check-layers.sh
	ctest --preset dev -j $(JOBS)
	bash scripts/check-install.sh build/dev
	$(MAKE) fuzz
	$(MAKE) build-asan
	ctest --preset asan -j $(JOBS)

# Builds the fuzz target, writes its seed corpus and fuzzes for FUZZ_SECONDS; a crash fails.
FUZZ_SECONDS ?= 60
fuzz: deps
	cmake --preset fuzz
	cmake --build build/fuzz --target quorel_fzy_fuzz quorel_fzy_seeds -j $(JOBS)
	rm -rf build/fuzz/seeds && build/fuzz/tests/fuzz/quorel_fzy_seeds build/fuzz/seeds
	mkdir -p build/fuzz/corpus
	build/fuzz/tests/fuzz/quorel_fzy_fuzz -max_total_time=$(FUZZ_SECONDS) -timeout=10 \
		-artifact_prefix=build/fuzz/ build/fuzz/corpus build/fuzz/seeds

format:
	git ls-files '*.cpp' '*.h' | xargs clang-format -i

clean:
	rm -rf build
