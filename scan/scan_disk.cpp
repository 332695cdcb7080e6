#include "scan_disk.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "safestr_format.h"
#include "safestr_scan.h"
#include "safestr_string.h"
#include "scan_print.h"
#include "scan_state.h"
#include "udev_product.h"
#include "util_string.h"
#include "util_udev.h"

namespace {

constexpr std::size_t kLinkSize = 128;  // bytes of a generic link's target, the terminator included

// `text` for a message, or "" if it is null because a separator was missing.
const char *TextOf(const char *text)
{
    return text == nullptr ? "" : text;
}

ResultCode SCAN_GetScsiDiskWwid(ScsiDisk &disk)
{
    char buffer[kPathSize] = {};
    if (INTF_UTIL_Read(disk.devPath, "wwid", buffer, TEXT_Limit(buffer)) < 0) {
        SCAN_Record(LogLevel::Error, "scsi disk get wwid fail by path{%s}.\n", disk.devPath);
        return RET_FAIL;
    }
    char *digits = buffer;
    const char *head = INTF_UTIL_StrSep(&digits, "naa.");
    if (digits == nullptr || std::strlen(digits) != kWwnLength) {
        SCAN_Record(LogLevel::Error, "scsi disk get wwid{%s, %s} fail by path{%s}.\n", head, TextOf(digits),
                    disk.devPath);
        return RET_FAIL;
    }
    if (INTF_UTIL_IsHexStr(digits) != 1) {
        SCAN_Record(LogLevel::Error, "scsi disk get wwid{%s} fail by path{%s}.\n", digits, disk.devPath);
        return RET_FAIL;
    }
    if (strncpy_s(disk.wwid, sizeof disk.wwid, digits, kWwnLength) != 0) {
        SCAN_Record(LogLevel::Error, "scsi disk get wwid{%s} copy fail by path{%s}.\n", digits, disk.devPath);
        return RET_FAIL;
    }
    return RET_OK;
}

ResultCode SCAN_GetScsiDiskSgName(ScsiDisk &disk)
{
    char path[kPathSize] = {};
    char link[kLinkSize] = {};
    if (sprintf_s(path, TEXT_Limit(path), "%s/generic", disk.devPath) == -1) {
        SCAN_Record(LogLevel::Error, "structure full name fail with path{%s}.\n", disk.devPath);
        return RET_FAIL;
    }
    const ssize_t linkLength = readlink(path, link, TEXT_Limit(link));
    if (linkLength < 0) {
        SCAN_Record(LogLevel::Error, "full name{%s} read link fail.\n", path);
        return RET_FAIL;
    }
    // A link that fills the buffer may be truncated, and a truncated name may be another disk's.
    const bool mayBeCut = static_cast<std::size_t>(linkLength) == TEXT_Limit(link);
    char *name = link;
    (void)INTF_UTIL_StrSep(&name, "scsi_generic/");  // only what follows the separator counts
    if (name == nullptr || mayBeCut || std::strncmp(name, "sg", 2) != 0) {
        SCAN_Record(LogLevel::Error, "full name{%s} read link{%s} sg name{%s} invalid.\n", path, link, TextOf(name));
        return RET_FAIL;
    }
    if (sprintf_s(disk.sgName, TEXT_Limit(disk.sgName), "/dev/%s", name) == -1) {
        SCAN_Record(LogLevel::Error, "structure sg name fail with name{%s}.\n", name);
        return RET_FAIL;
    }
    if (access(disk.sgName, R_OK) < 0) {
        SCAN_Record(LogLevel::Error, "sg{%s} check read authority fail.\n", disk.sgName);
        return RET_FAIL;
    }
    return RET_OK;
}

ResultCode SCAN_InitScsiDisk(ScsiDisk &disk)
{
    if (INTF_UTIL_Read(disk.devPath, "vendor", disk.vendor, kVendorLength) < 0) {
        SCAN_Record(LogLevel::Error, "scsi disk get vendor fail by path{%s}.\n", disk.devPath);
        return RET_FAIL;
    }
    if (INTF_UTIL_Read(disk.devPath, "model", disk.product, kProductLength) < 0) {
        // An entry without a product still matches such a disk.
        SCAN_Record(LogLevel::Error, "scsi disk get product fail by path{%s}.\n", disk.devPath);
    }
    INTF_UTIL_TrimTailSpace(disk.vendor, sizeof disk.vendor);
    INTF_UTIL_TrimTailSpace(disk.product, sizeof disk.product);
    if (UDEV_DeviceIsSupport(disk.vendor, disk.product) == 0) {
        SCAN_Record(LogLevel::Info, "scsi disk{%u:%u:%u:%u} isn't support with vendor{%s} product{%s}.\n", disk.host,
                    disk.channel, disk.target, disk.lun, disk.vendor, disk.product);
        return RET_FAIL;
    }
    if (SCAN_GetScsiDiskWwid(disk) != RET_OK) {
        return RET_FAIL;
    }
    return SCAN_GetScsiDiskSgName(disk);
}

ScsiSession *SCAN_SessionLookupCreate(const ScsiDisk &disk)
{
    for (ScsiSession &session : Sessions()) {
        if (session.host == disk.host && session.channel == disk.channel && session.target == disk.target) {
            return &session;
        }
    }
    OwnedMemory<ScsiSession> session = LIST_NewRecord<ScsiSession>();
    if (session == nullptr) {
        SCAN_Record(LogLevel::Error, "scsi session malloc fail by sg{%s}.\n", disk.sgName);
        return nullptr;
    }
    LIST_Init(session->disks);
    session->host = disk.host;
    session->channel = disk.channel;
    session->target = disk.target;
    ScsiSession *filed = session.release();  // now owned by the list
    LIST_Append(filed->link, g_sessionList);
    SCAN_Record(LogLevel::Info, "create scsi session{%u:%u:%u} finish.\n", filed->host, filed->channel, filed->target);
    return filed;
}

ResultCode SCAN_SessionAddDisk(ScsiDisk &disk)
{
    ScsiSession *session = SCAN_SessionLookupCreate(disk);
    if (session == nullptr) {
        return RET_FAIL;
    }
    LIST_Append(disk.link, session->disks);
    return RET_OK;
}

void SCAN_CreateScsiDisk(const char *name, const char *directory)
{
    std::uint32_t host = 0;
    std::uint32_t channel = 0;
    std::uint32_t target = 0;
    std::uint32_t lun = 0;
    if (sscanf_s(name, "%u:%u:%u:%u", &host, &channel, &target, &lun) != 4) {
        SCAN_Record(LogLevel::Error, "get h:c:t:l{%s} by scsi disk path{%s} fail.\n", name, directory);
        return;
    }
    OwnedMemory<ScsiDisk> disk = LIST_NewRecord<ScsiDisk>();
    if (disk == nullptr) {
        SCAN_Record(LogLevel::Error, "malloc scsi disk fail by path{%s}.\n", directory);
        return;
    }
    if (strncpy_s(disk->devPath, TEXT_Limit(disk->devPath), directory, std::strlen(directory)) != 0) {
        SCAN_Record(LogLevel::Error, "scsi disk get path{%s} copy fail.\n", directory);
        return;
    }
    disk->host = host;
    disk->channel = channel;
    disk->target = target;
    disk->lun = lun;
    // Read first: if another directory replaces this one later, the inode differs, and that device is not deleted.
    disk->inode = INTF_UTIL_Inode(disk->devPath);
    if (SCAN_InitScsiDisk(*disk) != RET_OK || SCAN_SessionAddDisk(*disk) != RET_OK) {
        return;
    }
    const ScsiDisk *filed = disk.release();  // now owned by its session
    SCAN_Record(LogLevel::Info, "create scsi disk{%u:%u:%u:%u, %s, %s, %s, %s} finish.\n", filed->host, filed->channel,
                filed->target, filed->lun, filed->vendor, filed->product, filed->wwid, filed->sgName);
}

void SCAN_HandUdevScsiDisk(const char *path, udev_device * /*device*/)
{
    if (path == nullptr) {
        return;
    }
    char buffer[kPathSize] = {};
    if (strncpy_s(buffer, TEXT_Limit(buffer), path, std::strlen(path)) != 0) {
        SCAN_Record(LogLevel::Error, "scsi disk path{%s} copy fail.\n", path);
        return;
    }
    char *name = buffer;
    const char *directory = INTF_UTIL_StrSep(&name, "/scsi_disk/");
    if (name == nullptr) {
        SCAN_Record(LogLevel::Error, "scsi disk strtok hctl by path{%s} fail.\n", path);
        return;
    }
    SCAN_CreateScsiDisk(name, directory);
}

void SCAN_FreeScsiDiskList(ListNode &disks)
{
    LIST_Free<ScsiDisk>(disks);
}

}  // namespace

void SCAN_GetAllScsiDisk()
{
    if (INTF_UTIL_UdevGetDevice("scsi_disk", SCAN_HandUdevScsiDisk) != RET_OK) {
        SCAN_Print(LogLevel::Error, "ERROR: get scsi disk fail by udev.\n");
    }
}

void SCAN_FreeAllScsiSession()
{
    LIST_Free<ScsiSession>(g_sessionList, [](ScsiSession *session) {
        SCAN_FreeScsiDiskList(session->disks);
        std::free(session->lunList);
        std::free(session);
    });
}
