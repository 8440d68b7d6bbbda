#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# One reader of the fleet: daemon, software radio and gateway. run.sh starts it in network and mount
# namespaces of its own, so the fixed endpoints of three daemons do not meet, and ends it with SIGTERM.
#
#   reader.sh NAME ADDRESS ANTENNAS BIN WORK
#
# ANTENNAS are numbers with commas between them. BIN has the programs. Files go to WORK/NAME: started, and at
# the end account.json of the daemon and status.json of the gateway.
set -euo pipefail
name=$1 address=$2 antennas=$3 bin=$4 work=$5
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
own=$work/$name
children=()
stopping=

start() {
    setpriv --pdeathsig TERM -- "$@" > "$own/$(basename "$1").out" 2>&1 &
    children+=("$!")
}

# wait_for <what> <command...>: until the command succeeds, up to 30 s.
wait_for() {
    local what=$1 end=$((SECONDS + 30))
    shift
    while [ "$SECONDS" -lt "$end" ]; do
        if "$@" > /dev/null 2>&1; then
            return
        fi
        sleep 0.1
    done
    echo "$name: $what: not within 30 s" >&2
    exit 1
}

# A /tmp of its own, since endpoints lie there. Folders below the old one that are needed stay visible.
make_own_tmp() {
    local folder
    mount -t tmpfs tmpfs /mnt
    for folder in "$bin/.." "$here" "$work"; do
        folder=$(realpath "$folder")
        if [[ $folder == /tmp/* ]]; then
            mkdir -p "/mnt/${folder#/tmp/}"
            mount --bind "$folder" "/mnt/${folder#/tmp/}"
        fi
    done
    mount --rbind /mnt /tmp
    umount --lazy /mnt
}

cleanup() {
    local status=$? i
    trap - EXIT
    for ((i = ${#children[@]} - 1; i >= 0; i--)); do
        kill -TERM "${children[i]}" 2> /dev/null || true
        wait "${children[i]}" || true
    done
    exit "$status"
}

is_listening() { grep -q " 00010000 .* $1\$" /proc/net/unix; }
has_sent_all() { "$bin/twgate" status --json | jq -e '.sinks[0].pending == 0'; }
knows_all() { [ "$("$bin/twgate" status --json | jq .sources[0].heard)" = "$(jq .fates.sent "$own/account.json")" ]; }

mkdir "$own"
cd "$own"
trap cleanup EXIT
trap 'stopping=yes; [ -e started ] || exit 143' TERM
wait_for "its link" ip link show uplink
ip link set lo up
ip link set uplink up
ip address add "$address/32" dev uplink
ip route add 10.77.0.1 dev uplink
make_own_tmp

sed "s/READER/$name/" "$here/twgate.json" > twgate.json
start "$bin/rm_server"
wait_for "the management server" grep -q listening rm_server.out
start "$bin/twgate" --config "$own/twgate.json"
wait_for "the gateway" is_listening /tmp/data
start "$bin/tarnwick"
wait_for "the daemon" is_listening /tmp/tarnwick_rep
# Every read is a report, and no report is held back, so that all event numbers come.
"$bin/twctl" mode set \
    '{"type": "SIMPLE", "antennas": ['"$antennas"'], "tagMetaData": ["ANTENNA"], "reportFilter": {}}'
"$bin/twctl" start
touch started
until [ -n "$stopping" ]; do sleep 0.1; done

"$bin/twctl" stop
"$bin/twctl" account --json > account.json
wait_for "the last batch" knows_all
wait_for "the server's confirmation" has_sent_all
"$bin/twgate" status --json > status.json
"$bin/twctl" exit
