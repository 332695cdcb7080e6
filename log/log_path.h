// Path of the command's trace file.
#pragma once

#include <cstdint>

#include "mpi_usr_if.h"

enum class DirectoryKind : std::uint32_t {
    Log = 2,            // /opt/Veridane_NVMe/log/
    Configuration = 5,  // /etc/Veridane_NVMe/
};

inline constexpr const char *kTraceFileName = "vd_rescan_log.txt";  // in the log directory

// Returns the full path of the file `name` in the directory of that kind. It has at most 119 characters and is in a
// static buffer that the next call overwrites. Null if it does not fit or the kind is unknown.
[[nodiscard]] const char *GetFilePathByType(DirectoryKind kind, const char *name);

// Sets up the command's trace log. Returns RET_OK, or RET_FAIL after a line on standard output.
[[nodiscard]] ResultCode SCAN_InitLog();
