# The one entry point: every target installs what is missing (Debian
# packages), configures and builds through dev.sh.
.PHONY: all build test demo bench sanitize tsan fuzz fuzz-smoke deps package clean cross-test cross-demo

all: build

deps:
	./dev.sh deps
build:
	./dev.sh build
test:
	./dev.sh test
demo:
	./dev.sh demo
bench:
	./dev.sh bench
sanitize:
	./dev.sh sanitize
tsan:
	./dev.sh tsan
package:
	./dev.sh package
# FUZZ_SECONDS per target; CI runs the 60-second smoke.
FUZZ_SECONDS ?= 60
fuzz:
	./dev.sh fuzz $(FUZZ_SECONDS)
# The whole suite built for the panels' 32-bit ARM and run under qemu-user.
cross-test:
	./dev.sh cross-test
cross-demo:
	./dev.sh cross-demo
clean:
	rm -rf build build-asan build-fuzz build-armhf
