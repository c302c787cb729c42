# `make test` and `make demo` set up all they need, build the module and run it. See scripts/.

.PHONY: test checked sanitize test311 test-clang fuzz demo demo-sdp bench docs types lint clean

# Where a test runs: as shipped, with each array access tested, under the sanitizers, for 3.11, as
# clang compiles it.
test:       preset = release
checked:    preset = checked
sanitize:   preset = sanitizers
test311:    preset = python311
test-clang: preset = clang
test checked sanitize test311 test-clang:
	@scripts/build.sh $(preset)
	@ctest --preset $(preset) --parallel $$(nproc)

# Calls that the tests make, right and with wrong arguments. make fuzz [OPTIONS="--seed 7"]
fuzz:
	@scripts/build.sh checked
	@ctest --preset checked --parallel $$(nproc) --exclude-regex 'frame|shared_object|fuzz' --quiet
	@build/checked/python tests/fuzz.py build/checked/calls $(OPTIONS)

# make demo [MODEL=FILE.mps] [PARAMETER=1.1 | MATRIX=1]
demo: export MODEL := $(MODEL)
demo: export PARAMETER := $(PARAMETER)
demo: export MATRIX := $(MATRIX)
demo:
	@scripts/build.sh release
	@scripts/demo.sh

# make demo-sdp [MODEL=FILE.dat-s] [PARAMETER=1.1]
demo-sdp: export MODEL := $(MODEL)
demo-sdp: export PARAMETER := $(PARAMETER)
demo-sdp:
	@scripts/build.sh release
	@scripts/demo_sdp.sh

# make bench [OPTIONS="--most 1000000 PATTERN"]
bench:
	@scripts/build.sh benchmarks
	@build/benchmarks/python benchmarks/run.py $(OPTIONS)
	@scripts/build.sh benchmarks311
	@build/benchmarks311/python benchmarks/run.py --numpy $(OPTIONS)

# make docs [TABLES=FILE]: pages in build/docs/html; TABLES is what `make bench` printed, to be drawn
docs: export TABLES := $(TABLES)
docs:
	@scripts/build.sh release
	@scripts/docs.sh

# make types [FILES="more.py ..."]: the stubs, host/ and what FILES names, by mypy --strict
types:
	@scripts/build.sh release
	@scripts/types.sh $(FILES)

# make lint [FILES="kernels/products/left_product.cpp ..."]
lint:
	@scripts/build.sh release
	@scripts/lint.sh $(FILES)

clean:
	rm -rf build
