#!/usr/bin/env bash
# Runs the plant under load and looks at what its servers hold on to: memory and descriptors have to be as at the start
# when the time is over.
# usage: soak.sh BIN [SECONDS], the folder of the programs and how long (600)
set -euo pipefail
bin=$(realpath "$1")
seconds=${2:-600}
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

memory_of() { awk '/^VmRSS/ { print $2 }' "/proc/${server[$1]}/status"; } # KiB
descriptors_of() { find "/proc/${server[$1]}/fd" -mindepth 1 | wc -l; }

# A small table, so that it is trimmed and split all the time.
start main --every 2 --keep-house-every 1000 --max-records 60000 --max-file-size 1000000
start standby --standby "localhost:$(port_of main)"
wait_for 20 says main 1 'The standby has all records'

end=$((SECONDS + seconds))
for _ in 1 2 3 4 5 6; do
    client maria 'control room' --limit 0 --timeout 60 follow --for "$seconds" >/dev/null 2>>"$folder/followers.log" &
done
# Clients that come and go: readers, wrong passwords, and connections that say nothing or nonsense.
(
    while ((SECONDS < end)); do
        client tom visitor --limit 0 --timeout 60 read --last 3600 >>"$folder/reads.txt" 2>>"$folder/readers.log" || true
        client tom guess alarms >/dev/null 2>&1 || true
        sleep 0.2
    done
) &
(
    while ((SECONDS < end)); do
        for _ in {1..20}; do
            (exec 3<>"/dev/tcp/127.0.0.1/$(port_of main)" && sleep 3) 2>/dev/null &
        done
        (exec 3<>"/dev/tcp/127.0.0.1/$(port_of main)" && echo nonsense >&3 && sleep 1) 2>/dev/null &
        wait
    done
) &

printf '%8s %14s %14s %14s %14s %10s\n' seconds 'main KiB' 'descriptors' 'standby KiB' 'descriptors' reads
warm=$((SECONDS + seconds / 5))
declare -A first
first=()
start_time=$SECONDS
while ((SECONDS < end - 2)); do
    sleep $((seconds < 100 ? 2 : 10))
    line=("$(memory_of main)" "$(descriptors_of main)" "$(memory_of standby)" "$(descriptors_of standby)")
    printf '%8d %14d %14d %14d %14d %10d\n' $((SECONDS - start_time)) "${line[@]}" "$(wc -l <"$folder/reads.txt")"
    if ((SECONDS >= warm)) && [[ ${#first[@]} == 0 ]]; then
        first=([main]=${line[0]} [standby]=${line[2]})
    fi
done
sleep 6 # for the last clients to be gone
status=0
for name in main standby; do
    grown=$(($(memory_of "$name") - ${first[$name]}))
    descriptors=$(descriptors_of "$name")
    printf '%s: %d KiB more than when it was warm, %d descriptors\n' "$name" "$grown" "$descriptors"
    ((grown < 8192 && descriptors < 40)) || status=1
done
printf 'reads: %d, with gaps: %d\n' "$(wc -l <"$folder/reads.txt")" "$(grep -vc 'gaps 0,' "$folder/reads.txt" || true)"
! grep -q -v 'gaps 0,' "$folder/reads.txt" || status=1
! grep ERROR "$folder"/*.log || status=1
stop main
stop standby
"$bin/qv" history compare "$folder/main" "$folder/standby" --layout time:i64,sequence:u64,:b48 || status=1
exit $status
