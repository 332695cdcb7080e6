#include "scan_check.h"
#include "scan_delete.h"
#include "scan_disk.h"
#include "scan_param.h"
#include "scan_print.h"
#include "scan_start.h"
#include "scan_state.h"
#include "scan_target.h"

int main(int argc, char *argv[])
{
    if (SCAN_Init() != RET_OK) {
        return 0;
    }
    if (SCAN_ParseParam(argc, argv) != RET_OK) {
        SCAN_Print(LogLevel::Warn, "WARN: input param invalid.\n");
        SCAN_PrintUsage(argv[0]);
        SCAN_Uninit();
        return 0;
    }
    SCAN_GetAllScanTargets();
    if (g_configLoaded == 1 && g_noCheck == 0) {
        SCAN_GetAllScsiDisk();
        SCAN_CheckAllScsiSession();
        SCAN_DeleteChangeMap();
    }
    SCAN_ScanAllTargets();
    SCAN_Print(LogLevel::Info, "vdRescan_plus end.\n");
    SCAN_Uninit();
    return 0;
}
