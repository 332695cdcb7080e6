// Report of the stale disks, the operator's confirmation, and their removal from the kernel.
#pragma once

// Reports what the check marked, asks first where g_silent is 0, and deletes the stale disks. Without a stale disk
// nothing is printed.
void SCAN_DeleteChangeMap();
