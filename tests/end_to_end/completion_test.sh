#!/usr/bin/env bash
# completion_test.sh FILE PROGRAM: what bash completes.
set -euo pipefail
compopt() { :; }
. "$1"
program=$2

# expect WANTED WORD...: completes the last word.
expect() {
    local wanted=$1
    shift
    COMP_WORDS=("$program" "$@") COMP_CWORD=$# COMPREPLY=()
    "_$(basename "$program")" "$program"
    [ "${COMPREPLY[*]}" = "$wanted" ] || {
        echo "$*: completes to '${COMPREPLY[*]}', not to '$wanted'"
        exit 1
    }
}

expect "--info" --inf
expect "--version" --json --vers
expect "--recursive" --recu
expect "" --nothing
for option in --framework --convert --json; do
    expect "$option" "$option"
done
cd "$(dirname "$1")"
expect "$(basename "$1")" "$(basename "$program").ba"
