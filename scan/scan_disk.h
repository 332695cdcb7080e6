// Inventory of the SCSI disks of supported arrays, grouped into sessions.
#pragma once

#include <cstdint>

#include "mpi_usr_if.h"
#include "scan_state.h"
#include "util_sysfs.h"

inline constexpr std::size_t kVendorLength = 8;    // vendor identification, characters (SPC-5, standard INQUIRY data)
inline constexpr std::size_t kProductLength = 16;  // product identification, characters
inline constexpr std::size_t kWwnLength = 32;      // hexadecimal digits of a 16-byte NAA designator
inline constexpr std::size_t kSgNameSize = 32;     // bytes of a generic node path, the terminator included

enum SessionState : std::uint32_t {
    kSessionUnknown = 0,       // no REPORT LUNS answer, as in a new record
    kSessionAnswered = 1,      // lunCount and lunList hold what the target reports
    kSessionNotConnected = 2,  // neither REPORT LUNS nor INQUIRY is answered through any disk
};

enum DiskState : std::uint32_t {
    kDiskUnchanged = 0,  // as in a new record
    kDiskRemoved = 1,    // the target no longer reports the LUN
    kDiskChanged = 2,    // the LUN now has another WWN
};

// One target port of an array as reached through one host and channel (an I_T nexus).
struct ScsiSession {
    ListNode link;
    std::uint32_t host;
    std::uint32_t channel;
    std::uint32_t target;
    SessionState state;
    std::uint32_t lunCount;  // entries of lunList
    std::uint64_t *lunList;  // LUNs reported by the target, from malloc and owned by the session; null until then
    ListNode disks;          // ScsiDisk records
};

struct ScsiDisk {
    ListNode link;
    DiskState state;
    std::uint32_t host;
    std::uint32_t channel;
    std::uint32_t target;
    std::uint32_t lun;
    char vendor[kVendorLength + 1];
    char product[kProductLength + 1];
    char wwid[kWwnLength + 1];    // the identity that the kernel holds for the disk, digits as read
    char curWwn[kWwnLength + 1];  // the WWN read now, in lower case; empty until then
    char sgName[kSgNameSize];     // for example /dev/sg3
    char devPath[kPathSize];      // the SCSI device's sysfs directory
    std::uint64_t inode;          // of that directory, before anything in it was read; 0 where it could not be read
};

// The sessions of g_sessionList, and the disks of a session, from the first to the last.
[[nodiscard]] inline LIST_Range<ScsiSession> Sessions()
{
    return LIST_Range<ScsiSession>(g_sessionList);
}

[[nodiscard]] inline LIST_Range<ScsiDisk> DisksOf(ScsiSession &session)
{
    return LIST_Range<ScsiDisk>(session.disks);
}

[[nodiscard]] inline LIST_Range<const ScsiDisk> DisksOf(const ScsiSession &session)
{
    return LIST_Range<const ScsiDisk>(session.disks);
}

// Files every supported disk with a 16-byte NAA identifier and a readable generic node under its session in
// g_sessionList, in enumeration order. A disk that fails any step is recorded and left out.
void SCAN_GetAllScsiDisk();

// Frees every session with its disks and LUN list; g_sessionList is empty afterwards.
void SCAN_FreeAllScsiSession();
