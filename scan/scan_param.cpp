#include "scan_param.h"

#include <cstring>

#include "scan_print.h"
#include "scan_state.h"

namespace {

bool IsNoCheck(const char *argument)
{
    return std::strcmp(argument, "-nc") == 0 || std::strcmp(argument, "--nocheck") == 0;
}

bool IsMutual(const char *argument)
{
    return std::strcmp(argument, "-m") == 0 || std::strcmp(argument, "--mutual") == 0;
}

}  // namespace

ResultCode SCAN_ParseParam(int argc, char *const argv[])
{
    if (argc <= 1) {
        return RET_OK;
    }
    if (argc == 2 && IsNoCheck(argv[1])) {
        g_noCheck = 1;
        return RET_OK;
    }
    if (argc == 2 && IsMutual(argv[1])) {
        g_silent = 0;
        return RET_OK;
    }
    if (argc == 3 && ((IsNoCheck(argv[1]) && IsMutual(argv[2])) || (IsMutual(argv[1]) && IsNoCheck(argv[2])))) {
        // Without the check nothing is stale, so there is nothing to ask.
        g_noCheck = 1;
        g_silent = 1;
        return RET_OK;
    }
    return RET_FAIL;
}

void SCAN_PrintUsage(const char *program)
{
    SCAN_Print(LogLevel::Info, "USAGE: %s [-nc|--nocheck] [-m|--mutual]\n", program);
    SCAN_Print(LogLevel::Info, "Scan device command provided by veridane-nvme.\n");
    SCAN_Print(LogLevel::Info,
               "If no parameter, it will silently check and remove the stale devices, and then scan device. The stale "
               "devices contain those that have been removed, changed and unconnected.\n");
    SCAN_Print(LogLevel::Info, "    -nc|--nocheck:  only scan device, and don't check the stale devices.\n");
    SCAN_Print(LogLevel::Info,
               "    -m|--mutual: when the stale device is existence, an interaction is given and the customer confirms "
               "whether to remove.\n");
}
