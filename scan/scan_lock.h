// Single-instance lock.
#pragma once

#include "mpi_usr_if.h"

// Takes an exclusive POSIX record lock on /run/vdRescan_plus.pid without waiting. Writes the process id into the file,
// in decimal and followed by a NUL byte. Prints nothing. Returns RET_OK with the descriptor in g_pidFd, or RET_FAIL
// with no descriptor open. The process must not open the file again while it has the lock: closing any descriptor of
// the file releases the lock (fcntl(2)).
[[nodiscard]] ResultCode SCAN_CheckOnlyOneRun();

// Closes the pid file, which releases the lock.
void SCAN_ReleaseLock();
