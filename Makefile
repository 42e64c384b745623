# The two set-up commands of the README. Each installs what is missing, configures and builds.
JOBS ?= $(shell nproc)

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
	$(MAKE) build-asan
	ctest --preset asan -j $(JOBS)

format:
	git ls-files '*.cpp' '*.h' | xargs clang-format -i

clean:
	rm -rf build
