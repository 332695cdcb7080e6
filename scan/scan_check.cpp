#include "scan_check.h"

#include <cstring>

#include "scan_disk.h"
#include "scan_report_lun.h"
#include "scan_wwn.h"

std::int32_t g_removedDiskCount = 0;
std::int32_t g_changedDiskCount = 0;

namespace {

void SCAN_CheckScsiSession(ScsiSession &session)
{
    std::uint32_t failedLunQueries = 0;
    std::uint32_t failedWwnReads = 0;
    std::uint32_t disksSeen = 0;
    for (const ScsiDisk &disk : DisksOf(session)) {
        if (SCAN_ReportLun(session, disk.sgName) == RET_OK) {
            session.state = kSessionAnswered;
            break;
        }
        ++failedLunQueries;
    }
    for (ScsiDisk &disk : DisksOf(session)) {
        ++disksSeen;
        if (session.state == kSessionAnswered && SCAN_IsLunReported(disk, session) == 0) {
            disk.state = kDiskRemoved;
            ++g_removedDiskCount;
            continue;
        }
        if (SCAN_GetDiskWwn(disk) != RET_OK) {
            ++failedWwnReads;
            continue;
        }
        if (std::strcmp(disk.curWwn, disk.wwid) != 0) {
            disk.state = kDiskChanged;
            ++g_changedDiskCount;
        }
    }
    // One usable answer to either query, through any disk, shows that the session is connected.
    if (failedLunQueries == disksSeen && failedWwnReads == disksSeen) {
        session.state = kSessionNotConnected;
    }
}

}  // namespace

void SCAN_CheckAllScsiSession()
{
    for (ScsiSession &session : Sessions()) {
        SCAN_CheckScsiSession(session);
    }
}
