# tools/common.sh: functions for this project's scripts, which read it with `.`; sh is enough for it.

# help "$@": with --help as the first argument, prints the comment at the head of the calling script and ends it.
help() {
    [ "${1:-}" = --help ] || return 0
    sed -n '1d; /^#/!q; s/^# \{0,1\}//p' "$0"
    exit 0
}
