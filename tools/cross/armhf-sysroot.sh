#!/usr/bin/env bash
# armhf-sysroot.sh SYSROOT APTDIR: Debian's armhf Qt 5 libraries, headers and
# their dependency closure, unpacked into SYSROOT.
#
# The host's dpkg never hears of armhf: a private apt configuration in APTDIR
# (armhf only, an empty dpkg status, the host's Debian archives) downloads the
# packages and dpkg-deb -x unpacks them. Adding armhf to the host instead makes
# apt plan removals and downgrades wherever the host's libraries are at other
# versions than the armhf ones. The security suite is left out: its armhf
# index has failed its size check on mirrors here, and a test sysroot needs a
# consistent set more than the newest one.
#
# Re-running is cheap: a stamp holding the package list skips the work.
set -euo pipefail
SYSROOT=$1
APTDIR=$2
PACKAGES=(qtbase5-dev libqt5serialport5-dev libqt5sql5-sqlite libqt5svg5-dev libqt5test5)
STAMP=$SYSROOT/.packages

if [ -f "$STAMP" ] && [ "$(cat "$STAMP")" = "${PACKAGES[*]}" ]; then
    exit 0
fi

# shellcheck source=/dev/null
. /etc/os-release
mkdir -p "$APTDIR/lists/partial" "$APTDIR/archives/partial" "$APTDIR/etc/preferences.d"
: >"$APTDIR/status"

keyring=/usr/share/keyrings/debian-archive-keyring.gpg
signed=""
[ -f "$keyring" ] && signed="[signed-by=$keyring] "
# The host's own Debian archives (whatever mirror it uses), release and updates.
# shellcheck disable=SC2016 # apt's own $(FIELD) placeholders
apt-get indextargets --format '$(REPO_URI) $(RELEASE) $(COMPONENT)' 'Identifier: Packages' |
    awk -v r="$VERSION_CODENAME" '$2 == r || $2 == r "-updates"' | sort -u |
    while read -r uri suite component; do
        echo "deb $signed$uri $suite $component"
    done >"$APTDIR/etc/sources.list"
if [ ! -s "$APTDIR/etc/sources.list" ]; then
    echo "armhf-sysroot: the host's apt sources name no $VERSION_CODENAME archive" >&2
    exit 1
fi

cat >"$APTDIR/apt.conf" <<CONF
APT::Architecture "armhf";
APT::Architectures { "armhf"; };
APT::Install-Recommends "false";
Dir::State "$APTDIR";
Dir::State::Lists "$APTDIR/lists";
Dir::State::status "$APTDIR/status";
Dir::Cache "$APTDIR";
Dir::Cache::Archives "$APTDIR/archives";
Dir::Etc::SourceList "$APTDIR/etc/sources.list";
Dir::Etc::SourceParts "$APTDIR/etc/sources.list.d";
Dir::Etc::Preferences "$APTDIR/etc/preferences";
Dir::Etc::PreferencesParts "$APTDIR/etc/preferences.d";
Debug::NoLocking "true";
CONF
export APT_CONFIG=$APTDIR/apt.conf

echo "armhf-sysroot: resolving ${PACKAGES[*]} for armhf"
apt-get update -qq
apt-get install --download-only -y -qq "${PACKAGES[@]}" >/dev/null

rm -rf "$SYSROOT"
mkdir -p "$SYSROOT"
count=0
for deb in "$APTDIR"/archives/*.deb; do
    dpkg-deb -x "$deb" "$SYSROOT"
    count=$((count + 1))
done
echo "armhf-sysroot: $count packages unpacked into $SYSROOT ($(du -sh "$SYSROOT" | cut -f1))"
echo "${PACKAGES[*]}" >"$STAMP"
