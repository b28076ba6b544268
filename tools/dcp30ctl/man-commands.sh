#!/usr/bin/env bash
# man-commands.sh DCP30CTL OUT: a help2man include file with a COMMANDS
# section holding every command's own help, as `dcp30ctl help CMD` prints it.
set -euo pipefail
tool=$1
out=$2
{
    echo "[COMMANDS]"
    for command in $("$tool" --help | sed -n 's/^  \([a-z][a-z]*\)  .*/\1/p'); do
        echo ".SS $command"
        echo ".nf"
        # Backslashes are escapes in roff; a line may not start with . or '.
        "$tool" help "$command" | sed -e 's/\\/\\e/g' -e "s/^\\([.']\\)/\\\\\\&\\1/"
        echo ".fi"
    done
} >"$out"
