#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# What ships works where it is installed. Needs root and a build of preset release-ci, to
# which "scripts/test --preset release-ci" sees.
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/../../scripts/common.sh"

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix
doc=share/doc/tarnwick

install_component() {
    cmake --install "$root/build/release-ci" --component "$1" --prefix "$prefix" > "$work/install.log"
}

# Standard input: files that must be there, from the prefix.
must_be_there() {
    local file
    while read -r file; do
        [ -s "$prefix/$file" ] || fail "$file is not installed"
    done
}

# must_come_from <library> <where>
must_come_from() {
    [[ $(ldd "$prefix/bin/tarnwick") == *"$1 => $2"* ]] || fail "the daemon does not take $1 from $2"
}

say "component reader"
install_component reader
must_be_there << END
bin/tarnwick
bin/twctl
lib/systemd/system/tarnwick.service
lib/sysusers.d/tarnwick.conf
lib/tmpfiles.d/tarnwick.conf
sbin/tarnwick-service
share/bash-completion/completions/twctl
share/man/man1/twctl.1
share/man/man8/tarnwick.8
share/man/man8/tarnwick-service.8
share/tarnwick/proto/la_msgs.proto
share/tarnwick/proto/tw_msg.proto
share/tarnwick/schema/boot.schema.json
share/tarnwick/schema/events.schema.json
share/tarnwick/schema/mode.schema.json
$doc/LICENSE
$(cd "$root" && find README.md CHANGELOG.md docs examples \( -name man -o -name scenarios -o -name node_modules \) -prune \
    -o -type f -printf "$doc/%p\n")
END
[ ! -e "$prefix/bin/rm_server" ] || fail "component reader has a stand-in"
must_come_from libRxe.so "not found"

say "component gateway"
install_component gateway
must_be_there << END
bin/twgate
lib/systemd/system/twgate.service
lib/sysusers.d/twgate.conf
share/man/man1/twgate.1
share/tarnwick/schema/twgate.schema.json
END

say "component standins"
install_component standins
must_be_there << END
bin/rm_server
bin/tarnwick-demo
lib/libRxe.so
lib/libtuvr.so
lib/systemd/system/tarnwick-simulator.service
share/man/man1/tarnwick-demo.1
share/man/man5/tarnwick-scenario.5
share/man/man8/rm_server.8
share/tarnwick/schema/scenario.schema.json
$doc/engine/README.md
$doc/rm_server/README.md
$(cd "$root" && find examples/scenarios -type f -printf "$doc/%p\n")
END
[ "$("$prefix/bin/tarnwick-demo" --environment)" = "RXE_SCENARIO=$prefix/share/tarnwick-simulator/scenarios/crowd.json" ] ||
    fail "tarnwick-demo does not find the scenario"
must_come_from libRxe.so "$prefix/bin/../lib/libRxe.so"
must_come_from libtuvr.so "$prefix/bin/../lib/libtuvr.so"
say "component boundary"
install_component boundary
must_be_there << END
include/tarnwick/rxe.h
include/tarnwick/rxe_layout.h
include/tarnwick/tuvr.h
share/tarnwick/boundary/libRxe.map
share/tarnwick/boundary/libtuvr.map
$doc/include/README.md
END
version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$root/build/release-ci/CMakeCache.txt")
for program in twctl rm_server twgate; do
    [ "$("$prefix/bin/$program" --version)" = "$program $version" ] || fail "$program is not of version $version"
done
(cd "$prefix/$doc" && grep -o '](\([^):#]*\)' -r --include='*.md' . | while IFS=: read -r page link; do
    link=${link#](}
    [ -z "$link" ] || [ "$link" = CONTRIBUTING.md ] || [ -e "$(dirname "$page")/$link" ] ||
        fail "$doc/$page links to $link, which is not installed"
done)

say "units"
for name in tarnwick tarnwick-simulator twgate; do
    # systemd looks in the usual places only.
    sed -E "s#^(Exec[A-Za-z]*=)(tarnwick-service)#\\1$prefix/sbin/\\2#
            s#^(Exec[A-Za-z]*=-?)(rm_server|twctl|twgate)#\\1$prefix/bin/\\2#" \
        "$prefix/lib/systemd/system/$name.service" > "$work/$name.service"
    systemd-analyze verify --man=no "$work/$name.service" > "$work/verify.log" 2>&1 || fail "$(cat "$work/verify.log")"
    [ ! -s "$work/verify.log" ] || fail "$(cat "$work/verify.log")"
    systemd-analyze security --offline=true --threshold=15 "$prefix/lib/systemd/system/$name.service" \
        > "$work/security.log" || fail "$name.service: $(tail -n 1 "$work/security.log"); at most 1.5 is wanted"
done
unit=$prefix/lib/systemd/system/tarnwick.service
install -D -t "$work/root/usr/lib/sysusers.d" "$prefix/lib/sysusers.d/tarnwick.conf"
mkdir "$work/root/etc"
systemd-sysusers --root="$work/root" > "$work/sysusers.log" 2>&1 || fail "$(cat "$work/sysusers.log")"
gid=$(sed -n 's/^appsadms:[^:]*:\([0-9]*\):.*/\1/p' "$work/root/etc/group")
grep -q "^trfidadm:[^:]*:[0-9]*:${gid:-none}:" "$work/root/etc/passwd" || fail "sysusers makes no trfidadm of appsadms"

say "from the management server to reports, under the unit's system call filter"
mkdir "$work/bin"
ln -s "$prefix/bin/rm_server" "$prefix/bin/twctl" "$work/bin"
printf '#!/bin/sh\nexec "%s" "%s" "%s" "$@"\n' "$root/tests/system/unit_filter.py" "$unit" "$prefix/bin/tarnwick" \
    > "$work/bin/tarnwick"
chmod +x "$work/bin/tarnwick"
"$root/scripts/demo" --bin "$work/bin" ||
    fail "no reports; a daemon that ended at once may have made a call that the unit's filter refuses"

say "uninstall"
cmake --build "$root/build/release-ci" --target uninstall > "$work/uninstall.log"
left=$(cd "$prefix" && find . -type f -o -name tarnwick)
[ -z "$left" ] || fail "uninstall leaves" $left
say "what ships works where it is installed"
