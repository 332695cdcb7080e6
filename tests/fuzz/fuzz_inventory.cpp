// Uses the input as the path and the wwid of a device, "PATH|WWID". The device is added under exactly the numbers in
// its name, or not at all.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "scan_disk.h"
#include "scan_state.h"
#include "scan_target.h"
#include "target.h"
#include "udev_product.h"
#include "util_udev.h"

namespace {

std::string g_path;
std::string g_wwid;

}  // namespace

// The linker redirects readlink and access to these functions.
extern "C" ssize_t __wrap_readlink(const char * /*path*/, char *buffer, std::size_t size)
{
    return static_cast<ssize_t>(std::string("a/scsi_generic/sg1").copy(buffer, size));
}

extern "C" int __wrap_access(const char * /*path*/, int /*mode*/) { return 0; }

// Replace the functions that access sysfs and udev.
std::int32_t INTF_UTIL_Write(const char *, const char *, const char *, std::uint32_t, std::uint64_t) { return -1; }

std::uint64_t INTF_UTIL_Inode(const char *) { return 0; }

std::int32_t INTF_UTIL_Read(const char * /*directory*/, const char *file, char *buffer, std::int32_t length)
{
    const std::string attribute = *file == 'v' ? "V" : *file == 'm' ? "P" : g_wwid;
    return static_cast<std::int32_t>(attribute.copy(buffer, static_cast<std::size_t>(length)));
}

ResultCode INTF_UTIL_UdevGetDevice(const char * /*subsystem*/, UdevDeviceHandler handler)
{
    handler(g_path.c_str(), nullptr);
    return RET_OK;
}

namespace {

// A number after a minus sign is negated, as scanf's %u does.
bool IsFiledAs(std::uint32_t filed, long long number)
{
    return std::llabs(number) <= UINT32_MAX && filed == static_cast<std::uint32_t>(number);
}

void CheckDisk(const ScsiDisk &disk)
{
    const std::string before = disk.devPath + std::string("/scsi_disk/");
    CHECK(g_path.starts_with(before));
    long long h = 0;
    long long c = 0;
    long long t = 0;
    long long l = 0;
    CHECK(std::sscanf(g_path.c_str() + before.size(), "%lld:%lld:%lld:%lld", &h, &c, &t, &l) == 4);
    CHECK(IsFiledAs(disk.host, h) && IsFiledAs(disk.channel, c) && IsFiledAs(disk.target, t) && IsFiledAs(disk.lun, l));
    CHECK(std::strlen(disk.wwid) == kWwnLength && g_wwid.find(disk.wwid) != std::string::npos);
}

}  // namespace

void Run(std::string_view input)
{
    g_path = input.substr(0, input.find('|'));
    g_wwid = input.substr(std::min(g_path.size() + 1, input.size()));
    char entry[] = "vendor_id=V,product_id=P";
    std::uint8_t vendorsUnit = 1;
    SCAN_InitLists();
    UDEV_AnalyzeLine(entry, sizeof entry, &vendorsUnit);
    SCAN_GetAllScanTargets();
    SCAN_GetAllScsiDisk();
    for (const NvmeCtrl &ctrl : Controllers()) {
        CHECK(std::strncmp(ctrl.ctrlName, "nvme", 4) == 0);
        CHECK(ctrl.ctrlName[4 + std::strspn(ctrl.ctrlName + 4, "0123456789")] == '\0');
    }
    for (const ScsiSession &session : Sessions()) {
        const ScsiDisk &disk = *DisksOf(session).begin();
        CHECK(disk.host == session.host && disk.channel == session.channel && disk.target == session.target);
        CheckDisk(disk);
    }
    SCAN_FreeAllScsiSession();
    SCAN_FreeAllScsiHost();
    SCAN_FreeAllNvmeCtrl();
    UDEV_FreeProductList();
}
