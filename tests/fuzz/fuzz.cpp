// Coverage-guided targets for everything that comes from outside the process. The build makes one program of each:
// VD_FUZZ_TARGET names its function. What must hold for every input is a CHECK.
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "log.h"
#include "safestr_scan.h"
#include "scan_disk.h"
#include "scan_report_lun.h"
#include "scan_target.h"
#include "scan_wwn.h"
#include "udev_product.h"
#include "udev_settings.h"
#include "util_udev.h"

// The formats of FuzzScan are put together from its input.
#pragma GCC diagnostic ignored "-Wformat-nonliteral"

#define CHECK(condition) ((condition) ? (void)0 : Fail(__LINE__, #condition))

namespace {

std::string_view g_input;
std::vector<std::string> g_device;  // path, vendor, model, wwid, target of the generic link

[[noreturn]] void Fail(int line, const char *condition)
{
    (void)std::fprintf(stderr, "fuzz.cpp:%d: %s\n", line, condition);
    std::abort();
}

}  // namespace

// The platform as the product sees it: the linker leads these calls here.
extern "C" {
FILE *__real_fopen(const char *path, const char *mode);
FILE *__wrap_fopen(const char *path, const char *mode)
{
    return std::strncmp(path, "/etc/vd", 7) == 0 ? fmemopen(const_cast<char *>(g_input.data()), g_input.size(), mode)
                                                 : __real_fopen(path, mode);
}
ssize_t __wrap_readlink(const char * /*path*/, char *buffer, std::size_t size)
{
    return static_cast<ssize_t>(g_device[4].copy(buffer, size));
}
int __wrap_access(const char * /*path*/, int /*mode*/) { return 0; }
}

// In place of the doors to sysfs and udev.
std::int32_t INTF_UTIL_Write(const char *, const char *, const char *, std::uint32_t) { return -1; }
std::int32_t INTF_UTIL_Read(const char * /*directory*/, const char *file, char *buffer, std::int32_t length)
{
    const std::string &content = g_device[*file == 'v' ? 1 : *file == 'm' ? 2 : 3];
    return static_cast<std::int32_t>(content.copy(buffer, static_cast<std::size_t>(length)));
}
ResultCode INTF_UTIL_UdevGetDevice(const char * /*subsystem*/, UdevDeviceHandler handler)
{
    handler(g_device[0].c_str(), nullptr);
    return RET_OK;
}

namespace {

// As /etc/vd_plus.conf: every entry that is read is one that a query finds, and holds nothing that the format takes
// out. As /etc/vdLinux.conf: no line moves a setting out of its range.
[[maybe_unused]] void FuzzConfig()
{
    CHECK(UDEV_InitConfig() == 1 && UDEV_InitVdLinuxConfig() == RET_OK);
    for (const ProductNode &node : Products()) {
        for (const char *field : {node.ruler_name, node.vendor_id, node.product_id, node.driver}) {
            CHECK(std::strlen(field) < kProductFieldSize && std::strpbrk(field, " \t\r\n\";,=\\") == nullptr);
        }
        CHECK(UDEV_DeviceIsSupport(node.vendor_id, node.product_id) == 1);
    }
    UDEV_FreeProductList();
    for (const std::string name : {"dev_loss_tmo", "fast_io_fail_tmo", "recovery_tmo", "scsi_timeout"}) {
        char text[12];
        CHECK(UDEV_GetVdLinuxCfgValue(name.c_str(), text, sizeof text) == RET_OK);
        CHECK(std::atoi(text) >= (name[0] == 'd' || name[0] == 's' ? 1 : 0));
        CHECK(std::atoi(text) <= (name[0] == 'f' ? 599 : 600));
    }
}

// A LUN list is stored whole or not at all, and only a whole designator of the right kind becomes a WWN.
[[maybe_unused]] void FuzzAnswers()
{
    ScsiSession session = {};
    ScsiDisk disk = {};
    const auto *bytes = reinterpret_cast<const std::uint8_t *>(g_input.data());
    const auto size = static_cast<std::uint32_t>(g_input.size());
    CHECK(SCAN_ParseReportLunids(session, bytes, size) == (size % 8 == 0 ? RET_OK : RET_DATA_INVALID));
    CHECK(session.lunCount == (size % 8 == 0 ? size / 8 : 0));
    for (std::size_t i = 0; i < 8UL * session.lunCount; ++i) {
        // On the wire each 16-bit level has its high byte first.
        CHECK(static_cast<std::uint8_t>(session.lunList[i / 8] >> (8 * (i % 8 ^ 1))) == bytes[i]);
    }
    std::free(session.lunList);
    const bool isValid = size >= 20 && bytes[1] % 64 == 3 && bytes[3] == 16;
    CHECK(SCAN_ParseDiskWwn(disk, bytes, size + 4) == (isValid ? RET_OK : RET_DATA_INVALID));
    CHECK(std::strlen(disk.curWwn) == (isValid ? kWwnLength : 0));
    for (std::size_t i = 0; i < std::strlen(disk.curWwn); ++i) {
        CHECK(disk.curWwn[i] == "0123456789abcdef"[bytes[4 + i / 2] >> (i % 2 == 0 ? 4 : 0) & 15]);
    }
}

// A device is filed under the very numbers of its name, none of them wrapped or cut, or not at all.
[[maybe_unused]] void FuzzInventory()
{
    g_device.clear();
    std::istringstream fields{std::string(g_input)};
    for (std::string field; std::getline(fields, field, '|');) {
        g_device.push_back(field);
    }
    g_device.resize(5);
    char entry[] = "vendor_id=V,product_id=P";
    std::uint8_t vendorsUnit = 1;
    UDEV_AnalyzeLine(entry, sizeof entry, &vendorsUnit);
    SCAN_GetAllScanTargets();
    SCAN_GetAllScsiDisk();
    for (const NvmeCtrl &ctrl : Controllers()) {
        CHECK(std::strncmp(ctrl.ctrlName, "nvme", 4) == 0 &&
              ctrl.ctrlName[4 + std::strspn(ctrl.ctrlName + 4, "0123456789")] == '\0');
    }
    for (const ScsiSession &session : Sessions()) {
        const ScsiDisk &disk = *DisksOf(session).begin();
        long long h = 0, c = 0, t = 0, l = 0;
        CHECK(g_device[0].starts_with(disk.devPath + std::string("/scsi_disk/")));
        const char *numbers = g_device[0].c_str() + std::strlen(disk.devPath) + std::strlen("/scsi_disk/");
        CHECK(std::sscanf(numbers, "%lld:%lld:%lld:%lld", &h, &c, &t, &l) == 4);
        // Behind a minus sign, as scanf's %u negates it.
        const auto isFiledAs = [](std::uint32_t filed, long long number) {
            return std::llabs(number) <= UINT32_MAX && filed == static_cast<std::uint32_t>(number);
        };
        CHECK(isFiledAs(disk.host, h) && isFiledAs(disk.channel, c) && isFiledAs(disk.target, t));
        CHECK(isFiledAs(disk.lun, l));
        CHECK(disk.host == session.host && disk.channel == session.channel && disk.target == session.target);
        // Groups "\\x20" behind the product do not count.
        CHECK(std::strcmp(disk.vendor, "V") == 0 && std::strspn(disk.product, "P\\x20") == std::strlen(disk.product));
        CHECK(std::strlen(disk.wwid) == kWwnLength && std::strncmp(disk.sgName, "/dev/sg", 7) == 0);
    }
    SCAN_FreeAllScsiSession();
    SCAN_FreeAllScsiHost();
    SCAN_FreeAllNvmeCtrl();
    UDEV_FreeProductList();
}

// Up to three conversions against an input: the C library's scanf finds the same wherever every field fits.
[[maybe_unused]] void FuzzScan()
{
    constexpr std::string_view kConversions[] = {"%d",     "%u",   "%hhd", "%hu",    "%lx", "%i", "%3d", "%s",
                                                 "%4s",    "%c",   "%3c",  "%[a-z]", "%p",  "%o", "%*d", "%*s",
                                                 "%[^]:]", "%lld", "%f",   "%lg",    " ",   ":",  "%%",  "%n"};
    constexpr std::size_t kSize = 16;
    if (g_input.size() < 4) {
        return;
    }
    alignas(kSize) char ours[3][kSize] = {}, theirs[3][kSize] = {};
    std::string format;
    std::uint64_t args[6] = {}, used = 0, fields = 0;
    for (std::size_t i = 0; i < 3; ++i) {
        const std::string_view conversion =
            kConversions[static_cast<std::uint8_t>(g_input[i]) % std::size(kConversions)];
        format += conversion;
        if (conversion[0] == '%' && conversion[1] != '*' && conversion[1] != '%') {
            args[used++] = reinterpret_cast<std::uint64_t>(ours[fields++]);
            args[used] = kSize;
            used += conversion.find_first_of("sc[") == std::string_view::npos ? 0 : 1;
        }
    }
    const std::string input = std::string(g_input.substr(3)).c_str();  // up to a NUL
    errno = EDOM;
    const int count = sscanf_s(input.c_str(), format.c_str(), args[0], args[1], args[2], args[3], args[4], args[5]);
    CHECK(errno == EDOM);
    const bool allFit =
        input.size() < kSize && format.find("hh") == std::string::npos &&
        std::count_if(input.begin(), input.end(), [](unsigned char c) { return std::isxdigit(c) != 0; }) < 4;
    if (allFit && !input.empty()) {
        const int expected = std::sscanf(input.c_str(), format.c_str(), theirs[0], theirs[1], theirs[2]);
        // Where the input ends, the C library does not take a suppressed conversion for a done one.
        CHECK(count == expected || (format.find('*') != std::string::npos && count == 0 && expected == EOF));
        CHECK(std::memcmp(ours, theirs, sizeof ours) == 0);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    (void)LOG_Init("/dev/null");  // the records are formatted all the same
    g_input = {reinterpret_cast<const char *>(data), size};
    VD_FUZZ_TARGET();
    return 0;
}
