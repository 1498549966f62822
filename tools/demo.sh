#!/usr/bin/env bash
# Shows the library at its main job: records this machine for a few seconds and reads the recording back.
# usage: demo.sh QV, where QV is the qv program
set -euo pipefail

qv=$1
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

# show WHAT THE READER SEES, then the command that shows it
show() {
    printf '\n== %s\n' "$1"
    shift
    printf '$ qv %s\n' "${*//$folder/DIR}"
    "$qv" "$@"
}

show "Five seconds of this machine's life go into a historic table, flushed to disk every second." \
    history record "$folder" --every 200ms --for 5s
show "The table is plain files. Each one is named after the span of time that it holds, from start to end." \
    history files "$folder"
show "Names, sizes and counts agree: nothing is missing, torn or overlapping." \
    history validate "$folder"
show "Some values of the last second, in the order in which they were recorded." \
    history read "$folder" --last 1s --limit 12
show "What each second was like: how many values, the smallest, the mean and the largest." \
    history stats "$folder" --every 1s --tag cpu.all
show "And the trend of the processor load as a picture." \
    history plot "$folder" --tag cpu.all
printf '\nThat was the library. The same commands work on any folder; qv history --help lists them.\n'
