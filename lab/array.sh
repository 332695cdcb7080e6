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

# volume NAME VENDOR PRODUCT: a logical unit. NAME is two hexadecimal digits, and they end
# its world-wide name; the kernel puts 6001405 in front of the serial number.
volume() {
    local volume=$config/target/core/rd_mcp_0/$1
    mkdir -p "$volume"
    put "$volume" control=rd_pages=16 enable=1 wwn/vendor_id="$2" wwn/product_id="$3" \
        wwn/vpd_unit_serial="${naa#6001405}$1"
}

# target NAME: a target port without authentication.
target() {
    local tpg=$iscsi:$1/tpgt_1
    mkdir -p "$tpg/np/127.0.0.1:3260"
    put "$tpg" attrib/authentication=0 attrib/generate_node_acls=1 enable=1
}

# login TARGET: each session gives its own SCSI host. One that is lost is given up after two
# seconds instead of two minutes.
login() {
    iscsistart -i "${iscsi##*/}:host" -t "${iscsi##*/}:$1" -g 1 -a 127.0.0.1 \
        -P node.session.timeo.replacement_timeout=2 > /run/iscsistart.log 2>&1
}

# map TARGET LUN VOLUME
map() {
    mkdir "$iscsi:$1/tpgt_1/lun/lun_$2"
    ln -s "$config/target/core/rd_mcp_0/$3" "$iscsi:$1/tpgt_1/lun/lun_$2/volume"
}

# unmap TARGET LUN
unmap() {
    rm "$iscsi:$1/tpgt_1/lun/lun_$2/volume"
    rmdir "$iscsi:$1/tpgt_1/lun/lun_$2"
}

# cut_off TARGET DISK: no way leads to the target any more. Returns when the kernel has
# given up the session; until then it holds back every command to its disks.
cut_off() {
    put "$iscsi:$1/tpgt_1" enable=0
    rmdir "$iscsi:$1/tpgt_1/np/127.0.0.1:3260"
    timeout 600 sh -c "until grep -q transport-offline /sys/class/scsi_device/$2/device/state; do sleep 1; done"
}

# subsystem: an NVMe subsystem, reached through TCP.
subsystem() {
    local port=$config/nvmet/ports/1
    mkdir "$config/nvmet/subsystems/$nqn" "$port"
    put "$config/nvmet/subsystems/$nqn" attr_allow_any_host=1
    put "$port" addr_adrfam=ipv4 addr_trtype=tcp addr_traddr=127.0.0.1 addr_trsvcid=4420
    ln -s "$config/nvmet/subsystems/$nqn" "$port/subsystems/"
}

# connect: the controller's notices of new namespaces are switched off, or the kernel would
# find them unasked.
connect() {
    nvme connect -t tcp -a 127.0.0.1 -s 4420 -n "$nqn" --hostnqn "$nqn:host" --hostid "${uuid}ff"
    nvme set-feature /dev/nvme0 -f 0x0b -v 0 > /dev/null
}

# namespace NSID NAME: NAME is two hexadecimal digits that end its UUID.
namespace() {
    mkdir "$config/nvmet/subsystems/$nqn/namespaces/$1"
    put "$config/nvmet/subsystems/$nqn/namespaces/$1" device_path="/dev/ram$1" device_uuid="$uuid$2" enable=1
}
