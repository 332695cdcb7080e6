# shellcheck shell=bash
# shellcheck disable=SC2154 # array.sh and host.sh set the others
# Runs the tool, and compares the devices that the kernel then has with the expected ones. It reads them from sysfs and
# the device mapper, never from the output of the tool.

seen='' want='' shown=''

step() { printf '\n=== %s\n' "$*"; }
fail() { echo "FAILED: $*"; exit 1; }

# indent [FILE]: marks each line of a command's output.
indent() {
    local line
    while IFS= read -r line || [ -n "$line" ]; do
        printf '    | %s\n' "${line%$'\r'}"
    done < "${1:-/dev/fd/0}"
}

# run [OPTION...]: runs the tool without input.
run() {
    echo "\$ vdRescan_plus" "$@"
    vdRescan_plus "$@" < /dev/null | indent
}

# ask [OPTION...]: runs the tool on a terminal until it asks. answer WORD: types WORD, and waits until the tool ends.
ask() {
    echo "\$ vdRescan_plus" "$@"
    : > /run/said
    coproc script -qfec "vdRescan_plus $*" /dev/null > /run/said
    asked=$COPROC_PID # which bash unsets when the process ends
    wait_for grep -q 'input \[no\]:' /run/said
}

answer() {
    echo "$1" >&"${COPROC[1]}"
    wait "$asked"
    indent /run/said
}

# expect_output STATUS PATTERN COMMAND...: the command must end with STATUS and print a line that matches.
expect_output() {
    local status=0
    echo "\$ ${*:3}"
    "${@:3}" > /run/output 2>&1 || status=$?
    indent /run/output
    [ "$status" -eq "$1" ] || fail "its exit status is $status, not $1"
    [ -z "$2" ] || grep -qE "$2" /run/output || fail "it does not print \"$2\""
}

# look: stores each disk and namespace as a line to compare (state) and a line to print (table). A device that was
# deleted and found again has a new inode in sysfs, whatever its name.
look() {
    local device name inode vendor model wwid age sg sd text
    inodes=' ' state='' table=''
    while read -r device inode; do
        # A device that the kernel is just deleting does not count.
        { read -r wwid < "$device/wwid"; } 2> /dev/null || continue
        inodes+="$inode "
        [[ $seen == *" $inode "* ]] && age=kept || age=new
        case $device in
        *nvme*) name=${device##*/} text='' ;;
        *)  name=${device%/device} name=${name##*/}
            sg=("$device"/scsi_generic/*) sd=("$device"/block/*)
            read -r vendor < "$device/vendor"
            read -r model < "$device/model"
            printf -v text '%-8s %-16s %s %s' "$vendor" "$model" "${sg##*/}" "${sd##*/}" ;;
        esac
        printf -v table '%s    %-11s %-34s %-42s %s\n' "$table" "$name" "$text" "$wwid" "$age"
        wwid=${wwid#naa."$naa"}
        state+="$name=${wwid#uuid."$uuid"} $age"$'\n'
    done < <(stat -Lc '%n %i' /sys/class/scsi_disk/*/device /sys/block/nvme[0-9]n[0-9] 2> /dev/null)
    state=$(sort <<< "${state%$'\n'}")
}

# expect [-ADDRESS | +ADDRESS=NAME | !ADDRESS]...: compared with the last expectation, these devices must be gone or
# new, and all others must be the same. Each disk of ZENTRA must be a path of the map of its volume, and each map must
# have no other path. All paths must work, except those with an exclamation mark. All writes must succeed. The function
# waits for all this, because the kernel probes disks after a scan, and multipath learns of them later.
expect() {
    local change device address volume failed=' '
    want=${want// new/ kept}
    for change; do
        case $change in
        -*) want=$(grep -v "^${change#-}=" <<< "$want") ;;
        +*) want+=$'\n'"${change#+} new" ;;
        !*) failed+="${change#!} " ;;
        esac
    done
    want=$(sort <<< "$want" | grep .)
    # The maps and their paths. Volumes of the other vendor begin with e and have no map.
    want_paths=$(while read -r device _; do
        address=${device%=*} volume=${device#*=}
        [[ $address == *:* && $volume != e? ]] || continue
        [[ $failed == *" $address "* ]] && address+=" failed"
        printf '%s\n' "$volume" "$volume=$address"
    done <<< "$want" | sort -u)
    wait_for same_devices || true
    wait_for same_paths || true
    show_change
    compare "$want" "$state" || fail "the kernel does not hold what it should"
    compare "$want_paths" "$paths" || fail "the maps do not have the paths that they should"
    # A pending udev event would make multipath check its path again after the next change of the array.
    udevadm settle --timeout=300
    [ ! -e /run/rounds ] || expect_writes
    seen=$inodes
}

# show_change: prints what the kernel and multipath have, if it has changed since it was last printed.
show_change() {
    if [ "$state$paths" = "$shown" ]; then
        echo "The kernel and multipath hold what they held before."
    else
        printf 'The kernel holds:\n%s' "$table"
        show_maps
    fi
    shown=${state// new/ kept}$paths
}

compare() { diff -U9 --label expected --label found <(echo "$1") <(echo "$2"); }
same_devices() { look; [ "$state" = "$want" ]; }
same_paths() { paths=$(list_paths | sort -u); [ "$paths" = "$want_paths" ]; }
show_maps() { echo "# multipathd show topology"; multipathd show topology | sed '/^size=/d; s/^[a-z]*: //' | indent; }

# list_paths: prints each map as NAME and each path as NAME=ADDRESS, with the word failed if it does not work, from the
# kernel's tables. A path whose disk is gone has its device numbers in place of an address.
list_paths() {
    local word state map disk
    dmsetup status --target multipath | grep -oE '^[^:]+|[0-9]+:[0-9]+ [AF]' | while read -r word state; do
        [ -n "$state" ] || { map=${word#3"$naa"}; echo "$map"; continue; }
        disk=$word
        ! cd -P "/sys/dev/block/$word/device" 2> /dev/null || disk=${PWD##*/}
        [ "$state" = A ] && echo "$map=$disk" || echo "$map=$disk failed"
    done
}

# asked_twice TARGET LUN: whether the host has sent this LUN two commands since it was mapped.
asked_twice() { [ "$(< "$iscsi:$1/tpgt_1/lun/lun_$2/statistics/scsi_tgt_port/in_cmds")" -ge 2 ]; }

# expect_writes: waits until writes to the map and to the files have succeeded. No write may have failed so far, and no
# data may have been read back wrong.
expect_writes() {
    # The current round may have begun before the call.
    want_rounds=$(($(rounds) + 2))
    wait_for written || fail "the writes hang"
    { echo "$EPOCHSECONDS" >> /mnt/steps && sync /mnt/steps; } || fail "the file system takes no more writes"
    show_writes
    [ ! -s /run/write_errors ] || fail "$(cat /run/write_errors)"
}

written() { [ "$(rounds)" -ge "$want_rounds" ]; }

show_writes() {
    echo "Blocks of 64 KiB written and read back: $((16 * $(rounds))), errors: $(wc -l < /run/write_errors)"
}
