# shellcheck shell=bash
# tools/common.sh: functions for the scripts of this project, which read this file with `.`. Their names begin with vd_.

# vd_help "$@": if --help is the first argument, prints the comment at the head of the calling script, and exits with 0.
vd_help() {
    [ "${1:-}" = --help ] || return 0
    sed -n '1d; /^#/!q; s/^# \{0,1\}//p' "$0"
    exit 0
}

# vd_usage: prints the same on standard error, and exits with 2.
vd_usage() {
    (vd_help --help) >&2
    exit 2
}

# vd_skip REASON: prints the name of the calling check with its folder, and exits with 77, which marks a skipped check.
vd_skip() {
    echo "$(basename "$(dirname "$0")")/${0##*/}: skipped: $1"
    exit 77
}

# vd_require COMMAND...: skips the calling check unless all these commands can be run. If VD_NOTHING_MISSING is set, the
# check fails instead; ./test sets it after it has installed everything.
vd_require() {
    local command missing=
    for command; do
        command -v "$command" > /dev/null || missing+=" $command"
    done
    [ -n "$missing" ] || return 0
    [ -z "${VD_NOTHING_MISSING:-}" ] || { echo "${0##*/}: not found:$missing" >&2; exit 1; }
    vd_skip "not found:$missing"
}

# vd_retry COMMAND...: runs the command up to three times, with pauses. A mirror that is being updated, or another
# apt-get that holds the lock, is ready a little later.
vd_retry() {
    local pause
    for pause in 5 20; do
        ! "$@" || return 0
        sleep "$pause"
    done
    "$@"
}

# vd_unpack DIRECTORY DEB...: unpacks these packages into DIRECTORY, and runs nothing of them. Releases differ in
# whether they pack files below /lib or /usr/lib; in DIRECTORY both are the same.
vd_unpack() {
    local name deb
    for name in bin lib lib64 sbin; do
        mkdir -p "$1/usr/$name"
        ln -sfn "usr/$name" "$1/$name"
    done
    for deb in "${@:2}"; do
        dpkg-deb --fsys-tarfile "$deb" | tar -x -C "$1" --keep-directory-symlink
    done
}

# vd_publish FINISHED DIRECTORY: renames a finished directory, so that DIRECTORY appears complete or not at all. If
# another run was first, its directory stays.
vd_publish() {
    mv -T "$1" "$2" 2> /dev/null || [ -e "$2" ]
}

# vd_check_hardening PROGRAM: prints the marks of hardening that the program has, and fails at one that it lacks.
vd_check_hardening() {
    local elf mark
    elf=$(readelf -Whlds "$1")
    printf '=== hardening of %s\n' "${1##*/}"
    # Bound at the start, at any address; read-only relocations; no code on the stack; stack protector; fortified calls.
    for mark in 'Flags: NOW PIE' GNU_RELRO 'GNU_STACK.* RW ' __stack_chk_fail _chk@; do
        grep -m 1 -E -- "$mark" <<< "$elf" || { echo "${0##*/}: nothing like '$mark'" >&2; return 1; }
    done
}
