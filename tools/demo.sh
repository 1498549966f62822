#!/usr/bin/env bash
# Shows the library at its main job: records this machine for a few seconds, keeps a standby's copy, and reads the
# recording back.
# usage: demo.sh QV, where QV is the qv program
set -euo pipefail

qv=$1
folder=$(mktemp -d)
main=$folder/main
standby=$folder/standby
socket=unix:$folder/standby.socket
mkdir "$main" "$standby"
server=
finish() {
    [[ -z $server ]] || kill "$server" 2>/dev/null || true
    wait
    rm -rf "$folder"
}
trap finish EXIT

# show WHAT THE READER SEES, then the command that shows it
show() {
    printf '\n== %s\n' "$1"
    shift
    printf '$ qv %s\n' "${*//$folder/DIR}"
    "$qv" "$@"
}

printf '== A standby waits for a main that wants its records kept twice.\n'
printf '$ qv history standby DIR/standby --listen unix:DIR/standby.socket &\n'
"$qv" history standby "$standby" --listen "$socket" --quiet &
server=$!

show "Five seconds of this machine's life go into a historic table, to disk every second and to the standby at once." \
    history record "$main" --every 200ms --for 5s --replicate-to "$socket"
show "The table is plain files. Each one is named after the span of time that it holds, from start to end." \
    history files "$main"
show "Names, sizes and counts agree: nothing is missing, torn or overlapping." \
    history validate "$main"
show "Some values of the last second, in the order in which they were recorded, at this machine's local time." \
    history read "$main" --last 1s --limit 12 --zone local --time-format 'EEE d MMM yyyy HH:mm:ss.SSS XXX'
show "What each second was like: how many values, the smallest, the mean and the largest." \
    history stats "$main" --every 1s --tag cpu.all
show "And the trend of the processor load as a picture." \
    history plot "$main" --tag cpu.all
show "What the standby may still lack is sent, and no more than that." \
    history replicate "$main" --to "$socket" --once
kill "$server"
wait "$server" || true
server=
show "Main and standby hold the same records, compared byte by byte." \
    history compare "$main" "$standby"
printf '\nThat was the library. The same commands work on any folder; qv history --help lists them.\n'
