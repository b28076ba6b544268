#!/usr/bin/env bash
# ship-plugin.sh PLUGIN DIST: a stripped copy of the armhf plug-in in DIST,
# with what a panel must provide for it (its needed libraries) and what the
# runtime finds in it (its exports), and the figures
# plugin_armhf_stripped_kb and plugin_exported_symbols.
set -euo pipefail
PLUGIN=$1
DIST=$2
TOOLS=arm-linux-gnueabihf
mkdir -p "$DIST"
SHIPPED=$DIST/$(basename "$PLUGIN")
$TOOLS-strip --strip-unneeded -o "$SHIPPED" "$PLUGIN"

bytes=$(stat -c %s "$SHIPPED")
needed=$($TOOLS-readelf -d "$SHIPPED" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p')
exports=$($TOOLS-nm -D --defined-only "$SHIPPED" | awk '{print $NF}')
echo "== $SHIPPED: $bytes bytes, $($TOOLS-readelf -h "$SHIPPED" | sed -n 's/^ *Flags: *//p')"
echo "needs:   $(tr '\n' ' ' <<<"$needed")"
echo "exports: $(tr '\n' ' ' <<<"$exports")"
if $TOOLS-readelf -d "$SHIPPED" | grep -Eq '\((RUNPATH|RPATH)\)'; then
    echo "ship-plugin: $SHIPPED carries a run path" >&2
    exit 1
fi
echo "figure plugin_armhf_stripped_kb $(((bytes + 1023) / 1024))"
echo "figure plugin_exported_symbols $(echo "$exports" | grep -c .)"
