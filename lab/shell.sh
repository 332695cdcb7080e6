# shellcheck shell=bash
# shellcheck disable=SC2154 # lab_rows and lab_columns come from the kernel's command line
# The prompt of lab/run --shell.

. /lab/array.sh
. /lab/host.sh
. /lab/expect.sh

help() {
    echo "vdRescan_plus finds stale disks now, and logs to $log. These change the array first:"
    sed -n 's/^# \([a-z_]* [A-Z][A-Z ]*: [^.]*\).*/    \1/p' /lab/array.sh
    echo "    login TARGET: the host gets a session with a new target, and with it one more SCSI host"
    echo "There are the volumes $(cd "$config/target/core/fileio_0" && echo [0-9a-f][0-9a-f]), and these LUNs:"
    find "$config/target/iscsi" -path '*/lun_*/volume' -printf '%p %l\n' |
        sed -E 's,.*:([a-z]*)/tpgt_1/lun/lun_([0-9]*)/volume .*/,    \1 \2: volume ,'
    echo "Target a is host 0, single host 1, other host 2, b host 3. There are"
    echo "the namespaces $(cd "$config/nvmet/subsystems/$nqn/namespaces" && echo *)."
    echo "state: what the kernel and multipath hold; kept and new are compared with the last time."
    echo "exit ends the guest, and Ctrl-A x at once. Ctrl-A is QEMU's: twice for the start of the line, Ctrl-A h for"
    echo "more."
}

state() {
    look
    seen=$inodes
    printf 'The kernel holds:\n%s' "$table"
    show_maps
    show_writes
}

touch /lab/passed
look
seen=$inodes
stty rows "$lab_rows" columns "$lab_columns"
help
