// Reports the stale disks, asks the operator, and deletes them from the kernel.
#pragma once

// Reports the stale disks and deletes them. If g_silent is 0, asks the operator first. Prints nothing if no disk is
// stale.
void SCAN_DeleteChangeMap();
