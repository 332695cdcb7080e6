#include "scan_delete.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <string_view>

#include "safestr_memory.h"
#include "scan_check.h"
#include "scan_disk.h"
#include "scan_print.h"
#include "scan_state.h"
#include "util_sysfs.h"

namespace {

constexpr std::size_t kAnswerSize = 256;
constexpr std::array<std::string_view, 4> kYes = {"yes", "y", "YES", "Y"};
constexpr std::array<std::string_view, 4> kNo = {"no", "n", "NO", "N"};

std::int32_t SCAN_PrintNoConnect()
{
    std::int32_t count = 0;
    for (const ScsiSession &session : Sessions()) {
        if (session.state != kSessionNotConnected) {
            continue;
        }
        SCAN_Print(LogLevel::Warn, "scsi session(%u:%u:%u) is no connect, include below scsi disk:\n", session.host,
                   session.channel, session.target);
        for (const ScsiDisk &disk : DisksOf(session)) {
            SCAN_Print(LogLevel::Warn, "    %u:%u:%u:%u\n", disk.host, disk.channel, disk.target, disk.lun);
            ++count;
        }
    }
    return count;
}

std::int32_t SCAN_PrintRemoved()
{
    if (g_removedDiskCount > 0) {
        SCAN_Print(LogLevel::Warn, "there are many scsi disk removed, include below %d scsi disk:\n",
                   g_removedDiskCount);
    }
    for (const ScsiSession &session : Sessions()) {
        for (const ScsiDisk &disk : DisksOf(session)) {
            if (disk.state == kDiskRemoved) {
                SCAN_Print(LogLevel::Warn, "    %u:%u:%u:%u\n", disk.host, disk.channel, disk.target, disk.lun);
            }
        }
    }
    return g_removedDiskCount;
}

std::int32_t SCAN_PrintRemapped()
{
    if (g_changedDiskCount > 0) {
        SCAN_Print(LogLevel::Warn, "there are many scsi disk changed, include below %d scsi disk:\n",
                   g_changedDiskCount);
    }
    for (const ScsiSession &session : Sessions()) {
        for (const ScsiDisk &disk : DisksOf(session)) {
            if (disk.state == kDiskChanged) {
                SCAN_Print(LogLevel::Warn, "    %u:%u:%u:%u [%s -> %s]\n", disk.host, disk.channel, disk.target,
                           disk.lun, disk.wwid, disk.curWwn);
            }
        }
    }
    return g_changedDiskCount;
}

bool IsOneOf(const std::array<std::string_view, 4> &answers, std::string_view answer)
{
    return std::find(answers.begin(), answers.end(), answer) != answers.end();
}

// Reads up to and including a line feed, at most the whole buffer. Returns the number of characters read. It is 0 only
// at the end of input.
std::size_t ReadAnswer(char (&buffer)[kAnswerSize])
{
    (void)memset_s(buffer, sizeof buffer, 0, sizeof buffer);  // sizes are equal
    std::size_t count = 0;
    while (count < sizeof buffer) {
        const int c = std::getchar();
        if (c == EOF) {
            break;
        }
        buffer[count++] = static_cast<char>(c);
        if (c == '\n') {
            break;
        }
    }
    return count;
}

int SCAN_ReadUserYesOrNo()
{
    char buffer[kAnswerSize];
    for (;;) {
        const std::size_t count = ReadAnswer(buffer);
        // A full buffer has no terminator, so the precision limits the text.
        SCAN_Record(LogLevel::Info, "input {%.*s}\n", static_cast<int>(count), buffer);
        if (count == 0) {
            return 0;  // end of input counts as no
        }
        const bool isWholeLine = buffer[count - 1] == '\n';
        if (count < sizeof buffer) {
            if (!isWholeLine && std::ferror(stdin) != 0) {
                return 0;  // a read error cut the line: the text may be the beginning of another word
            }
            // A last line may end at the end of input instead of at a line feed.
            const std::string_view answer(buffer, isWholeLine ? count - 1 : count);
            if (IsOneOf(kYes, answer)) {
                return 1;
            }
            if (IsOneOf(kNo, answer)) {
                return 0;
            }
        }
        SCAN_Print(LogLevel::Error, "Error: Invalid input!\nRetry input [yes|no]: ");
    }
}

void SCAN_DeleteChangeDisk()
{
    SCAN_Print(LogLevel::Info, "delete all map view changed scsi disk:\n");
    for (const ScsiSession &session : Sessions()) {
        for (const ScsiDisk &disk : DisksOf(session)) {
            const bool isStale =
                session.state == kSessionNotConnected || disk.state == kDiskChanged || disk.state == kDiskRemoved;
            if (!isStale) {
                continue;
            }
            // The inode number protects a disk that replaced the queried one, because no query showed it to be stale.
            if (INTF_UTIL_Write(disk.devPath, "delete", "1", 1, disk.inode) >= 1) {
                SCAN_Print(LogLevel::Info, "    delete %u:%u:%u:%u success.\n", disk.host, disk.channel, disk.target,
                           disk.lun);
            } else {
                SCAN_Print(LogLevel::Error, "    delete %u:%u:%u:%u fail.\n", disk.host, disk.channel, disk.target,
                           disk.lun);
            }
        }
    }
}

}  // namespace

void SCAN_DeleteChangeMap()
{
    const std::int32_t notConnected = SCAN_PrintNoConnect();
    const std::int32_t removed = SCAN_PrintRemoved();
    const std::int32_t changed = SCAN_PrintRemapped();
    if (notConnected + removed + changed == 0) {
        return;
    }
    if (g_silent == 0) {
        SCAN_Print(LogLevel::Info,
                   "If you want delete all map view changed scsi disk, please input [yes], or input [no]:");
        if (SCAN_ReadUserYesOrNo() == 0) {
            return;
        }
    }
    SCAN_DeleteChangeDisk();
}
