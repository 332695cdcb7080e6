#include "reader_event.h"

#include <algorithm>
#include <array>

namespace {

constexpr bool kIsError = true;

constexpr auto kRows = std::to_array<EventRow>({
    {"SCAN_Init", "vdRescan_plus start", Event::Started},
    {"SCAN_Init", "WARN: please exit", Event::NotRoot},
    {"SCAN_CheckOnlyOneRun", "can't ", Event::LockFailed},
    {"SCAN_Init", "WARN: there is", Event::AnotherCopy},
    {"SCAN_Init", "init vd config fail!", Event::ListNotLoaded},
    {"main", "WARN: input param", Event::WrongOptions},
    {"SCAN_CreateScsiHost", "create scsi host{", Event::TargetFiled},
    {"SCAN_CreateNvmeCtrl", "create nvme ctrl{", Event::TargetFiled},
    {"SCAN_GetAllScanTargets", "ERROR: ", Event::NotListed},
    {"SCAN_HandUdevScsiHost", "", Event::NotListed, kIsError},
    {"SCAN_CreateScsiHost", "", Event::NotListed, kIsError},
    {"SCAN_CreateNvmeCtrl", "", Event::NotListed, kIsError},
    {"SCAN_GetAllScsiDisk", "ERROR: ", Event::DisksNotListed},
    {"SCAN_SessionLookupCreate", "create scsi session{", Event::SessionFiled},
    {"SCAN_CreateScsiDisk", "create scsi disk{", Event::DiskFiled},
    {"SCAN_InitScsiDisk", "scsi disk get product fail", Event::ProductUnknown},
    {"SCAN_InitScsiDisk", "scsi disk{", Event::NotSupported},
    {"SCAN_HandUdevScsiDisk", "", Event::LeftOut, kIsError},
    {"SCAN_CreateScsiDisk", "", Event::LeftOut, kIsError},
    {"SCAN_InitScsiDisk", "", Event::LeftOut, kIsError},
    {"SCAN_GetScsiDiskWwid", "", Event::LeftOut, kIsError},
    {"SCAN_GetScsiDiskSgName", "", Event::LeftOut, kIsError},
    {"SCAN_SessionLookupCreate", "", Event::LeftOut, kIsError},
    {"SCAN_PrintLunIds", "session{", Event::LunsAnswered},
    {"SCAN_ParseReportLunids", "session{", Event::LunsAnswered},
    {"SCAN_PrintLunIds", "", Event::LunsListed},
    {"SCAN_ReportLun", "", Event::LunsFailed, kIsError},
    {"SCAN_IssueReportLun", "", Event::LunsFailed, kIsError},
    {"SCAN_ParseReportLunids", "", Event::LunsFailed, kIsError},
    {"SCAN_GetDiskWwn", "", Event::InquiryFailed, kIsError},
    {"SCAN_IusseInquiry0x83", "", Event::InquiryFailed, kIsError},
    {"SCAN_ParseDiskWwn", "", Event::InquiryFailed, kIsError},
    {"SCAN_PrintNoConnect", "    ", Event::NotConnected},
    {"SCAN_PrintRemoved", "    ", Event::Removed},
    {"SCAN_PrintRemapped", "    ", Event::Changed},
    {"SCAN_DeleteChangeMap", "", Event::Asked},
    {"SCAN_ReadUserYesOrNo", "", Event::Asked},
    {"SCAN_DeleteChangeDisk", "    delete ", Event::Deletion},
    {"SCAN_DeleteChangeDisk", "", Event::DeletionsBegan},
    {"SCAN_ScanAllScsiHost", "", Event::RescansBegan},
    {"SCAN_ScanScsiHost", "    scan ", Event::HostRescan},
    {"SCAN_ScanScsiHost", "success.", Event::HostRescanned},
    {"SCAN_ScanScsiHost", "fail.", Event::HostNotRescanned},
    {"SCAN_ScanNvmeCtrl", "    scan ", Event::ControllerRescan},
    {"SCAN_ScanNvmeCtrl", "success.", Event::ControllerRescanned},
    {"SCAN_ScanNvmeCtrl", "fail.", Event::ControllerNotRescanned},
    {"main", "vdRescan_plus end.", Event::Ended},
});

}  // namespace

std::span<const EventRow> READER_EventRows()
{
    return kRows;
}

Event READER_EventOf(const LogRecord &record)
{
    const auto *row = std::find_if(kRows.begin(), kRows.end(), [&record](const EventRow &known) {
        return known.function == record.function && record.message.starts_with(known.beginning) &&
               (!known.isError || record.level == LogLevel::Error);
    });
    return row == kRows.end() ? Event::Other : row->event;
}
