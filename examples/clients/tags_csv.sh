#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# tags_csv.sh [options of "twctl watch tags"]: tag reports as CSV, with a last column that
# says what happened before a report: "3 lost", "restart", or nothing.
#
# Takes JSON: data_analytics OFF, or STRING with the option --tcp. Needs twctl and jq. SIGINT
# or SIGTERM ends it; the status is that of twctl, 0 after a signal. Filter its output, for
# --epc and --antenna leave out reports, which the last column then takes for lost:
#
#   tags_csv.sh | grep --line-buffered ',"3034257b' > dock.csv
set -o pipefail

twctl status --timeout 1 --json radioActivity >&2 || echo "waiting for a daemon" >&2

# twctl writes a report in a line, behind its header if it has one.
twctl watch tags "$@" | jq --unbuffered --raw-input --raw-output --null-input '
    def note($expected):
        if $expected == null or . == $expected then ""
        elif . < $expected then "restart"
        else "\(. - $expected) lost" end;
    def report: try (sub("^[^{]*"; "") | fromjson | select(.data.eventNum)) catch empty;

    ["time", "epc", "antenna", "rssi", "reads", "note"],
    foreach (inputs | report) as {$timestamp, data: $tag} ({};
        .expected as $expected
        | {note: ($tag.eventNum | note($expected)), expected: ($tag.eventNum + 1)};
        [$timestamp, $tag.idHex, $tag.antenna, $tag.peakRssi, $tag.reads, .note])
    | @csv' &
trap 'kill "$(jobs -p)"' INT TERM # twctl, the first of the two; jq ends behind it
wait "$!" || { status=$?; wait; [ "$status" -gt 128 ] || exit "$status"; }
