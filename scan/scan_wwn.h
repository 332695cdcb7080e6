// The WWN that a disk's logical unit carries now (SPC-5, Device Identification VPD page, 0x83).
#pragma once

#include <cstdint>

#include "scan_disk.h"

// Reads the WWN of `disk` through its generic node into `curWwn`.
// Returns RET_OK; RET_OPEN_FAIL, RET_NO_MEMORY, RET_CMD_FAIL or RET_DATA_INVALID with `curWwn` unchanged.
[[nodiscard]] ResultCode SCAN_GetDiskWwn(ScsiDisk &disk);

// Takes the 16-byte NAA designator of the logical unit from the page's first designation descriptor at `descriptor`
// into `curWwn`. `length` is the size in bytes of the whole page, with its 4-byte header in front of the descriptor.
// Returns RET_OK, or RET_DATA_INVALID with `curWwn` unchanged when the page is too short or the descriptor another one.
[[nodiscard]] ResultCode SCAN_ParseDiskWwn(ScsiDisk &disk, const std::uint8_t *descriptor, std::uint32_t length);
