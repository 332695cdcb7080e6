# shellcheck shell=bash disable=SC2154
# Runs the tool, and compares what the kernel then holds (read from sysfs, never from the
# tool's own words) with what it should hold.

said=/run/said
# Seconds against hanging only; all of it takes one or two.
hang=600
seen=
want=

step() { printf '\n=== %s\n' "$*"; }
fail() { echo "FAILED: $*"; exit 1; }

# run [OPTION...]: the tool, with nothing to read.
run() {
    echo "\$ vdRescan_plus${*:+ $*}"
    timeout "$hang" vdRescan_plus "$@" < /dev/null | tee "$said" | sed 's/^/    | /' ||
        fail "vdRescan_plus did not end well"
}

# answer WORD [OPTION...]: the tool at a terminal, where WORD is typed once it asks.
answer() {
    local typescript=/run/typescript
    echo "\$ vdRescan_plus ${*:2}"
    rm -f "$typescript"
    { until grep -qs 'input \[no\]:' "$typescript"; do sleep 0.2; done; echo "$1"; } |
        timeout "$hang" script -qfec "vdRescan_plus ${*:2}" "$typescript" > "$said" ||
        fail "vdRescan_plus did not end well, or took no answer"
    sed 's/\r$//; s/^/    | /' "$said"
}

# look: every disk and namespace as a line to compare (state) and a line to show (table).
# A device that went away and came back has a new inode in sysfs, whatever its name.
look() {
    local device name inode wwid age sg sd text
    inodes=' ' state='' table=''
    for device in /sys/class/scsi_disk/*/device /sys/block/nvme[0-9]n[0-9]; do
        [ -e "$device/wwid" ] || continue
        inode=$(stat -Lc %i "$device") wwid=$(< "$device/wwid")
        inodes+="$inode "
        age=new
        [[ $seen == *" $inode "* ]] && age=kept
        case $device in
        *nvme*) name=${device##*/} text='' ;;
        *)  name=${device%/device} name=${name##*/}
            sg=$(echo "$device"/scsi_generic/*) sd=$(echo "$device"/block/*)
            text="$(< "$device/vendor") $(< "$device/model") ${sg##*/} ${sd##*/}" ;;
        esac
        table+=$(printf '    %-8s %-34s %-42s %s' "$name" "$text" "$wwid" "$age")$'\n'
        wwid=${wwid#naa."$naa"}
        state+="$name=${wwid#uuid."$uuid"} $age"$'\n'
    done
}

# expect [-ADDRESS | +ADDRESS=NAME]...: compared with the expectation before, these devices
# are gone or new, and the kernel still holds the very same other ones. Probing goes on
# after a scan, so the state gets time to settle.
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
    for _ in {1..120}; do
        sleep 1
        look
        [ "$state" = "$want"$'\n' ] && break
    done
    printf 'The kernel holds:\n%s' "$table"
    diff -U9 --label expected --label found <(echo "$want") <(echo -n "$state") ||
        fail "the kernel does not hold what it should"
    seen=$inodes
}

# expect_trace LOG: LOG holds one run with records numbered from 1, and every line that the
# operator saw in the last run is recorded there, in the same order.
expect_trace() {
    local record numbers
    record='\[[0-9]+\]\[[0-9]{4}(-[0-9]{2}){2} [0-9]{2}(:[0-9]{2}){2}\]\[00005342(16|17)00[0-9a-f]{4}\]'
    record+='\[(INFO|WARN|ERROR)\]\[(SCAN|UDEV)  \]\[[A-Za-z0-9_]+: [0-9]+\]'
    numbers=$(grep -oE "$record" "$1" | sed 's/^.\([0-9]*\).*/\1/')
    diff <(seq "$(wc -l <<< "$numbers")") <(echo "$numbers")
    if diff <(sed -E "s/$record//g" "$1") "$said" | grep '^>'; then
        fail "the operator saw these lines, but they are not recorded"
    fi
}
