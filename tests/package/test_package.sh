#!/usr/bin/env bash
# test_package.sh BUILD_DIR: builds the .deb with CPack into a temporary
# folder, unpacks it into a temporary root (as dpkg would install it, without
# touching the machine) and runs dcp30ctl --version and dcp30-sim --version
# from there. The plug-in must be found in the unpacked root, not the build.
set -euo pipefail
build=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "test_package: $*" >&2; exit 1; }

cpack --config "$build/CPackConfig.cmake" -B "$work/out" >"$work/cpack.log" 2>&1 ||
    { cat "$work/cpack.log" >&2; fail "cpack failed"; }
deb=$(ls "$work"/out/*.deb)
dpkg-deb -x "$deb" "$work/root"
contents=$(dpkg-deb -c "$deb")
for f in usr/bin/dcp30ctl usr/bin/dcp30-sim usr/lib/dcp30/libdcp30.so usr/lib/dcp30/libsdc35.so \
         usr/share/man/man1/dcp30ctl.1.gz usr/share/man/man1/dcp30-sim.1.gz \
         usr/share/bash-completion/completions/dcp30ctl; do
    grep -q " \./$f\$" <<<"$contents" || fail "$f is not in $(basename "$deb")"
done
zcat "$work/root/usr/share/man/man1/dcp30ctl.1.gz" | grep -q '^\.SH' || fail "dcp30ctl.1 is no man page"

version=$(env -u LD_LIBRARY_PATH "$work/root/usr/bin/dcp30ctl" --version) ||
    fail "dcp30ctl --version failed: $version"
expected="plug-in $work/root/usr/lib/dcp30/libdcp30.so: DCP30 driver by Yamatake, version"
grep -qF "$expected" <<<"$version" || fail "dcp30ctl --version said: $version"
sim=$("$work/root/usr/bin/dcp30-sim" --version) || fail "dcp30-sim --version failed"
[ "$sim" = "$(head -n1 <<<"$version" | sed 's/^dcp30ctl/dcp30-sim/')" ] ||
    fail "dcp30-sim --version said: $sim"
echo "test_package: $(basename "$deb") unpacked and run: ok"
