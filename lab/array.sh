# shellcheck shell=bash
# The storage in the guest: iSCSI and NVMe targets of the guest's own kernel, changed
# through configfs as the administrator of an array changes what it shows to a host.

config=/sys/kernel/config
iscsi=$config/target/iscsi/iqn.2024-01.lab
nqn=nqn.2024-01.lab
# What all world-wide names of volumes and all UUIDs of namespaces begin with.
naa=6001405$(printf '%023d' 0)
uuid=00000000-0000-0000-0000-0000000000

# put DIRECTORY ATTRIBUTE=VALUE...
put() {
    local directory=$1 pair
    shift
    for pair; do echo "${pair#*=}" > "$directory/${pair%%=*}"; done
}

# volume NAME VENDOR PRODUCT: a new logical unit of 16 MiB, whose bytes the array keeps in /run/NAME.
# NAME is two hexadecimal digits that end its world-wide name; the kernel puts 6001405 in front of the serial number.
volume() {
    local volume=$config/target/core/fileio_0/$1
    mkdir -p "$volume"
    truncate -s 16M "/run/$1"
    put "$volume" control="fd_dev_name=/run/$1,fd_dev_size=$((16 << 20))" enable=1 \
        wwn/vendor_id="$2" wwn/product_id="$3" wwn/vpd_unit_serial="${naa#6001405}$1"
}

# target NAME: a new target port, without authentication.
target() {
    local tpg=$iscsi:$1/tpgt_1
    mkdir -p "$tpg/np/127.0.0.1:3260"
    put "$tpg" attrib/authentication=0 attrib/generate_node_acls=1 attrib/demo_mode_write_protect=0 enable=1
}

# map TARGET LUN VOLUME: the target answers at LUN with VOLUME.
map() {
    [ -e "$config/target/core/fileio_0/$3" ] && mkdir "$iscsi:$1/tpgt_1/lun/lun_$2" &&
        ln -s "$config/target/core/fileio_0/$3" "$iscsi:$1/tpgt_1/lun/lun_$2/volume"
}

# unmap TARGET LUN: nothing answers at LUN any more.
unmap() {
    rm "$iscsi:$1/tpgt_1/lun/lun_$2/volume" &&
        rmdir "$iscsi:$1/tpgt_1/lun/lun_$2"
}

# cut_off TARGET: no way leads to it any more. Returns when the kernel has given up the session;
# until then it holds back every command to the disks.
cut_off() {
    put "$iscsi:$1/tpgt_1" enable=0 && rmdir "$iscsi:$1/tpgt_1/np/127.0.0.1:3260" && wait_for session_is "$1" FREE
}

# reconnect TARGET: mends that way. Returns when the initiator has its session again;
# it never stopped trying.
reconnect() {
    target "$1"
    wait_for session_is "$1" LOGGED_IN
}

session_is() {
    local name
    name=$(grep -lx "${iscsi##*/}:$1" /sys/class/iscsi_session/*/targetname)
    grep -qx "$2" "${name%/*}/state"
}

# subsystem: an NVMe subsystem, reached through TCP.
subsystem() {
    local port=$config/nvmet/ports/1
    mkdir "$config/nvmet/subsystems/$nqn" "$port"
    put "$config/nvmet/subsystems/$nqn" attr_allow_any_host=1
    put "$port" addr_adrfam=ipv4 addr_trtype=tcp addr_traddr=127.0.0.1 addr_trsvcid=4420
    ln -s "$config/nvmet/subsystems/$nqn" "$port/subsystems/"
}

# namespace NSID NAME: a new namespace of the NVMe subsystem. NAME is two hexadecimal digits that end its UUID.
namespace() {
    mkdir "$config/nvmet/subsystems/$nqn/namespaces/$1"
    put "$config/nvmet/subsystems/$nqn/namespaces/$1" device_path="/dev/ram$1" device_uuid="$uuid$2" enable=1
}
