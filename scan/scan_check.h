// Classification of sessions and disks: which are stale.
#pragma once

#include <cstdint>

extern std::int32_t g_removedDiskCount;  // disks marked removed
extern std::int32_t g_changedDiskCount;  // disks marked changed

// Queries every session of g_sessionList and marks it and its disks; failed queries are recorded and tallied only.
void SCAN_CheckAllScsiSession();
