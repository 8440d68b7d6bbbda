#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Runs a command with a network and a /tmp of its own, where the daemon's fixed endpoints are: beside other
# tests, and while scripts/test holds the lock on the endpoints.
#
#   own_endpoints.sh COMMAND...
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
if [ "${1:-}" != --inside ]; then
    exec unshare --net --mount "${BASH_SOURCE[0]}" --inside "$@"
fi
shift
ip link set lo up
mount -t tmpfs tmpfs /mnt
if [[ $root == /tmp/* ]]; then
    mkdir -p "/mnt/${root#/tmp/}"
    mount --bind "$root" "/mnt/${root#/tmp/}"
fi
mount --rbind /mnt /tmp
umount --lazy /mnt
exec "$@"
