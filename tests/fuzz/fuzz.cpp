// Coverage-guided targets for everything that comes from outside the process. The build makes one program of each:
// VD_FUZZ_TARGET names its function. What must hold for every input is a CHECK.
#include <libudev.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "safestr_format.h"
#include "safestr_scan.h"
#include "scan_disk.h"
#include "scan_report_lun.h"
#include "scan_state.h"
#include "scan_target.h"
#include "scan_wwn.h"
#include "udev_product.h"
#include "udev_settings.h"

// The formats of FuzzScan are put together from its input.
#pragma GCC diagnostic ignored "-Wformat-nonliteral"

#define CHECK(condition) ((condition) ? (void)0 : Fail(__LINE__, #condition))

namespace {

constexpr std::size_t kLinesPerDevice = 5;  // path, vendor, model, wwid, target of the generic link
constexpr std::string_view kAttributes[] = {"/vendor", "/model", "/wwid", "/generic"};

std::span<const std::uint8_t> g_input;
std::vector<std::string> g_lines;  // devices of the made-up tree
std::size_t g_device = 0;          // first line of the device at hand

[[noreturn]] void Fail(int line, const char *condition)
{
    (void)std::fprintf(stderr, "fuzz.cpp:%d: %s\n", line, condition);
    std::abort();
}

std::string Text(std::size_t from) { return {g_input.begin() + static_cast<std::ptrdiff_t>(from), g_input.end()}; }

}  // namespace

// The platform as the product sees it: the linker leads its calls here.
extern "C" {
FILE *__real_fopen(const char *path, const char *mode);
FILE *__wrap_fopen(const char *path, const char *mode)
{
    static std::vector<std::uint8_t> content;
    static char trace[1 << 16];
    if (std::strncmp(path, "/etc/vd", 7) == 0) {
        content.assign(g_input.begin(), g_input.end());
        return fmemopen(content.data(), content.size(), "rb+");
    }
    return *path == '\0' ? fmemopen(trace, sizeof trace, "w") : __real_fopen(path, mode);  // no trace path is set
}
ssize_t __wrap_readlink(const char *path, char *buffer, std::size_t size)
{
    for (std::size_t i = 0; i < std::size(kAttributes); ++i) {
        if (std::string_view(path).ends_with(kAttributes[i])) {
            return static_cast<ssize_t>(g_lines[g_device + 1 + i].copy(buffer, size));
        }
    }
    return -1;
}
int __wrap_access(const char * /*path*/, int /*mode*/) { return 0; }

// A libudev whose list entries are the paths in g_lines.
udev *udev_new() { return reinterpret_cast<udev *>(&g_lines); }
udev *udev_unref(udev * /*context*/) { return nullptr; }
udev_enumerate *udev_enumerate_new(udev *context) { return reinterpret_cast<udev_enumerate *>(context); }
udev_enumerate *udev_enumerate_unref(udev_enumerate * /*enumeration*/) { return nullptr; }
int udev_enumerate_add_match_subsystem(udev_enumerate * /*enumeration*/, const char * /*subsystem*/) { return 0; }
int udev_enumerate_scan_devices(udev_enumerate * /*enumeration*/) { return 0; }
udev_list_entry *EntryAt(std::size_t line)
{
    g_device = line;
    return line + kLinesPerDevice > g_lines.size() ? nullptr : reinterpret_cast<udev_list_entry *>(&g_lines[line]);
}
udev_list_entry *udev_enumerate_get_list_entry(udev_enumerate * /*enumeration*/) { return EntryAt(0); }
udev_list_entry *udev_list_entry_get_next(udev_list_entry * /*entry*/) { return EntryAt(g_device + kLinesPerDevice); }
const char *udev_list_entry_get_name(udev_list_entry *entry) { return reinterpret_cast<std::string *>(entry)->c_str(); }
udev_device *udev_device_new_from_syspath(udev * /*context*/, const char * /*path*/) { return nullptr; }
udev_device *udev_device_unref(udev_device * /*device*/) { return nullptr; }
}

// In place of the sysfs door: attributes are lines of the input.
std::int32_t INTF_UTIL_Write(const char *, const char *, const char *, std::uint32_t) { return -1; }
std::int32_t INTF_UTIL_Read(const char * /*directory*/, const char *file, char *buffer, std::int32_t length)
{
    return static_cast<std::int32_t>(
        __wrap_readlink(("/" + std::string(file)).c_str(), buffer, static_cast<std::size_t>(length)));
}

namespace {

// Every entry that is read is one that a query finds, and holds nothing that the file format takes out.
[[maybe_unused]] void FuzzProductList()
{
    CHECK(UDEV_InitConfig() == 1);
    for (const ProductNode &node : LIST_Range<ProductNode>(g_productList)) {
        for (const char *field : {node.ruler_name, node.vendor_id, node.product_id, node.driver}) {
            CHECK(std::strlen(field) < kProductFieldSize && std::strpbrk(field, " \t\r\n\";,=\\") == nullptr);
        }
        CHECK(UDEV_DeviceIsSupport(node.vendor_id, node.product_id) == 1);
    }
    UDEV_FreeProductList();
    CHECK(g_productList.next == &g_productList);
}

// No line moves a setting out of its range.
[[maybe_unused]] void FuzzSettings()
{
    CHECK(UDEV_InitVdLinuxConfig() == RET_OK);
    for (const char *name : {"dev_loss_tmo", "fast_io_fail_tmo", "recovery_tmo", "scsi_timeout"}) {
        char text[12];
        CHECK(UDEV_GetVdLinuxCfgValue(name, text, sizeof text) == RET_OK);
        CHECK(std::atoi(text) >= (std::strstr("fast_io_fail_tmo recovery_tmo", name) != nullptr ? 0 : 1) &&
              std::atoi(text) <= (*name == 'f' ? 599 : 600));
    }
}

// The list is stored whole or not at all.
[[maybe_unused]] void FuzzReportLuns()
{
    ScsiSession session = {};
    const auto size = static_cast<std::uint32_t>(g_input.size());
    CHECK(SCAN_ParseReportLunids(session, g_input.data(), size) == (size % 8 == 0 ? RET_OK : RET_DATA_INVALID));
    CHECK(session.lunCount == (size % 8 == 0 ? size / 8 : 0));
    CHECK((session.lunList == nullptr) == (session.lunCount == 0));
    for (std::size_t byte = 0; byte < 8UL * session.lunCount; ++byte) {
        // On the wire each 16-bit level has its high byte first.
        CHECK(static_cast<std::uint8_t>(session.lunList[byte / 8] >> (8 * (byte % 8 ^ 1))) == g_input[byte]);
    }
    std::free(session.lunList);
}

// Only a whole designator of the right kind becomes a WWN.
[[maybe_unused]] void FuzzWwnPage()
{
    std::uint8_t page[1024] = {};
    std::copy_n(g_input.begin(), std::min(g_input.size(), sizeof page), page);
    const std::uint32_t length = page[2] * 256U + page[3];
    const bool isValid = length >= 20 && page[5] % 64 == 3 && page[7] == 16;
    ScsiDisk disk = {};
    CHECK(SCAN_ParseDiskWwn(disk, page + 4, length + 4) == (isValid ? RET_OK : RET_DATA_INVALID));
    CHECK(std::strlen(disk.curWwn) == (isValid ? kWwnLength : 0));
    for (std::size_t i = 0; i < std::strlen(disk.curWwn); ++i) {
        CHECK(disk.curWwn[i] == "0123456789abcdef"[page[8 + i / 2] >> (i % 2 == 0 ? 4 : 0) & 15]);
    }
}

// True when `line` is `prefix` and the disk's own four numbers, none of them wrapped or cut.
bool Names(const std::string &line, const std::string &prefix, const ScsiDisk &disk)
{
    const char *at = line.c_str() + prefix.size();
    bool same = line.starts_with(prefix);
    for (const std::uint32_t number : {disk.host, disk.channel, disk.target, disk.lun}) {
        char *end = nullptr;
        errno = 0;
        same = same && std::strtoull(at, &end, 10) == number && errno == 0;
        at = same ? end + (*end == ':' ? 1 : 0) : at;
    }
    return same;
}

// A device is filed under the very numbers of its name, or not at all.
[[maybe_unused]] void FuzzInventory()
{
    g_lines.clear();
    const std::string text = Text(0);
    for (std::size_t at = 0, end = 0; end != std::string::npos; at = end + 1) {
        end = text.find('\n', at);
        g_lines.emplace_back(text.substr(at, end - at).c_str());  // up to a NUL
    }
    char entry[] = "vendor_id=V,product_id=P";
    std::uint8_t vendorsUnit = 1;
    UDEV_AnalyzeLine(entry, sizeof entry, &vendorsUnit);
    SCAN_GetAllScanTargets();
    SCAN_GetAllScsiDisk();
    for (const NvmeCtrl &ctrl : LIST_Range<NvmeCtrl>(g_nvmeCtrlList)) {
        CHECK(std::strncmp(ctrl.ctrlName, "nvme", 4) == 0 &&
              ctrl.ctrlName[4 + std::strspn(ctrl.ctrlName + 4, "0123456789")] == '\0');
    }
    for (ScsiSession &session : LIST_Range<ScsiSession>(g_sessionList)) {
        CHECK(session.disks.next != &session.disks);
        for (const ScsiDisk &disk : LIST_Range<ScsiDisk>(session.disks)) {
            CHECK(disk.host == session.host && disk.channel == session.channel && disk.target == session.target);
            CHECK(std::strcmp(disk.vendor, "V") == 0 && std::strcmp(disk.product, "P") == 0);
            CHECK(std::strlen(disk.wwid) == kWwnLength && std::strncmp(disk.sgName, "/dev/sg", 7) == 0);
            CHECK(std::any_of(g_lines.begin(), g_lines.end(),
                              [prefix = std::string(disk.devPath) + "/scsi_disk/", &disk](const std::string &line) {
                                  return Names(line, prefix, disk);
                              }));
        }
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
    constexpr std::size_t kTextSize = 16;
    if (g_input.size() < 4) {
        return;
    }
    alignas(kTextSize) char ours[3][kTextSize] = {}, theirs[3][kTextSize] = {};
    std::string format;
    const std::string input = Text(3);
    std::uint64_t ourArgs[6] = {}, theirArgs[3] = {};
    for (std::size_t i = 0, used = 0, fields = 0; i < 3; ++i) {
        const std::string_view conversion = kConversions[g_input[i] % std::size(kConversions)];
        format += conversion;
        if (conversion[0] != '%' || conversion[1] == '*' || conversion[1] == '%') {
            continue;
        }
        ourArgs[used++] = reinterpret_cast<std::uint64_t>(ours[fields]);
        theirArgs[fields] = reinterpret_cast<std::uint64_t>(theirs[fields]);
        ++fields;
        if (conversion.find_first_of("sc[") != std::string_view::npos) {
            ourArgs[used++] = kTextSize;
        }
    }
    const int count =
        sscanf_s(input.c_str(), format.c_str(), ourArgs[0], ourArgs[1], ourArgs[2], ourArgs[3], ourArgs[4], ourArgs[5]);
    const bool allFit =
        input.size() < kTextSize && format.find("hh") == std::string::npos && input.find('-') == std::string::npos &&
        std::count_if(input.begin(), input.end(), [](unsigned char c) { return std::isxdigit(c) != 0; }) < 4;
    if (allFit && input[0] != '\0') {
        CHECK(count == std::sscanf(input.c_str(), format.c_str(), theirArgs[0], theirArgs[1], theirArgs[2]));
        CHECK(std::memcmp(ours, theirs, sizeof ours) == 0);
    }
}

// Text that fits is the C library's; text that does not is cut or emptied, and always ends.
[[maybe_unused]] void FuzzFormat()
{
    constexpr std::size_t kSize = 32;
    if (g_input.size() < 2) {
        return;
    }
    const std::size_t destMax = g_input[0] % (kSize + 1), count = g_input[1] % (kSize + 8);
    const std::string text = Text(2);
    const int number = static_cast<int>(text.size()) * -7919;
    char whole[4096], dest[kSize + 1];
    std::memset(dest, 'x', sizeof dest);
    const auto length =
        static_cast<std::size_t>(std::snprintf(whole, sizeof whole, "%s:%-4d|%08x", text.c_str(), number, 7u));
    const int result = snprintf_s(dest, destMax, count, "%s:%-4d|%08x", text.c_str(), number, 7u);
    const bool fits = length <= count && length < destMax;
    CHECK(result == (fits ? static_cast<int>(length) : -1) && dest[destMax] == 'x');
    CHECK(destMax == 0 || std::string_view(dest) == std::string_view(whole).substr(0, fits              ? length
                                                                                      : count < destMax ? count
                                                                                                        : 0));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    g_input = {data, size};
    VD_FUZZ_TARGET();
    return 0;
}
