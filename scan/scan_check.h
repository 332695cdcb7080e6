// Decides which sessions and disks are stale.
#pragma once

#include <cstdint>

extern std::int32_t g_removedDiskCount;  // disks marked removed
extern std::int32_t g_changedDiskCount;  // disks marked changed

// Queries every session of g_sessionList and marks it and its disks. Failed queries are only recorded and counted.
void SCAN_CheckAllScsiSession();
