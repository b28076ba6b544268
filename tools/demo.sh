#!/usr/bin/env bash
# The demo: a simulated DCP30 controller on a pseudo-terminal, and the dcp30
# plug-in hosted by dcp30ctl as the panel runtime hosts it, at the real pace
# (9600 baud, the driver's fixed waits). It reads sample program 3 (30
# segments) into a demo USB directory, shows it, writes it back into program
# 12, reads that back, compares the two files and draws the program.
#
# Expects a build in build/ (or $DCP_BUILD_DIR); `./dev.sh demo` makes it.
# DCP_EMULATOR, when set, is the command that runs the built programs here
# (`./dev.sh cross-demo`: qemu-user for the armhf build).
# Leaves no process behind: the simulator reads its stdin from this script
# and ends when the script ends, however it ends.
set -euo pipefail
cd "$(dirname "$0")/.."
ROOT=$PWD
BUILD=${DCP_BUILD_DIR:-$ROOT/build}
BIN=$BUILD/bin
CTL=$BIN/dcp30ctl
DEMO=$BUILD/demo
USB=$DEMO/usb
BACK=$DEMO/readback
SOURCE=3
TARGET=12
SEGMENTS=30
read -r -a EMULATOR <<<"${DCP_EMULATOR:-}"
ctl() { "${EMULATOR[@]}" "$CTL" "$@"; }

for f in "$CTL" "$BIN/dcp30-sim" "$BUILD/lib/libdcp30.so" "$BUILD/lib/libsdc35.so"; do
    [ -e "$f" ] || { echo "demo: $f is missing; build first (./dev.sh build)" >&2; exit 2; }
done

# dcp30ctl paints with QtGui on the offscreen platform, which wants a
# private runtime directory.
export QT_QPA_PLATFORM=offscreen
export XDG_RUNTIME_DIR=${XDG_RUNTIME_DIR:-$DEMO/runtime}
unset DCP30_WAIT_PERCENT # the real pace

rm -rf "$DEMO"
mkdir -p "$USB" "$BACK" "$XDG_RUNTIME_DIR"
chmod 700 "$XDG_RUNTIME_DIR"

step() { printf '\n== %s\n' "$*"; }
has_command() { ctl --help 2>/dev/null | grep -q "^  $1 "; }

SIM_PID=
stop_simulator() {
    exec 3>&- 2>/dev/null || true # end of stdin: the simulator saves and exits
    if [ -n "$SIM_PID" ]; then
        for _ in $(seq 50); do kill -0 "$SIM_PID" 2>/dev/null || break; sleep 0.1; done
        kill "$SIM_PID" 2>/dev/null || true
        wait "$SIM_PID" 2>/dev/null || true
        SIM_PID=
    fi
}
trap stop_simulator EXIT
trap 'exit 130' INT TERM

step "Starting the simulated controller (dcp30-sim, 9600 baud)"
mkfifo "$DEMO/sim.stdin"
"${EMULATOR[@]}" "$BIN/dcp30-sim" --exit-on-stdin-eof --programs "$DEMO/controller.txt" --save-on-exit \
    <"$DEMO/sim.stdin" >"$DEMO/sim.out" 2>"$DEMO/sim.log" &
SIM_PID=$!
exec 3>"$DEMO/sim.stdin"
PORT=
for _ in $(seq 100); do
    PORT=$(sed -n 's/^dcp30-sim: listening on //p' "$DEMO/sim.out")
    [ -n "$PORT" ] && break
    kill -0 "$SIM_PID" 2>/dev/null || break
    sleep 0.05
done
if [ -z "$PORT" ]; then
    echo "demo: the simulator did not start:" >&2
    cat "$DEMO/sim.log" >&2
    exit 1
fi
echo "controller on $PORT"

START=$(date +%s)
step "Reading program $SOURCE ($SEGMENTS segments) into $USB"
ctl read --port "$PORT" --program "$SOURCE" --segments "$SEGMENTS" --usb "$USB"

step "Program $SOURCE as the panel stores it"
if has_command show; then
    ctl show "$USB/PROG_$SOURCE.txt"
else
    iconv -f UTF-16 -t UTF-8 "$USB/PROG_$SOURCE.txt" | expand -t 8
fi

step "Writing it into program $TARGET"
cp "$USB/PROG_$SOURCE.txt" "$USB/PROG_$TARGET.txt"
ctl write --port "$PORT" --program "$TARGET" --segments "$SEGMENTS" --usb "$USB"

step "Reading program $TARGET back into $BACK"
ctl read --port "$PORT" --program "$TARGET" --segments "$SEGMENTS" --usb "$BACK"

step "Comparing what was read with what was written"
if has_command compare; then
    ctl compare "$USB/PROG_$SOURCE.txt" "$BACK/PROG_$TARGET.txt"
else
    cmp "$USB/PROG_$SOURCE.txt" "$BACK/PROG_$TARGET.txt" && echo "the files are byte for byte equal"
fi

PICTURE=
if has_command plot; then
    step "Drawing program $SOURCE"
    PICTURE=$DEMO/PROG_$SOURCE.png
    ctl plot "$USB/PROG_$SOURCE.txt" -o "$PICTURE"
fi
END=$(date +%s)
stop_simulator

step "Done in $((END - START)) s. The files:"
file_line() { printf '  %-55s %s\n' "$1" "$2"; }
file_line "$USB/PROG_$SOURCE.txt" "program $SOURCE as read (UTF-16, tab-delimited)"
file_line "$USB/PROG_$TARGET.txt" "the same file, written into program $TARGET"
file_line "$BACK/PROG_$TARGET.txt" "program $TARGET read back"
[ -z "$PICTURE" ] || file_line "$PICTURE" "the program drawn"
file_line "$DEMO/controller.txt" "the simulated controller's programs after the demo"
file_line "$DEMO/sim.log" "the simulator's log"
