# SPDX-License-Identifier: MIT
# Functions and variables for the other scripts, which source this file.

export LC_ALL=C.UTF-8
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
bin=$root/build/dev/bin
preset=dev

say() { printf '%s\n' "-- $*"; }

fail() {
    printf '%s\n' "$(basename "$0"): $*" >&2
    exit 1
}

# Runs a command as root, through sudo if this user is not root.
as_root() {
    if [ "$(id -u)" -eq 0 ]; then
        "$@"
    elif command -v sudo > /dev/null; then
        sudo "$@"
    else
        fail "needs root, and there is no sudo: $*"
    fi
}

# take_lock <descriptor> <file> <what for>: waits until no other run holds the lock, and holds it until
# this script ends. The file is opened for reading, so that it may belong to another user. Programs that
# can outlive the script must not inherit the descriptor.
take_lock() {
    [ -e "$2" ] || : > "$2"
    eval "exec $1< \"\$2\""
    if ! flock --nonblock "$1"; then
        say "waiting for another run to release $3"
        flock "$1"
    fi
}

# build [target...]: configures and builds $preset, or only these targets of it. The lock keeps two
# builds out of one directory.
build() {
    mkdir -p "$root/build"
    take_lock 8 "$root/build/.lock" "$root/build"
    cd "$root"
    cmake --preset "$preset" > "$root/build/configure.log" 2>&1 8<&- || {
        cat "$root/build/configure.log" >&2
        fail "the configuration failed"
    }
    if [ $# -gt 0 ]; then
        cmake --build --preset "$preset" --target "$@" 8<&-
    else
        cmake --build --preset "$preset" 8<&-
    fi
    exec 8<&-
}

# The inodes of the sockets that listen on a TCP port, or on a file.
tcp_listeners() {
    awk -v port=":$(printf '%04X' "$1")" '$4 == "0A" && $2 ~ port "$" { print $10 }' \
        /proc/net/tcp $([ ! -e /proc/net/tcp6 ] || echo /proc/net/tcp6)
}
file_listeners() {
    awk -v file="$1" '$4 == "00010000" && $8 == file { print $7 }' /proc/net/unix
}

# report_holder <endpoint> <inode>: names the process that holds the endpoint, and how to end it.
report_holder() {
    local fd pid
    fd=$(find /proc/[0-9]*/fd -lname "socket:\\[$2\\]" 2> /dev/null | head -n 1) || true
    if [ -z "$fd" ]; then
        echo "$1 is held by a process that this user cannot see; as root this script names it" >&2
        return
    fi
    pid=${fd#/proc/}
    pid=${pid%%/*}
    echo "$1 is held by process $pid ($(tr '\0' ' ' < "/proc/$pid/cmdline" 2> /dev/null || true))" >&2
    echo "    if it is left over from a run that was killed, end it with: kill $pid" >&2
}

# Waits for the lock on the endpoints, which are fixed, so that one run at a time uses them, and fails
# when another process listens there. A file that a killed process has left is not a listener and does no
# harm.
claim_endpoints() {
    local port file inode held=0
    take_lock 9 /tmp/tarnwick-endpoints.lock "the endpoints"
    for port in 50009 5160; do
        for inode in $(tcp_listeners "$port"); do
            report_holder "tcp port $port" "$inode"
            held=1
        done
    done
    for file in /tmp/tarnwick_rep /tmp/data /tmp/events /tmp/gpio_led_controller; do
        for inode in $(file_listeners "$file"); do
            report_holder "$file" "$inode"
            held=1
        done
    done
    [ "$held" -eq 0 ] || fail "endpoints are in use"
}
