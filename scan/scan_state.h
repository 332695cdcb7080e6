// Process-wide state of the rescan command.
#pragma once

#include <cstdint>

#include "mpi_usr_if.h"

extern std::uint8_t g_configLoaded;  // exactly 1: the supported-device list is loaded
extern int g_noCheck;                // 1: the stale-device check is skipped
extern int g_silent;                 // 1: delete stale disks without asking; 0: ask the operator first
extern int g_pidFd;                  // descriptor of the locked pid file; -1 when none is open

extern ListNode g_scsiHostList;  // ScsiHost records
extern ListNode g_sessionList;   // ScsiSession records, each with its ScsiDisk list
extern ListNode g_nvmeCtrlList;  // NvmeCtrl records

// Makes the three lists empty. Must come before any other use of them.
void SCAN_InitLists();
