#include "scan_target.h"

#include <cstdlib>
#include <cstring>

#include "safestr_format.h"
#include "safestr_memory.h"
#include "safestr_scan.h"
#include "safestr_string.h"
#include "scan_print.h"
#include "scan_state.h"
#include "util_string.h"
#include "util_udev.h"

namespace {

constexpr std::size_t kShellCommandSize = 256;
constexpr const char *kFabricsPrefix = "/sys/devices/virtual/nvme-fabrics/ctl/";

OwnedMemory<ScsiHost> SCAN_CreateScsiHost(std::int32_t hostNo, const char *path)
{
    OwnedMemory<ScsiHost> host = LIST_NewRecord<ScsiHost>();
    if (host == nullptr) {
        SCAN_Record(LogLevel::Error, "malloc scsi host by num{%d} fail.\n", hostNo);
        return nullptr;
    }
    // A path that is too long leaves the field empty. The host stays in the list, and its rescan prints a failure.
    (void)strncpy_s(host->sysPath, TEXT_Limit(host->sysPath), path, std::strlen(path));
    host->hostNo = hostNo;
    SCAN_Record(LogLevel::Info, "create scsi host{%d} finish.\n", hostNo);
    return host;
}

void SCAN_HandUdevScsiHost(const char *path, udev_device * /*device*/)
{
    if (path == nullptr) {
        return;
    }
    char buffer[kPathSize] = {};
    // A path that is too long leaves the buffer empty, so it has no number.
    // The zeros of the buffer terminate the path: NOLINTNEXTLINE(bugprone-not-null-terminated-result)
    (void)memcpy_s(buffer, TEXT_Limit(buffer), path, std::strlen(path));
    char *cursor = buffer;
    const char *tail = buffer;
    while (cursor != nullptr) {
        tail = INTF_UTIL_StrSep(&cursor, "/scsi_host/host");
    }
    std::int32_t hostNo = 0;
    if (sscanf_s(tail, "%d", &hostNo) != 1) {
        SCAN_Record(LogLevel::Error, "get host num by scsi host path{%s} fail.\n", path);
        return;
    }
    OwnedMemory<ScsiHost> host = SCAN_CreateScsiHost(hostNo, path);
    if (host != nullptr) {
        LIST_Append(host.release()->link, g_scsiHostList);
    }
}

ResultCode SCAN_CheckNvmeCtrlName(const char *name)
{
    constexpr char kPrefix[] = "nvme";
    constexpr std::size_t kPrefixLength = sizeof kPrefix - 1;
    if (std::strncmp(name, kPrefix, kPrefixLength) != 0) {
        return RET_FAIL;
    }
    const char *digits = name + kPrefixLength;
    return digits[std::strspn(digits, "0123456789")] == '\0' ? RET_OK : RET_FAIL;
}

OwnedMemory<NvmeCtrl> SCAN_CreateNvmeCtrl(const char *name)
{
    if (SCAN_CheckNvmeCtrlName(name) != RET_OK) {
        SCAN_Record(LogLevel::Error, "get the ctrl{%s} is invalid.\n", name);
        return nullptr;
    }
    OwnedMemory<NvmeCtrl> ctrl = LIST_NewRecord<NvmeCtrl>();
    if (ctrl == nullptr) {
        SCAN_Record(LogLevel::Error, "%s.\n", "malloc nvme ctrl fail");
        return nullptr;
    }
    if (strncpy_s(ctrl->ctrlName, TEXT_Limit(ctrl->ctrlName), name, std::strlen(name)) != 0) {
        SCAN_Record(LogLevel::Error, "strncpy_s ctrl failed by{%s}.\n", name);
        return nullptr;
    }
    SCAN_Record(LogLevel::Info, "create nvme ctrl{%s} finish.\n", ctrl->ctrlName);
    return ctrl;
}

void SCAN_HandUdevNvmeHost(const char *path, udev_device * /*device*/)
{
    if (path == nullptr) {
        return;
    }
    char buffer[kPathSize] = {};
    // A path that is too long leaves the buffer empty, so it has no prefix.
    // The zeros of the buffer terminate the path: NOLINTNEXTLINE(bugprone-not-null-terminated-result)
    (void)memcpy_s(buffer, TEXT_Limit(buffer), path, std::strlen(path));
    char *name = buffer;
    (void)INTF_UTIL_StrSep(&name, kFabricsPrefix);  // ignore the text before the prefix
    if (name == nullptr) {
        SCAN_Record(LogLevel::Error, "nvme strtok ctrl by path{%s} fail.\n", path);
        return;
    }
    OwnedMemory<NvmeCtrl> ctrl = SCAN_CreateNvmeCtrl(name);
    if (ctrl != nullptr) {
        LIST_Append(ctrl.release()->link, g_nvmeCtrlList);
    }
}

void SCAN_ScanScsiHost(const ScsiHost &host)
{
    SCAN_Print(LogLevel::Info, "    scan host%d ", host.hostNo);
    constexpr char kWildcards[] = "- - -";  // every channel, target and LUN
    if (INTF_UTIL_Write(host.sysPath, "scan", kWildcards, sizeof kWildcards - 1) < 1) {
        SCAN_Print(LogLevel::Error, "fail.\n");
        return;
    }
    SCAN_Print(LogLevel::Info, "success.\n");
}

void SCAN_ScanAllScsiHost()
{
    SCAN_Print(LogLevel::Info, "start scan scsi host......\n");
    for (const ScsiHost &host : Hosts()) {
        SCAN_ScanScsiHost(host);
    }
    SCAN_Print(LogLevel::Info, "end scan scsi host.\n");
}

void SCAN_ScanNvmeCtrl(const NvmeCtrl &ctrl)
{
    char command[kShellCommandSize] = {};
    SCAN_Print(LogLevel::Info, "    scan %s ", ctrl.ctrlName);
    if (sprintf_s(command, TEXT_Limit(command), "nvme ns-rescan /dev/%s > /dev/null 2>&1", ctrl.ctrlName) == -1) {
        SCAN_Record(LogLevel::Error, "sprintf_s the nvme rescan commad failed.\n");
        SCAN_Print(LogLevel::Error, "fail.\n");
        return;
    }
    // The name is "nvme" and digits, so the shell has nothing to expand: NOLINTNEXTLINE(cert-env33-c)
    if (std::system(command) != 0) {
        SCAN_Print(LogLevel::Error, "fail.\n");
        return;
    }
    SCAN_Print(LogLevel::Info, "success.\n");
}

void SCAN_ScanAllNvmeCtrl()
{
    SCAN_Print(LogLevel::Info, "start scan nvme ctrl......\n");
    for (const NvmeCtrl &ctrl : Controllers()) {
        SCAN_ScanNvmeCtrl(ctrl);
    }
    SCAN_Print(LogLevel::Info, "end scan nvme ctrl.\n");
}

}  // namespace

void SCAN_GetAllScanTargets()
{
    if (INTF_UTIL_UdevGetDevice("scsi_host", SCAN_HandUdevScsiHost) != RET_OK) {
        SCAN_Print(LogLevel::Error, "ERROR: get scsi host fail by udev.\n");
    }
    if (INTF_UTIL_UdevGetDevice("nvme", SCAN_HandUdevNvmeHost) != RET_OK) {
        SCAN_Print(LogLevel::Error, "ERROR: get nvme ctrl fail by udev.\n");
    }
}

void SCAN_ScanAllTargets()
{
    SCAN_ScanAllScsiHost();
    SCAN_ScanAllNvmeCtrl();
}

void SCAN_FreeAllScsiHost()
{
    LIST_Free<ScsiHost>(g_scsiHostList);
}

void SCAN_FreeAllNvmeCtrl()
{
    LIST_Free<NvmeCtrl>(g_nvmeCtrlList);
}
