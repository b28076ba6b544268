#!/usr/bin/env bash
# One entry point for a developer machine and CI: installs what is missing,
# configures, builds, and runs the demo, the tests, the benchmarks, the
# sanitizer suite or the fuzzers. The Makefile targets call this script.
set -euo pipefail
cd "$(dirname "$0")"
ROOT=$PWD
JOBS=${JOBS:-2}

# Debian packages the project needs to build, test, benchmark and fuzz.
PACKAGES=(build-essential cmake ccache pkg-config python3 fonts-dejavu-core
          qtbase5-dev qtbase5-dev-tools libqt5sql5-sqlite
          libqt5serialport5-dev libqt5svg5-dev
          clang-14 libclang-rt-14-dev
          help2man python3-pandas)

# What `cross-test` adds: Debian's cross compiler for 32-bit ARM hard-float
# and user-mode qemu to run its programs.
CROSS_PACKAGES=(g++-arm-linux-gnueabihf qemu-user)

install_missing() {   # install_missing [more packages...]
    local missing=()
    for p in "${PACKAGES[@]}" "$@"; do
        dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
    done
    [ ${#missing[@]} -eq 0 ] && return 0
    echo "Installing missing packages: ${missing[*]}"
    local sudo=""
    [ "$(id -u)" -ne 0 ] && sudo="sudo"
    $sudo env DEBIAN_FRONTEND=noninteractive apt-get update -qq
    $sudo env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}"
}

launcher_args() {
    command -v ccache >/dev/null && echo "-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache" || true
}

# configure DIR [extra cmake args...]
configure() {
    local dir=$1; shift
    if [ ! -f "$dir/CMakeCache.txt" ]; then
        # shellcheck disable=SC2046
        cmake -S "$ROOT" -B "$dir" $(launcher_args) "$@"
    fi
}

build_dir() {   # build_dir DIR [extra cmake args...]
    local dir=$1; shift
    configure "$dir" "$@"
    cmake --build "$dir" -j "$JOBS"
}

run_ctest() {   # run_ctest DIR [ctest args...]
    local dir=$1; shift
    ctest --test-dir "$dir" --output-on-failure -j "$JOBS" --timeout 600 "$@"
}

CROSS_DIR=$ROOT/build-armhf

# cross_build: the armhf sysroot, the preload shim and the whole project
# for armhf in build-armhf/ (Release at -O2, the optimisation the host suites
# run at; no benchmarks). Sets CROSS_BUILD_S.
cross_build() {
    install_missing "${CROSS_PACKAGES[@]}"
    local t0=$SECONDS
    bash "$ROOT/tools/cross/armhf-sysroot.sh" "$CROSS_DIR/sysroot" "$CROSS_DIR/apt"
    local shim=$CROSS_DIR/pidfd-probe-shim.so
    if [ ! -f "$shim" ] || [ "$ROOT/tools/cross/pidfd-probe-shim.c" -nt "$shim" ]; then
        arm-linux-gnueabihf-gcc -O2 -Wall -Wextra -Werror -shared -fPIC -o "$shim" \
            "$ROOT/tools/cross/pidfd-probe-shim.c" -ldl
    fi
    echo "armhf sysroot and preload shim ready in $((SECONDS - t0)) s"
    t0=$SECONDS
    build_dir "$CROSS_DIR" -DCMAKE_TOOLCHAIN_FILE="$ROOT/cmake/armhf-toolchain.cmake" \
        -DDCP_ARMHF_SYSROOT="$CROSS_DIR/sysroot" -DDCP_ARMHF_PRELOAD="$shim" \
        -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_FLAGS_RELEASE="-O2 -DNDEBUG" \
        -DCMAKE_C_FLAGS_RELEASE="-O2 -DNDEBUG"
    CROSS_BUILD_S=$((SECONDS - t0))
}

# The command prefix that runs an armhf program here, as the build knows it.
cross_emulator() {
    sed -n 's/^CMAKE_CROSSCOMPILING_EMULATOR:STRING=//p' "$CROSS_DIR/CMakeCache.txt" | tr ';' ' '
}

# cross-test: the whole suite built for armhf and run under qemu-user; then
# the stripped plug-in in build-armhf/dist/ with its size, needs and exports.
cross_test() {
    cross_build
    local t0=$SECONDS status=0
    run_ctest "$CROSS_DIR" "$@" || status=$?
    local test_s=$((SECONDS - t0))
    bash "$ROOT/tools/cross/ship-plugin.sh" "$CROSS_DIR/lib/libdcp30.so" "$CROSS_DIR/dist"
    echo "figure cross_build_s $CROSS_BUILD_S"
    echo "figure cross_test_s $test_s"
    return $status
}

cmd=${1:-test}; shift || true
case "$cmd" in
    deps)
        install_missing ;;
    build)
        install_missing
        build_dir build -DCMAKE_BUILD_TYPE=RelWithDebInfo ;;
    test)
        install_missing
        build_dir build -DCMAKE_BUILD_TYPE=RelWithDebInfo
        run_ctest build "$@" ;;
    sanitize)
        install_missing
        build_dir build-asan -DCMAKE_BUILD_TYPE=Debug -DDCP_SANITIZE=ON
        ASAN_OPTIONS=detect_leaks=1:abort_on_error=1:strict_string_checks=1 \
        LSAN_OPTIONS=suppressions=$ROOT/tests/lsan.supp:print_suppressions=0 \
        UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
            run_ctest build-asan "$@" ;;
    tsan)
        install_missing
        build_dir build-tsan -DCMAKE_BUILD_TYPE=Debug -DDCP_TSAN=ON
        TSAN_OPTIONS="suppressions=$ROOT/tests/tsan.supp:halt_on_error=1:second_deadlock_stack=1:ignore_noninstrumented_modules=1" \
            run_ctest build-tsan "$@" ;;
    package)
        # The Debian package of the host tools: build/dcp30-tools_<version>_<arch>.deb.
        install_missing
        build_dir build -DCMAKE_BUILD_TYPE=RelWithDebInfo
        cmake --build build --target package ;;
    bench)
        install_missing
        build_dir build -DCMAKE_BUILD_TYPE=RelWithDebInfo
        for b in "$ROOT"/build/bench/*; do
            [ -x "$b" ] && [ -f "$b" ] || continue
            echo "== $(basename "$b")"
            "$b"
        done ;;
    fuzz)
        # fuzz [SECONDS]: each fuzz target runs for SECONDS (default 60).
        install_missing
        secs=${1:-60}
        build_dir build-fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo -DDCP_FUZZ=ON \
            -DCMAKE_C_COMPILER=clang-14 -DCMAKE_CXX_COMPILER=clang++-14
        found=0
        for f in "$ROOT"/build-fuzz/fuzz/fuzz_*; do
            [ -x "$f" ] && [ -f "$f" ] || continue
            found=1
            name=$(basename "$f")
            corpus="$ROOT/build-fuzz/corpus/$name"
            mkdir -p "$corpus" "$ROOT/build-fuzz/artifacts"
            seeds="$ROOT/fuzz/seeds/${name#fuzz_}"
            [ -d "$seeds" ] || seeds=""
            echo "== $name for ${secs}s"
            QT_QPA_PLATFORM=offscreen "$f" -max_total_time="$secs" -rss_limit_mb=2048 \
                -timeout=10 -print_final_stats=1 \
                -artifact_prefix="$ROOT/build-fuzz/artifacts/$name-" "$corpus" $seeds 2>&1 | tail -n 25
            test "${PIPESTATUS[0]}" -eq 0
        done
        [ $found -eq 1 ] || echo "no fuzz targets built yet" ;;
    cross-test)
        cross_test "$@" ;;
    cross-demo)
        # The demo with the armhf programs under qemu-user.
        cross_build
        DCP_BUILD_DIR=$CROSS_DIR DCP_EMULATOR=$(cross_emulator) exec bash tools/demo.sh "$@" ;;
    demo)
        install_missing
        build_dir build -DCMAKE_BUILD_TYPE=RelWithDebInfo
        if [ ! -f tools/demo.sh ]; then
            echo "The demo needs the host tool and the simulator, which are not built yet." >&2
            exit 2
        fi
        exec bash tools/demo.sh "$@" ;;
    *)
        echo "usage: $0 {deps|build|test|sanitize|tsan|bench|fuzz [SECONDS]|demo|package|cross-test|cross-demo}" >&2
        exit 2 ;;
esac
