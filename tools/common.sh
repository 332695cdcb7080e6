# tools/common.sh: functions for this project's scripts, which read it with `.`; sh is enough for it.

# help "$@": with --help as the first argument, prints the comment at the head of the calling script and ends it.
help() {
    [ "${1:-}" = --help ] || return 0
    sed -n '1d; /^#/!q; s/^# \{0,1\}//p' "$0"
    exit 0
}

# skip REASON: ends the calling check with the exit status that marks a skipped one; names it with its folder.
skip() {
    echo "$(basename "$(dirname "$0")")/${0##*/}: skipped: $1"
    exit 77
}

# require COMMAND...: skips the calling check unless all of these can be run. Where VD_NOTHING_MISSING is set, as ./test
# does after it has installed everything, the check fails instead.
require() {
    missing=
    for command; do
        command -v "$command" > /dev/null || missing="$missing $command"
    done
    [ -n "$missing" ] || return 0
    [ -z "${VD_NOTHING_MISSING:-}" ] || { echo "${0##*/}: not found:$missing" >&2; exit 1; }
    skip "not found:$missing"
}
