// SCSI hosts and NVMe over Fabrics controllers: their lists and their rescan.
#pragma once

#include <cstdint>

#include "mpi_usr_if.h"
#include "scan_state.h"
#include "util_sysfs.h"

inline constexpr std::size_t kCtrlNameSize = 64;  // bytes of a controller name, the terminator included

struct ScsiHost {
    ListNode link;
    std::int32_t hostNo;
    char sysPath[kPathSize];  // the host's scsi_host class directory, at most 254 characters
};

struct NvmeCtrl {
    ListNode link;
    char ctrlName[kCtrlNameSize];  // "nvme" and decimal digits, at most 62 characters
};

// The hosts of g_scsiHostList and the controllers of g_nvmeCtrlList, in list order.
[[nodiscard]] inline LIST_Range<const ScsiHost> Hosts()
{
    return LIST_Range<const ScsiHost>(g_scsiHostList);
}

[[nodiscard]] inline LIST_Range<const NvmeCtrl> Controllers()
{
    return LIST_Range<const NvmeCtrl>(g_nvmeCtrlList);
}

// Fills g_scsiHostList and g_nvmeCtrlList through udev. Prints an error for each subsystem that fails.
void SCAN_GetAllScanTargets();

// Rescans every SCSI host, then every NVMe over Fabrics controller. Prints one line for each.
void SCAN_ScanAllTargets();

// Free every record of the list and leave it empty.
void SCAN_FreeAllScsiHost();
void SCAN_FreeAllNvmeCtrl();
