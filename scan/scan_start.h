// Start-up and clean-up of a run.
#pragma once

#include "mpi_usr_if.h"

// Sets up the trace log, announces the run, requires user id 0, takes the lock and loads the supported-device list.
// Returns RET_OK, or RET_FAIL with the reason printed and nothing left to clean up. A list that does not load only
// disables the stale-device check.
[[nodiscard]] ResultCode SCAN_Init();

// Frees the inventory and the supported-device list and closes the pid file, which releases the lock.
void SCAN_Uninit();
