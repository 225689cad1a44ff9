# The common tasks in one word each. CMakePresets.json and the scripts do the work.

PREFIX ?= /usr/local
DESTDIR ?=
BUILD_TYPE ?=
SYSCONFDIR ?= $(if $(filter /usr,$(PREFIX)),/etc,etc)

CONFIGURE = cmake --preset default $(if $(BUILD_TYPE),-DCMAKE_BUILD_TYPE=$(BUILD_TYPE))

.DEFAULT_GOAL := help
.PHONY: help setup build demo test bench soak vm-test fuzz lint asan clang coverage tidy format format-check install clean distclean

help:  ## show this list
	@echo "make <target>; demo and test need nothing but Debian 12 or 13, the network and root"
	@awk -F ':.*## ' '/^[a-z-]+:.*## / { printf "  %-13s %s\n", $$1, $$2 }' Makefile

setup:  ## install what a build needs
	@scripts/setup build

build: setup  ## build everything into build/
	@$(CONFIGURE)
	@cmake --build --preset default

demo:  ## set up, build and show the relay at work
	@scripts/setup demo
	@$(CONFIGURE)
	@cmake --build --preset default
	@scripts/demo

test:  ## set up, build, run all tests and checks
	@scripts/test

bench:  ## run the benchmarks, next to other relays under the same load
	@scripts/setup test
	@$(CONFIGURE)
	@cmake --build --preset default
	@scripts/bench

soak:  ## exchanges at a high rate for two minutes, then moderate load for ten; nothing is lost, memory stays flat
	@scripts/setup test
	@$(CONFIGURE)
	@cmake --build --preset default
	@scripts/relay-soak

vm-test:  ## the tests in a virtual machine at length: ten cuts of power, 2,000 VLAN devices
	@scripts/setup test
	@$(CONFIGURE)
	@cmake --build --preset default
	@scripts/vm-test

fuzz:  ## fuzz the packet rules and the wire protocol, VX_FUZZ_SECONDS (60) each
	@scripts/fuzz

lint:  ## the checks that need no build: includes and sizes, format, Python, shell
	@scripts/test layers format python shell

asan:  ## build and test with address and undefined-behaviour sanitizers
	@scripts/test asan

clang:  ## build programs, fuzz targets and benchmarks by Clang
	@scripts/test clang

tidy:  ## run clang-tidy over our sources
	@scripts/test tidy

format-check:  ## report sources that clang-format would change, and lines that are too long
	@scripts/test format

format:  ## let clang-format change the sources
	@scripts/check-format --fix

coverage:  ## build and test with coverage counters, then print the lines covered
	@scripts/test coverage

install: setup  ## build and install below PREFIX (/usr/local), staged below DESTDIR
	@$(CONFIGURE) -DCMAKE_INSTALL_PREFIX="$(PREFIX)" -DCMAKE_INSTALL_SYSCONFDIR="$(SYSCONFDIR)"
	@cmake --build --preset default
	@DESTDIR="$(DESTDIR)" cmake --install build

clean:  ## remove what was built
	@rm -rf build build-*

distclean: clean  ## remove the libraries that set-up built as well
	@rm -rf .deps
