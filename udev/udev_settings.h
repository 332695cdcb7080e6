// Multipath settings file /etc/vdLinux.conf: four timeouts in seconds, each with a range.
//
// The table starts with the defaults. A load changes the settings that the file names. A rejected line changes nothing.
// The rescan command does not read the file.
#pragma once

#include <cstdint>

#include "mpi_usr_if.h"

// Loads the file. Records a bad line and reads on. Returns the result of the line reader.
[[nodiscard]] ResultCode UDEV_InitVdLinuxConfig();

// Stores the setting of the line `buf` of `length` characters and changes the line in place. Ignores `userArg`.
// Always returns RET_OK, so neither a rejected line nor a null `buf` ends the reading.
[[nodiscard]] ResultCode UDEV_HandVdLinuxCfgReadLine(char *buf, std::int32_t length, void *userArg);

// Stores `value` as the setting `name`, which must not be null. Returns RET_OK, RET_NOT_FOUND for an unknown name, or
// RET_FAIL if the value is out of range.
[[nodiscard]] ResultCode UDEV_UpdateVdLinuxCfg(const char *name, std::int32_t value);

// Writes the setting `name`, which must not be null, as decimal text into the `outLen` bytes at `out`.
// Returns RET_OK, RET_NOT_FOUND for an unknown name, or RET_FAIL if the text does not fit.
[[nodiscard]] ResultCode UDEV_GetVdLinuxCfgValue(const char *name, char *out, std::uint32_t outLen);
