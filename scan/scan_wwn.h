// Current WWN of a disk's logical unit (SPC-5, Device Identification VPD page, 0x83).
#pragma once

#include <cstdint>

#include "scan_disk.h"

// Reads the WWN of `disk` through its generic node into `curWwn`.
// Returns RET_OK; RET_OPEN_FAIL, RET_NO_MEMORY, RET_CMD_FAIL or RET_DATA_INVALID with `curWwn` unchanged.
[[nodiscard]] ResultCode SCAN_GetDiskWwn(ScsiDisk &disk);

// Stores the logical unit's 16-byte NAA designator in `curWwn`. `descriptor` is the first designation descriptor of the
// page. `length` is the size of the whole page in bytes, with the 4-byte header before the descriptor.
// Returns RET_OK. If the page is too short or the descriptor has another type or length, returns RET_DATA_INVALID and
// leaves `curWwn` unchanged.
[[nodiscard]] ResultCode SCAN_ParseDiskWwn(ScsiDisk &disk, const std::uint8_t *descriptor, std::uint32_t length);
