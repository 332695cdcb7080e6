# shellcheck shell=bash disable=SC2154
# Runs the tool, and compares what the kernel then holds (read from sysfs and the device mapper, never from the tool's
# own words) with what it should hold.

said=/run/said
seen=
want=

step() { printf '\n=== %s\n' "$*"; }
fail() { echo "FAILED: $*"; exit 1; }
indent() { sed 's/\r$//; s/^/    | /' "$@"; }

# run [OPTION...]: the tool, with nothing to read.
run() {
    echo "\$ vdRescan_plus${*:+ $*}"
    vdRescan_plus "$@" < /dev/null | tee "$said" | indent || fail "vdRescan_plus did not end well"
}

# answer WORD [OPTION...]: the tool at a terminal, where WORD is typed once it asks.
answer() {
    local typescript=/run/typescript
    echo "\$ vdRescan_plus ${*:2}"
    rm -f "$typescript"
    { wait_for grep -qs 'input \[no\]:' "$typescript"; echo "$1"; } |
        script -qfec "vdRescan_plus ${*:2}" "$typescript" > "$said" ||
        fail "vdRescan_plus did not end well, or took no answer"
    indent "$said"
}

# expect_told STATUS TEXT [OPTION...]: vdRescan_log ends with STATUS, and tells the TEXT of the last run.
expect_told() {
    local status=$1 text=$2 found=0
    shift 2
    echo "\$ vdRescan_log${*:+ $*}"
    vdRescan_log "$@" > /run/told || found=$?
    indent /run/told
    [ "$found" -eq "$status" ] || fail "its exit status was $found, not $status"
    grep -qE "$text" /run/told || fail "nothing in it is like \"$text\""
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
        age=new
        [[ $seen == *" $inode "* ]] && age=kept
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

# expect [-ADDRESS | +ADDRESS=NAME]...: compared with the expectation before, these devices are gone or new, and the
# kernel still holds the very same other ones. Probing goes on after a scan, so the state gets time to settle.
expect() {
    local change
    want=${want// new/ kept}
    for change; do
        case $change in
        -*) want=$(grep -v "^${change#-}=" <<< "$want") ;;
        +*) want+=$'\n'"${change#+} new" ;;
        esac
    done
    want=$(sort <<< "$want" | grep .)
    wait_for same_devices || true
    printf 'The kernel holds:\n%s' "$table"
    diff -U9 --label expected --label found <(echo "$want") <(echo "$state") ||
        fail "the kernel does not hold what it should"
    seen=$inodes
}

same_devices() { look; [ "$state" = "$want" ]; }

# expect_paths NAME=ADDRESS...: the maps are of these volumes and have these paths, no others. Behind an address stands
# -failed when the map does not use that path now. And what is written comes through.
expect_paths() {
    want_paths=$(printf '%s\n' "$@" | sort)
    wait_for same_paths || true
    show_maps
    diff -U9 --label expected --label found <(echo "$want_paths") <(echo "$paths") ||
        fail "the maps do not have the paths that they should"
    [ ! -e /run/rounds ] || expect_writes
}

same_paths() { paths=$(list_paths | sort); [ "$paths" = "$want_paths" ]; }

# list_paths: as above, from the kernel's tables.
list_paths() {
    local word state map
    dmsetup status --target multipath | grep -oE '^[^:]+|[0-9]+:[0-9]+ [AF]' | while read -r word state; do
        [ -n "$state" ] || { map=${word#3"$naa"}; continue; }
        cd -P "/sys/dev/block/$word/device" || continue
        state=${state/A/} # A is active, F has failed
        echo "$map=${PWD##*/}${state/F/-failed}"
    done
}

show_maps() { echo "# multipathd show topology"; multipathd show topology | indent; }

# asked_twice TARGET LUN: the host has sent this LUN two commands or more since it was mapped.
asked_twice() {
    local count
    read -r count < "$iscsi:$1/tpgt_1/lun/lun_$2/statistics/scsi_tgt_port/in_cmds"
    [ "$count" -ge 2 ]
}

# expect_writes: since the last look writes came through, to the map and to the files; not one ever failed or was read
# back wrong.
expect_writes() {
    # The round that was under way may have begun before.
    want_rounds=$(($(stat -c %s /run/rounds) + 2))
    wait_for written || fail "the writes hang"
    sh -c 'date >> /mnt/steps && sync /mnt/steps' || fail "the file system takes no more writes"
    show_writes
    [ ! -s /run/write_errors ] || fail "$(cat /run/write_errors)"
}

written() { [ "$(stat -c %s /run/rounds)" -ge "$want_rounds" ]; }

show_writes() {
    echo "Blocks written and read back: $((16 * $(stat -c %s /run/rounds))), errors: $(wc -l < /run/write_errors)"
}

# expect_trace LOG: every line that the operator saw in the last run is recorded there, in the same order.
expect_trace() {
    local record='\[[0-9]+\]\[[0-9 :-]{19}\]\[00005342(16|17)00[0-9a-f]{4}\]'
    record+='\[(INFO|WARN|ERROR)\]\[(SCAN|UDEV)  \]\[[A-Za-z0-9_]+: [0-9]+\]'
    ! diff <(sed -E "s/$record//g" "$1") "$said" | grep '^>' ||
        fail "the operator saw these lines, but they are not recorded"
}
