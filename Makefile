# make demo and make test do everything on a fresh Debian 12 machine, packages included: each target installs what it
# needs itself, and no more.
JOBS ?= $(shell nproc)
PREFIX ?= /usr/local

.PHONY: help demo install package docs test build-test test-python test-oiio test-packages farm-test bench sanitize fuzz format
.PHONY: check-format setup clean

help:
	@echo "make demo          render a frame, write it, show what is in it (DEMO_EXR=file.exr: that frame too)"
	@echo "make install       install library, headers and rimg (PREFIX=$(PREFIX), DESTDIR=)"
	@echo "make package       build Debian packages of it, in build/package/packages"
	@echo "make docs          build the pages about the library, in build/release/docs"
	@echo "make test          build and run every test"
	@echo "make test-python   build and test the Python package"
	@echo "make test-oiio     build the OpenImageIO plugin and run OpenImageIO's programs on raw images"
	@echo "make test-packages install the packages into a clean root, and run there what they bring (as root)"
	@echo "make farm-test     run frames on a Slurm cluster of two nodes on this machine, and break it (as root)"
	@echo "make bench         measure against the plain library calls; tables go to build/bench/"
	@echo "make sanitize      run the tests under the sanitizers"
	@echo "make fuzz          run the fuzz targets, FUZZ_SECONDS=7200 each"
	@echo "make format        lay the code out; make check-format only looks"
	@echo "make setup         install the packages of all of these"
	@echo "make clean         remove build/ and out/"

setup:
	@scripts/setup.sh all

release = scripts/configure.sh build/release -DCMAKE_BUILD_TYPE=Release -DRAWIMAGE_BUILD_TESTS=OFF

demo:
	@scripts/setup.sh demo
	$(release) -DRAWIMAGE_BUILD_BENCHMARKS=OFF
	cmake --build build/release -j $(JOBS) --target render_frame rimg
	scripts/demo.sh build/release out

install:
	@scripts/setup.sh demo
	$(release) -DRAWIMAGE_BUILD_BENCHMARKS=OFF
	cmake --build build/release -j $(JOBS) --target rawimage rimg
	@DESTDIR="$(DESTDIR)" scripts/install.sh build/release "$(PREFIX)"

package:
	@scripts/setup.sh package
	scripts/package.sh build/package $(JOBS)

test-packages:
	@scripts/setup.sh packages
	scripts/test_packages.sh build/package $(JOBS)

docs:
	@scripts/setup.sh docs
	$(release) -DRAWIMAGE_BUILD_BENCHMARKS=OFF
	cmake --build build/release --target docs

# The flags keep the asserts, which a release leaves out.
test:
	@scripts/setup.sh test
	@$(MAKE) --no-print-directory build-test
	ctest --test-dir build/test --output-on-failure --no-tests=error -j 2

TARGETS ?= all
CODECS ?= AUTO
PYTHON ?= OFF
OIIO ?= OFF
build-test:
	scripts/configure.sh build/test -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	    -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O2 -g1" -DRAWIMAGE_QUICK_PROGRAMS=ON \
	    -DRAWIMAGE_LIBDEFLATE=$(CODECS) -DRAWIMAGE_ISAL=$(CODECS) \
	    -DRAWIMAGE_BUILD_TESTS=ON -DRAWIMAGE_WERROR=ON \
	    -DRAWIMAGE_BUILD_PYTHON=$(PYTHON) -DRAWIMAGE_BUILD_OIIO=$(OIIO)
	cmake --build build/test -j $(JOBS) --target $(TARGETS)

test-python:
	@scripts/setup.sh python
	@$(MAKE) --no-print-directory build-test TARGETS="python_rawimage rimg" PYTHON=ON
	scripts/python_test.sh build/test

test-oiio:
	@scripts/setup.sh oiio
	@$(MAKE) --no-print-directory build-test TARGETS="rimg render_frame rimg_imageio oiio_check" OIIO=ON
	scripts/oiio_test.sh build/test

farm-test:
	JOBS=$(JOBS) scripts/farm_test.sh

bench:
	@scripts/setup.sh bench
	$(release) -DRAWIMAGE_BUILD_BENCHMARKS=ON
	cmake --build build/release -j $(JOBS) --target render_frame rimg bench_rawimage bench_growth
	scripts/bench.sh build/release build/bench-data build/bench

sanitize:
	JOBS=$(JOBS) scripts/sanitize.sh address
	JOBS=$(JOBS) scripts/sanitize.sh thread

FUZZ_SECONDS ?= 7200
fuzz:
	JOBS=$(JOBS) scripts/fuzz.sh $(FUZZ_SECONDS)

format:
	@scripts/setup.sh format
	scripts/format.sh

check-format:
	@scripts/setup.sh format
	scripts/format.sh --check

clean:
	rm -rf build out
