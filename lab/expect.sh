# shellcheck shell=bash
# shellcheck disable=SC2154 # array.sh and host.sh set the others
# Runs the tool, and compares what the kernel then holds (read from sysfs and the device mapper, never from the tool's
# own words) with what it should hold.

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

# run [OPTION...]: the tool, with nothing to read.
run() {
    echo "\$ vdRescan_plus" "$@"
    vdRescan_plus "$@" < /dev/null | indent
}

# ask [OPTION...]: the tool at a terminal, until it asks. answer WORD: types WORD there, and waits for the tool to end.
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

# expect_output STATUS TEXT COMMAND...: the command ends with STATUS, and prints the TEXT.
expect_output() {
    local status=0
    echo "\$ ${*:3}"
    "${@:3}" > /run/output 2>&1 || status=$?
    indent /run/output
    [ "$status" -eq "$1" ] || fail "its exit status is $status, not $1"
    [ -z "$2" ] || grep -qE "$2" /run/output || fail "it does not print \"$2\""
}

# look: every disk and namespace as a line to compare (state) and a line to show (table).
# A device that went away and came back has a new inode in sysfs, whatever its name.
look() {
    local device name inode vendor model wwid age sg sd text
    inodes=' ' state='' table=''
    while read -r device inode; do
        # One that the kernel is just taking away is not there any more.
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

# expect [-ADDRESS | +ADDRESS=NAME | !ADDRESS]...: compared with the expectation before, these devices are gone or new,
# and the kernel still holds the very same other ones. Each disk of ZENTRA is a path of the map of its volume, and no map
# has others. It uses all of them now but those with an exclamation mark. And what is written comes through. All that gets
# time to settle: probing goes on after a scan, and multipath has yet to hear of it.
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
    # The maps, and each path of them. The other vendor's volumes begin with e and have no map.
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
    # An event that udev has yet to handle would make multipath look at its path anew, after the array's next change.
    udevadm settle --timeout=300
    [ ! -e /run/rounds ] || expect_writes
    seen=$inodes
}

# show_change: what the kernel and multipath hold, if it is not what was shown last.
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

# list_paths: each map as NAME, each path as NAME=ADDRESS, with the word failed if it is not in use, from the kernel's
# tables. A path whose disk is gone has its numbers for an address.
list_paths() {
    local word state map disk
    dmsetup status --target multipath | grep -oE '^[^:]+|[0-9]+:[0-9]+ [AF]' | while read -r word state; do
        [ -n "$state" ] || { map=${word#3"$naa"}; echo "$map"; continue; }
        disk=$word
        ! cd -P "/sys/dev/block/$word/device" 2> /dev/null || disk=${PWD##*/}
        [ "$state" = A ] && echo "$map=$disk" || echo "$map=$disk failed"
    done
}

# asked_twice TARGET LUN: the host has sent this LUN two commands or more since it was mapped.
asked_twice() { [ "$(< "$iscsi:$1/tpgt_1/lun/lun_$2/statistics/scsi_tgt_port/in_cmds")" -ge 2 ]; }

# expect_writes: since the last look writes came through, to the map and to the files; not one ever failed or was read
# back wrong.
expect_writes() {
    # The round that was under way may have begun before.
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
