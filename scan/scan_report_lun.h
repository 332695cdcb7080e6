// LUNs that a session's target reports now (SPC-5, REPORT LUNS command).
#pragma once

#include <cstdint>

#include "scan_disk.h"

// Reads the LUN list of `session` through the generic node `path` of one of its disks. Replaces the session's list with
// it, even if it is empty.
// Returns RET_OK; RET_OPEN_FAIL, RET_NO_MEMORY, RET_CMD_FAIL or RET_DATA_INVALID with the session unchanged.
[[nodiscard]] ResultCode SCAN_ReportLun(ScsiSession &session, const char *path);

// Decodes the `listLength` bytes of 8-byte LUN entries at `entries` into the session's list.
// Returns RET_OK. Leaves the session unchanged and returns RET_DATA_INVALID if the length is not a multiple of 8, or
// RET_NO_MEMORY.
[[nodiscard]] ResultCode SCAN_ParseReportLunids(ScsiSession &session, const std::uint8_t *entries,
                                                std::uint32_t listLength);

// Returns 1 if the session's list has the disk's LUN, else 0.
[[nodiscard]] int SCAN_IsLunReported(const ScsiDisk &disk, const ScsiSession &session);
