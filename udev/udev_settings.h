// Multipath settings file /etc/vdLinux.conf: four timeouts in seconds, each held within its range.
//
// The table starts with the defaults; a load applies the file's lines on top of the current values, and a line that is
// refused leaves the value as it was. The rescan command does not read the file.
#pragma once

#include <cstdint>

#include "mpi_usr_if.h"

// Loads the file. Returns the result of the line reader: a bad line is recorded and never ends the reading.
[[nodiscard]] ResultCode UDEV_InitVdLinuxConfig();

// Takes the settings line `buf` of `length` characters, which is changed in place; `userArg` is ignored.
// Always returns RET_OK, so that a line that is refused, or a null `buf`, never ends the reading.
[[nodiscard]] ResultCode UDEV_HandVdLinuxCfgReadLine(char *buf, std::int32_t length, void *userArg);

// Stores `value` as the setting `name`, which must not be null. Returns RET_OK, RET_NOT_FOUND, or RET_FAIL when it is
// out of the range.
[[nodiscard]] ResultCode UDEV_UpdateVdLinuxCfg(const char *name, std::int32_t value);

// Writes the setting `name`, which must not be null, as decimal text into the `outLen` bytes at `out`.
// Returns RET_OK, RET_NOT_FOUND, or RET_FAIL when it does not fit.
[[nodiscard]] ResultCode UDEV_GetVdLinuxCfgValue(const char *name, char *out, std::uint32_t outLen);
