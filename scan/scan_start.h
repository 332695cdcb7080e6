// Start-up and clean-up of a run.
#pragma once

#include "mpi_usr_if.h"

// Sets up the trace log, prints the start line, requires user id 0, takes the lock and loads the supported-device list.
// Returns RET_OK. On failure, prints the reason, leaves nothing to clean up and returns RET_FAIL. A list that does not
// load is no failure, but disables the stale-device check.
[[nodiscard]] ResultCode SCAN_Init();

// Frees the inventory and the supported-device list, and releases the lock.
void SCAN_Uninit();
