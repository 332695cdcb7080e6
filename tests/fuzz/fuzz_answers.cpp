// Uses the input as the entries of a LUN list and as the descriptor of a page 0x83. A list is stored whole or not at
// all. Only a whole designator of the right type becomes a WWN.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "scan_report_lun.h"
#include "scan_wwn.h"
#include "target.h"

namespace {

void RunLunList(const std::uint8_t *bytes, std::uint32_t size)
{
    ScsiSession session = {};
    const bool isWhole = size % 8 == 0;
    CHECK(SCAN_ParseReportLunids(session, bytes, size) == (isWhole ? RET_OK : RET_DATA_INVALID));
    CHECK(session.lunCount == (isWhole ? size / 8 : 0));
    for (std::size_t i = 0; i < 8UL * session.lunCount; ++i) {
        // In an entry, each 16-bit level has its high byte first.
        CHECK(static_cast<std::uint8_t>(session.lunList[i / 8] >> (8 * (i % 8 ^ 1))) == bytes[i]);
    }
    std::free(session.lunList);
}

void RunDescriptor(const std::uint8_t *bytes, std::uint32_t size)
{
    ScsiDisk disk = {};
    const bool isValid = size >= 20 && bytes[1] % 64 == 3 && bytes[3] == 16;
    CHECK(SCAN_ParseDiskWwn(disk, bytes, size + 4) == (isValid ? RET_OK : RET_DATA_INVALID));
    CHECK(std::strlen(disk.curWwn) == (isValid ? kWwnLength : 0));
    for (std::size_t i = 0; i < std::strlen(disk.curWwn); ++i) {
        const int digit = bytes[4 + i / 2] >> (i % 2 == 0 ? 4 : 0) & 15;
        CHECK(disk.curWwn[i] == "0123456789abcdef"[digit]);
    }
}

}  // namespace

void Run(std::string_view input)
{
    const auto *bytes = reinterpret_cast<const std::uint8_t *>(input.data());
    const auto size = static_cast<std::uint32_t>(input.size());
    RunLunList(bytes, size);
    RunDescriptor(bytes, size);
}
