#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# A fleet on one machine: three readers, each a daemon with the software radio and a gateway, an MQTT
# server, and a consumer. In the middle the server is stopped and started again. Status 0 when the consumer
# got every report that the three daemons sent.
#
#   examples/fleet/run.sh [--bin FOLDER] [--seconds N] [--outage N]
#
# FOLDER has tarnwick, rm_server, twctl and twgate; without it build/dev/bin of the clone. The radios read
# for N seconds (default: 10) before the outage of N seconds (default: 3) and as long again behind it.
# Needs root, and the packages mosquitto, python3-paho-mqtt, jq and iproute2. All of it has network and mount
# namespaces of its own: no other program sees its addresses and files.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
readers=(dock-1 dock-2 gate-7)
antennas=("1" "1, 2" "1, 2, 3, 4") # of each reader
bin=$here/../../build/dev/bin
seconds=10
outage=3
children=()
PATH=$PATH:/usr/sbin

fail() {
    echo "run.sh: $*" >&2
    exit 1
}

say() { printf '%s\n' "-- $*"; }

# Seconds that a signal can end.
pause() {
    sleep "$1" &
    wait "$!"
}

# start <log> <program> [arguments]: in the background, with its id in $started. It ends with this script.
start() {
    setpriv --pdeathsig TERM -- "${@:2}" > "$1" 2>&1 &
    started=$!
    children+=("$started")
}

cleanup() {
    local status=$? i
    trap - EXIT
    for ((i = ${#children[@]} - 1; i >= 0; i--)); do
        kill -TERM "${children[i]}" 2> /dev/null || true
        wait "${children[i]}" || true # readers deliver what they have, so the server ends behind them
    done
    [ "$status" -eq 0 ] || tail -n 10 "$work"/*.out "$work"/*/*.out >&2 2> /dev/null || true
    rm -rf "$work"
    exit "$status"
}

# wait_for <id> <what> <command...>: until the command succeeds, up to 30 s, while the process runs.
wait_for() {
    local id=$1 what=$2 end=$((SECONDS + 30))
    shift 2
    while [ "$SECONDS" -lt "$end" ]; do
        if "$@" > /dev/null 2>&1; then
            return
        fi
        kill -0 "$id" 2> /dev/null || fail "$what ended at once"
        sleep 0.1
    done
    fail "$what is not ready after 30 s"
}

is_listening() { awk '$2 ~ /:075B$/ && $4 == "0A" { found = 1 } END { exit !found }' /proc/net/tcp; }
is_elsewhere() { [ "$(readlink "/proc/$1/ns/net")" != "$(readlink /proc/self/ns/net)" ]; }

start_server() {
    start "$work/mosquitto.out" mosquitto -c "$work/mosquitto.conf"
    server=$started
    wait_for "$server" mosquitto is_listening
}

# start_reader <name> <address> <antennas>: one end of its cable is here, under its name, the other there.
start_reader() {
    start "$work/$1.out" unshare --net --mount "$here/reader.sh" "$1" "$2" "$3" "$bin" "$work"
    reader_ids+=("$started")
    wait_for "$started" "$1" is_elsewhere "$started"
    ip link add "$1" type veth peer name uplink netns "$started"
    ip link set "$1" up
    ip route add "$2" dev "$1"
}

# field <name> <column>: of the consumer's last table.
field() { awk -v name="$1" -v column="$2" '$1 == name { value = $column } END { print value + 0 }' "$work/consumer.out"; }
sent() { jq .fates.sent "$work/$1/account.json"; }
has_all() { [ "$(field "$1" 2)" -ge "$(sent "$1")" ]; }

# What the consumer has of a reader, against what the daemon and the gateway say.
check_reader() {
    local sent reports missing again
    sent=$(sent "$1")
    again=$(jq '.sinks[0].retried' "$work/$1/status.json")
    reports=$(field "$1" 2)
    missing=$(field "$1" 4)
    say "$1: the daemon sent $sent reports, $again of them went again, the consumer got $reports and misses $missing"
    [ "$sent" -gt 0 ] && [ "$reports" -eq "$sent" ] && [ "$missing" -eq 0 ]
}

arguments=("$@")
while [ $# -gt 0 ]; do
    case $1 in
        --bin) bin=${2:?a folder} ;;
        --seconds) seconds=${2:?seconds} ;;
        --outage) outage=${2:?seconds} ;;
        *) fail "$1 is not an option; they are --bin, --seconds and --outage" ;;
    esac
    shift 2
done
[ "$(id -u)" -eq 0 ] || fail "needs root, for the namespaces"
for program in mosquitto jq ip; do
    type "$program" > /dev/null || fail "$program is not installed"
done
/usr/bin/python3 -c "import paho.mqtt" || fail "python3-paho-mqtt is not installed"
bin=$(cd "$bin" && pwd)
if [ -z "${FLEET_NAMESPACE:-}" ]; then
    FLEET_NAMESPACE=yes exec unshare --net --mount "${BASH_SOURCE[0]}" "${arguments[@]}"
fi

work=$(mktemp -d)
trap cleanup EXIT
trap 'exit 130' INT
trap 'exit 143' TERM HUP
ip link set lo up
ip address add 10.77.0.1/32 dev lo
cat "$here/mosquitto.conf" - > "$work/mosquitto.conf" <<< "persistence_location $work/"
start_server
start "$work/consumer.out" /usr/bin/python3 "$here/consumer.py" 10.77.0.1 1883
consumer=$started
wait_for "$consumer" "the consumer" grep connected "$work/consumer.out"
reader_ids=()
for i in "${!readers[@]}"; do
    start_reader "${readers[i]}" "10.77.0.$((11 + i))" "${antennas[i]}"
done
for i in "${!readers[@]}"; do
    wait_for "${reader_ids[i]}" "${readers[i]}" [ -e "$work/${readers[i]}/started" ]
done
say "three radios read for $seconds s"
pause "$seconds"
say "the server is away for $outage s"
kill -TERM "$server"
wait "$server" || true
cat "$work/consumer.out"
pause "$outage"
start_server
say "it is back"
pause "$seconds"

kill -TERM "${reader_ids[@]}"
bad=()
for i in "${!readers[@]}"; do
    wait "${reader_ids[i]}" || bad+=("${readers[i]} has failed")
    # The server may still have some for it.
    (wait_for "$consumer" "the consumer" has_all "${readers[i]}") || bad+=("the consumer has not all of ${readers[i]}")
done
kill -TERM "$consumer"
wait "$consumer" || bad+=("the consumer misses reports")
sed -n '/^in all/,$p' "$work/consumer.out"
for reader in "${readers[@]}"; do
    check_reader "$reader" || bad+=("$reader: the counts differ")
done
[ "${#bad[@]}" -eq 0 ] || fail "$(printf '%s; ' "${bad[@]}")"
say "every report has arrived"
