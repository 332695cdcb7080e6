// Inventory of the SCSI disks of supported arrays, by session.
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
    kSessionUnknown = 0,       // no REPORT LUNS answer yet or at all; initial state
    kSessionAnswered = 1,      // lunCount and lunList have the target's answer
    kSessionNotConnected = 2,  // no disk gets a usable answer to REPORT LUNS or INQUIRY
};

enum DiskState : std::uint32_t {
    kDiskUnchanged = 0,  // initial state
    kDiskRemoved = 1,    // the target no longer reports the LUN
    kDiskChanged = 2,    // the LUN now has another WWN
};

// One target port of an array through one host and channel (an I_T nexus).
struct ScsiSession {
    ListNode link;
    std::uint32_t host;
    std::uint32_t channel;
    std::uint32_t target;
    SessionState state;
    std::uint32_t lunCount;  // entries of lunList
    std::uint64_t *lunList;  // reported LUNs, from malloc, owned by the session; null before REPORT LUNS
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
    char wwid[kWwnLength + 1];    // the WWN that the kernel holds, digits as read
    char curWwn[kWwnLength + 1];  // the WWN in page 0x83, in lower case; empty before INQUIRY
    char sgName[kSgNameSize];     // for example /dev/sg3
    char devPath[kPathSize];      // the SCSI device's sysfs directory
    std::uint64_t inode;          // of devPath, taken before reading its files; 0 if it cannot be read
};

// The sessions of g_sessionList, and the disks of a session, in list order.
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

// Adds every supported disk with a 16-byte NAA identifier and a readable generic node to its session in g_sessionList,
// in libudev's order. A disk that fails any step is recorded and left out.
void SCAN_GetAllScsiDisk();

// Frees every session with its disks and LUN list, and leaves g_sessionList empty.
void SCAN_FreeAllScsiSession();
