# SPDX-License-Identifier: MIT
# Completion of twctl in bash. The words come from twctl itself.
_twctl() {
    local line=${COMP_LINE:0:COMP_POINT} candidate before=
    local unfinished=${line##*[[:space:]]}
    # bash parts words at "=" and ":" as well, and replaces the last part alone.
    if [[ $unfinished == *[=:]* ]]; then
        before=${unfinished%"${unfinished##*[=:]}"}
    fi
    COMPREPLY=()
    while IFS= read -r candidate; do
        COMPREPLY+=("${candidate#"$before"}")
    done < <("${COMP_WORDS[0]}" complete -- "$line" 2> /dev/null)
    if [[ ${#COMPREPLY[@]} -eq 1 && ${COMPREPLY[0]} == *= ]]; then
        compopt -o nospace 2> /dev/null # a value follows
    fi
}
complete -o default -F _twctl twctl
