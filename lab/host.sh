# shellcheck shell=bash
# shellcheck disable=SC2154 # array.sh sets the others
# The guest as a host of that array: its initiators, dm-multipath, and the programs that write to the disks.

log=/opt/Veridane_NVMe/log/vd_rescan_log.txt

# pause SECONDS: starts no process, because that is slow on an emulated processor. The read never succeeds.
pause() { read -rt "$1" -u "$never" || true; }
exec {never}<> <(:)

# wait_for COMMAND...: repeats it until it succeeds. The limit, in seconds, only ends a play that hangs.
wait_for() {
    local end=$((SECONDS + 300))
    until "$@"; do
        [ "$SECONDS" -lt "$end" ] && pause 0.2 || return 1
    done
}

# configure [queue]: configures the tool, the iSCSI initiator, and multipath. The kernel gives up a lost session after
# two seconds instead of two minutes. A map without a path fails commands at once; with queue, it queues them. Each map
# uses only its oldest path that works: with detect_prio, newer releases find that all paths are equal and use them in
# turn, even one that leads to the wrong volume.
configure() {
    rm -rf /etc/multipath
    mkdir -p "${log%/*}" /run/lock /etc/iscsi /etc/multipath
    printf '[vendors]\nvendor_id="ZENTRA", product_id="ARRAY9000"\n' > /etc/vd_plus.conf
    echo "InitiatorName=${iscsi##*/}:host" > /etc/iscsi/initiatorname.iscsi
    echo "node.session.timeo.replacement_timeout = 2" > /etc/iscsi/iscsid.conf
    cat > /etc/multipath.conf << END
defaults {
    find_multipaths no
    polling_interval 1
    max_polling_interval 1
    no_path_retry ${1:-fail}
    detect_prio no
}
blacklist {
    device {
        vendor "!ZENTRA"
    }
}
END
    # These rules start many processes whose results are not needed here.
    for name in 55-scsi-sg3_id 60-kpartx 68-del-part-nodes; do ln -sf /dev/null /etc/udev/rules.d/$name.rules; done
    # start_writing opens its map for each round. Without nowatch, each close would cause an event.
    echo 'SUBSYSTEM=="block", OPTIONS+="nowatch"' > /etc/udev/rules.d/99-nowatch.rules
    /usr/lib/systemd/systemd-udevd --daemon 2> /dev/null
    iscsid
    multipathd
}

# login TARGET: creates a session with a new target, and with it one more SCSI host.
login() {
    local node=(iscsiadm -m node -T "${iscsi##*/}:$1" -p 127.0.0.1:3260)
    { "${node[@]}" -o new && "${node[@]}" --login; } > /run/iscsiadm.log 2>&1
}

# connect: connects to the NVMe subsystem. It disables the controller's notices of new namespaces, because the kernel
# would find these without a rescan.
connect() {
    nvme connect -t tcp -a 127.0.0.1 -s 4420 -n "$nqn" --hostnqn "$nqn:host" --hostid "${uuid}ff"
    nvme set-feature /dev/nvme0 -f 0x0b -v 0 > /dev/null
}

# start_writing NAME: writes to the map of that volume in rounds until stop_writing. /run/written gets a file for each
# megabyte of the volume, /run/write_errors the errors.
start_writing() {
    local round=0
    mkdir /run/written
    truncate -s 1M /run/written/{0..15}
    : > /run/rounds
    while [ ! -e /run/stop ]; do
        write_round $((++round)) "/dev/mapper/3$naa$1" || echo "round $round failed"
        printf . >> /run/rounds
        pause 1
    done > /run/write_errors 2>&1 &
    writer=$!
}

stop_writing() { touch /run/stop; wait "$writer"; }

# Prints the number of rounds so far.
rounds() {
    local dots
    read -r dots < /run/rounds || true # no newline ends them
    echo ${#dots}
}

# write_round ROUND MAP: writes a megabyte with the number of the round, in blocks of 64 KiB without the page cache, and
# reads it back.
write_round() {
    local block place=$(($1 % 16))
    local file=/run/written/$place
    for block in {1..16}; do printf '%-65536s' "round $1, block $block"; done > "$file"
    dd if="$file" of="$2" bs=64K seek=$((place * 16)) oflag=direct conv=nocreat,notrunc status=none || return
    dd if="$2" bs=64K skip=$((place * 16)) count=16 iflag=direct status=none | cmp - "$file"
}

# mount_files NAME: mounts a new ext4 on the map of that volume at /mnt, and stores checksums of its files.
mount_files() {
    mkfs.ext4 -q "/dev/mapper/3$naa$1"
    mount "/dev/mapper/3$naa$1" /mnt
    for file in /mnt/{1..4}; do head -c 1M /dev/urandom > "$file"; done
    sha256sum /mnt/[1-4] > /run/sums
}

# check_files NAME: checks the file system, and compares its files, read from the volume again, with the checksums.
check_files() {
    umount /mnt
    fsck.ext4 -fn "/dev/mapper/3$naa$1"
    mount -o ro "/dev/mapper/3$naa$1" /mnt
    sha256sum -c /run/sums
}
