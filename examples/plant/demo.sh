#!/usr/bin/env bash
# Shows the library at work in half a minute: a server that records this machine, its standby, and clients. Both servers
# are killed on the way, and what they have recorded is compared at the end.
# usage: demo.sh BIN, the folder of the programs
set -euo pipefail
bin=$(realpath "$1")
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

layout=time:i64,sequence:u64,cpu:f64,load:f64,memory:f64,processes:f64,switches:f64,received:f64
step() { printf '\n== %s\n' "$*"; }
# number TEXT: what stands behind the text in the last line of a client's output
number() { sed -n "\$s|.*$1 *\([0-9.]*\).*|\1|p"; }

step "A main records this machine 500 times a second. It has made its certificates, and it listens with TLS."
start main --every 2
step "A standby logs on to it with a certificate of the same authority, and gets every record."
start standby --standby "localhost:$(port_of main)"
wait_for 20 says main 1 'The standby has all records'

step "Maria follows live values from now on, whatever happens."
client maria 'control room' --timeout 20 --limit 0 follow --for 25 >"$folder/follow.txt" 2>&1 &
follower=$!
step "Tom looks at the last second. He sees UTC; Maria would see the clocks of Berlin."
client tom visitor --limit 3 read --last 1
sleep 3

step "Who has the wrong password, or no rights, is told so."
client tom guess alarms 2>&1 && fail "A wrong password was taken"
client eve nobody alarms 2>&1 && fail "Somebody without rights was let in"
step "An alarm is a JSONata expression in plant.json. Tom may look at it; Maria may acknowledge it."
wait_for 25 eval "client tom visitor alarms | grep 'Service due.*Active'"
client tom visitor acknowledge 'Service due' 2>&1 && fail "A visitor acknowledged an alarm"
client maria 'control room' acknowledge 'Service due' | grep 'Service due'

step "The standby is killed (SIGKILL), and back two seconds later. It is sent what it lacks."
slay standby
sleep 2
start standby --standby "localhost:$(port_of main)"
wait_for 20 says main 2 'The standby has all records'

step "The main is killed while it records. Its standby takes the reads over."
before=$(client tom visitor --limit 0 read --last 3600)
slay main
killed=$SECONDS
taken=$(client tom visitor --limit 0 --timeout 20 read --last 3600)
printf '%s\n%s\nReading went on after %d seconds.\n' "$before" "$taken" $((SECONDS - killed))
(($(number ' to ' <<<"$taken") >= $(number ' to ' <<<"$before"))) || fail "The standby lacks records"
sleep 1

step "The main is back: it takes charge again, and goes on behind its last record."
start main --every 2
wait_for 20 says main 3 'The standby has all records'
wait "$follower" || fail "The live values broke off"
tail -n 1 "$folder/follow.txt"
seen=$(number 'of sequence' <"$folder/follow.txt")
client maria 'control room' --limit 2 read --last 3600 --rtf "$folder/report.rtf" | tee "$folder/read.txt"
printf 'The same as a document for office programs: %s\n' "$(head -c 36 "$folder/report.rtf" | tr '\n' ' ')..."

step "Both stop (SIGTERM). The files on their disks:"
stop main
stop standby
"$bin/qv" history files "$folder/main" --layout "$layout"
"$bin/qv" history validate "$folder/main" --layout "$layout"
"$bin/qv" history compare "$folder/main" "$folder/standby" --layout "$layout" | tee "$folder/compared.txt"

recorded=$(number ' to ' <"$folder/read.txt")
((seen <= recorded)) || fail "A value that was seen is not in the table"
step "What was shown, in $SECONDS seconds"
printf '   samples on both disks           %s\n' "$(sed 's/Equal: \(.*\) records/\1/' "$folder/compared.txt")"
printf '   records read back over TLS      %s, at %s MB/s\n' "$(number 'main:' <"$folder/read.txt")" "$(number ' s,' <"$folder/read.txt")"
printf '   gaps in their sequence          %s\n' "$(number 'gaps' <"$folder/read.txt")"
printf '   killed                          the standby once, the main once\n'
printf '   live values lost after display  none: the last one seen was %s, %s are recorded\n' "$seen" "$recorded"
printf '   differences, main and standby   none\n'
