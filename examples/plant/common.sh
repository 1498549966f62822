# What the demo and the soak share: the plant's programs in a folder that is removed at the end.
# Wants $bin, the folder of the programs; sets $folder.

here=$(dirname "${BASH_SOURCE[0]}")
folder=$(mktemp -d)
declare -A server # the processes by their names

finish() {
    kill $(jobs -p) 2>/dev/null || true
    wait
    rm -rf "$folder"
}
trap finish EXIT
mkdir "$folder/config"
cp "$here"/config/* "$folder/config"

fail() {
    printf '%s\n' "$*" >&2
    tail -n 5 "$folder"/*.log >&2
    exit 1
}

# wait_for SECONDS COMMAND...: until it succeeds
wait_for() {
    local deadline=$((SECONDS + $1)) command=("${@:2}")
    until "${command[@]}"; do
        ((SECONDS < deadline)) || fail "Waited in vain for: ${command[*]}"
        sleep 0.05
    done
}

# start NAME OPTION...: starts a server, again at the same port
start() {
    local name=$1
    shift
    rm -f "$folder/$name.out"
    (cd "$folder" && exec "$bin/plant_server" config "$name" --name "$name" --test-users \
        --listen "127.0.0.1:$(port_of "$name")" "$@" >"$name.out" 2>>"$name.log") &
    server[$name]=$!
    wait_for 20 grep -qs listening "$folder/$name.out"
    sed 's/.*://' "$folder/$name.out" >"$folder/$name.port"
}

port_of() { cat "$folder/$1.port" 2>/dev/null || echo 0; }

# slay NAME: no process can do anything about it
slay() {
    kill -KILL "${server[$1]}"
    wait "${server[$1]}" 2>/dev/null || true
}

# stop NAME: as an operating system does that shuts down
stop() {
    kill -TERM "${server[$1]}"
    wait "${server[$1]}" || fail "$1 did not stop as it should"
}

# client USER PASSWORD ARGUMENT...
client() {
    local user=$1 password=$2
    shift 2
    printf '%s\n' "$password" | "$bin/plant_client" --server "localhost:$(port_of main)" \
        --server "localhost:$(port_of standby)" --ca "$folder/config/Certificates/authority.cer" --user "$user" "$@"
}

# says NAME COUNT TEXT: the log of a server has the text so often
says() { (($(grep -c "$3" "$folder/$1.log") >= $2)); }
