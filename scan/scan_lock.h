// Single-instance lock.
#pragma once

#include "mpi_usr_if.h"

// Takes an exclusive POSIX record lock on /run/vdRescan_plus.pid without waiting and writes the process id into the
// file, in decimal with a NUL byte behind it. Returns RET_OK with the descriptor in g_pidFd, or RET_FAIL with none
// open. Nothing is printed. No other descriptor of the file may be opened while the lock is held: closing any of them
// would drop it (fcntl(2)).
[[nodiscard]] ResultCode SCAN_CheckOnlyOneRun();
