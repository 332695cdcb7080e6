# shellcheck shell=bash
# The storage in the guest: iSCSI and NVMe targets of the guest's own kernel. The functions change them through
# configfs, like the administrator of an array.

config=/sys/kernel/config
iscsi=$config/target/iscsi/iqn.2024-01.lab
nqn=nqn.2024-01.lab
# The beginning of all world-wide names of volumes, and of all UUIDs of namespaces.
naa=6001405$(printf '%023d' 0)
uuid=00000000-0000-0000-0000-0000000000

# put DIRECTORY ATTRIBUTE=VALUE...
put() {
    local directory=$1 pair
    shift
    for pair; do echo "${pair#*=}" > "$directory/${pair%%=*}"; done
}

# volume NAME VENDOR PRODUCT: creates a logical unit of 16 MiB with its data in /run/NAME. NAME is the last two
# hexadecimal digits of its world-wide name. The kernel adds 6001405 before the serial number.
volume() {
    local volume=$config/target/core/fileio_0/$1
    mkdir -p "$volume"
    truncate -s 16M "/run/$1"
    put "$volume" control="fd_dev_name=/run/$1,fd_dev_size=$((16 << 20))" enable=1 \
        wwn/vendor_id="$2" wwn/product_id="$3" wwn/vpd_unit_serial="${naa#6001405}$1"
}

# target NAME: creates a target port without authentication.
target() {
    local tpg=$iscsi:$1/tpgt_1
    mkdir -p "$tpg/np/127.0.0.1:3260"
    put "$tpg" attrib/authentication=0 attrib/generate_node_acls=1 attrib/demo_mode_write_protect=0 enable=1
}

# map TARGET LUN VOLUME: maps VOLUME to LUN of the target.
map() {
    [ -e "$config/target/core/fileio_0/$3" ] && mkdir "$iscsi:$1/tpgt_1/lun/lun_$2" &&
        ln -s "$config/target/core/fileio_0/$3" "$iscsi:$1/tpgt_1/lun/lun_$2/volume"
}

# unmap TARGET LUN: removes the mapping of LUN.
unmap() {
    rm "$iscsi:$1/tpgt_1/lun/lun_$2/volume" &&
        rmdir "$iscsi:$1/tpgt_1/lun/lun_$2"
}

# disable TARGET: ends all connections to it and accepts no new ones.
disable() { put "$iscsi:$1/tpgt_1" enable=0 && rmdir "$iscsi:$1/tpgt_1/np/127.0.0.1:3260"; }

# cut_off TARGET: disables it, and waits until the kernel gives up the session. Until then, the kernel blocks every
# command to its disks.
cut_off() { disable "$1" && wait_for session_is "$1" FREE; }

# reconnect TARGET: enables it again, and waits until the initiator has restored the session.
reconnect() {
    target "$1"
    wait_for session_is "$1" LOGGED_IN
}

session_is() {
    local name
    name=$(grep -lx "${iscsi##*/}:$1" /sys/class/iscsi_session/*/targetname)
    grep -qx "$2" "${name%/*}/state"
}

# subsystem: creates an NVMe subsystem with a TCP port.
subsystem() {
    local port=$config/nvmet/ports/1
    mkdir "$config/nvmet/subsystems/$nqn" "$port"
    put "$config/nvmet/subsystems/$nqn" attr_allow_any_host=1
    put "$port" addr_adrfam=ipv4 addr_trtype=tcp addr_traddr=127.0.0.1 addr_trsvcid=4420
    ln -s "$config/nvmet/subsystems/$nqn" "$port/subsystems/"
}

# namespace NSID NAME: creates a namespace of the subsystem. NAME is the last two hexadecimal digits of its UUID.
namespace() {
    mkdir "$config/nvmet/subsystems/$nqn/namespaces/$1"
    put "$config/nvmet/subsystems/$nqn/namespaces/$1" device_path="/dev/ram$1" device_uuid="$uuid$2" enable=1
}
