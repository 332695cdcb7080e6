#include "scan_report_lun.h"

#include <algorithm>
#include <cstdlib>
#include <span>

#include "mpi_owner.h"
#include "safestr_format.h"
#include "safestr_memory.h"
#include "scan_print.h"
#include "scan_sgio.h"

namespace {

// SPC-5, REPORT LUNS command and parameter data.
constexpr std::uint8_t kOpReportLuns = 0xA0;
constexpr std::uint8_t kSelectReport = 0x00;  // logical units without the well-known ones
constexpr std::size_t kReportLunsCommandSize = 12;
constexpr std::uint32_t kHeaderSize = 8;  // LUN LIST LENGTH and a reserved field
constexpr std::uint32_t kEntrySize = 8;
constexpr std::uint32_t kFirstListLength = 4088;    // 511 entries
constexpr std::uint32_t kMaxListLength = 1u << 20;  // 131,072 entries; a longer list is an error
constexpr int kMaxGrowths = 8;                      // a list that grows more often is an error

constexpr std::size_t kLunTextSize = 256;
constexpr std::size_t kLunTextLimit = 127;  // bytes of a record's text, the terminator included

// The kernel's number for an entry (SAM-5, eight byte LUN structure). The entry has four 2-byte addressing levels; the
// first becomes the lowest 16 bits.
std::uint64_t LunOfEntry(const std::uint8_t *entry)
{
    std::uint64_t lun = 0;
    for (std::size_t level = 0; level < 4; ++level) {
        lun |= static_cast<std::uint64_t>(SCAN_ReadBe16(entry + 2 * level)) << (16 * level);
    }
    return lun;
}

void StoreLunList(ScsiSession &session, std::uint64_t *lunList, std::uint32_t lunCount)
{
    std::free(session.lunList);
    session.lunList = lunList;
    session.lunCount = lunCount;
}

void SCAN_PrintLunIds(const ScsiSession &session, const std::uint64_t *lunList, std::uint32_t lunCount)
{
    SCAN_Record(LogLevel::Info, "session{%u:%u:%u} report lun cnt{%u}.\n", session.host, session.channel,
                session.target, lunCount);
    char text[kLunTextSize] = {};
    std::size_t length = 0;
    for (std::uint32_t i = 0; i < lunCount;) {
        const int added =
            sprintf_s(text + length, kLunTextLimit - length, "%llu,", static_cast<unsigned long long>(lunList[i]));
        if (added == -1) {
            SCAN_Record(LogLevel::Info, "%s\n", text);
            (void)memset_s(text, sizeof text, 0, sizeof text);  // sizes are equal
            length = 0;
            continue;  // any number fits an empty text
        }
        length += static_cast<std::size_t>(added);
        ++i;
    }
    SCAN_Record(LogLevel::Info, "%s\n", text);
}

ResultCode SCAN_IssueReportLun(int fd, std::uint8_t *buffer, std::uint32_t length)
{
    std::uint8_t command[kReportLunsCommandSize] = {};
    command[0] = kOpReportLuns;           // OPERATION CODE
    command[2] = kSelectReport;           // SELECT REPORT
    SCAN_WriteBe32(command + 6, length);  // ALLOCATION LENGTH
    const SgResult result = SCAN_SendCommand(fd, command, {buffer, length}, Response::AsGiven);
    if (result.ioctlResult != 0) {
        SCAN_Record(LogLevel::Error, "iusse report lun ioctl fail{%d}!\n", result.ioctlResult);
        return RET_CMD_FAIL;
    }
    if (!result.IsGood()) {
        SCAN_Record(LogLevel::Error, "report lun failed with errno{status:%d, host:%d, driver:%d}.\n", result.status,
                    result.hostStatus, result.driverStatus);
        return RET_CMD_FAIL;
    }
    return RET_OK;
}

}  // namespace

ResultCode SCAN_ParseReportLunids(ScsiSession &session, const std::uint8_t *entries, std::uint32_t listLength)
{
    if (listLength % kEntrySize != 0) {
        SCAN_Record(LogLevel::Error, "report lun return length{%u} fail!\n", listLength);
        return RET_DATA_INVALID;
    }
    const std::uint32_t lunCount = listLength / kEntrySize;
    if (lunCount == 0) {
        StoreLunList(session, nullptr, 0);
        SCAN_Record(LogLevel::Info, "session{%u:%u:%u} report lun return length{%u}!\n", session.host, session.channel,
                    session.target, listLength);
        return RET_OK;
    }
    const std::size_t size = lunCount * sizeof(std::uint64_t);
    auto *lunList = static_cast<std::uint64_t *>(std::malloc(size));
    if (lunList == nullptr) {
        SCAN_Record(LogLevel::Error, "malloc length{%d} buffer fail!\n", static_cast<int>(size));
        return RET_NO_MEMORY;
    }
    for (std::uint32_t i = 0; i < lunCount; ++i) {
        lunList[i] = LunOfEntry(entries + static_cast<std::size_t>(i) * kEntrySize);
    }
    StoreLunList(session, lunList, lunCount);
    SCAN_PrintLunIds(session, lunList, lunCount);
    return RET_OK;
}

ResultCode SCAN_ReportLun(ScsiSession &session, const char *path)
{
    // Any disk of the session can report the list.
    OwnedFd fd(SCAN_OpenNode(path, {session.host, session.channel, session.target, std::nullopt}));
    if (!fd.IsOpen()) {
        SCAN_Record(LogLevel::Error, "open file{%s} fail!\n", path);
        return RET_OPEN_FAIL;
    }
    OwnedMemory<std::uint8_t> buffer;
    std::uint32_t expectedLength = kFirstListLength;
    for (int growths = 0;; ++growths) {
        const std::uint32_t size = expectedLength + kHeaderSize;
        buffer.reset();  // frees the old buffer before allocating a larger one
        buffer.reset(static_cast<std::uint8_t *>(std::malloc(size)));
        if (buffer == nullptr) {
            fd.Close();
            SCAN_Record(LogLevel::Error, "malloc length{%u} buffer fail!\n", size);
            return RET_NO_MEMORY;
        }
        (void)memset_s(buffer.get(), size, 0, size);  // sizes are equal
        const ResultCode result = SCAN_IssueReportLun(fd.Get(), buffer.get(), size);
        if (result != RET_OK) {
            return result;
        }
        const std::uint32_t listLength = SCAN_ReadBe32(buffer.get());
        if (listLength <= expectedLength) {
            return SCAN_ParseReportLunids(session, buffer.get() + kHeaderSize, listLength);
        }
        if (listLength > kMaxListLength || growths == kMaxGrowths) {
            SCAN_Record(LogLevel::Error, "report lun return length{%u} fail!\n", listLength);
            return RET_DATA_INVALID;
        }
        expectedLength = listLength;
    }
}

int SCAN_IsLunReported(const ScsiDisk &disk, const ScsiSession &session)
{
    // Compare 64 bits: an entry above 32 bits is not the LUN of any disk.
    const std::span<const std::uint64_t> reported(session.lunList, session.lunCount);
    return std::find(reported.begin(), reported.end(), disk.lun) != reported.end() ? 1 : 0;
}
