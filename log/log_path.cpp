#include "log_path.h"

#include <cstdio>
#include <cstring>

#include "log.h"
#include "safestr_string.h"

namespace {

constexpr std::size_t kFilePathSize = 120;

const char *DirectoryOf(DirectoryKind kind)
{
    switch (kind) {
        case DirectoryKind::Log:
            return "/opt/Veridane_NVMe/log/";
        case DirectoryKind::Configuration:
            return "/etc/Veridane_NVMe/";
        default:
            return nullptr;
    }
}

}  // namespace

const char *GetFilePathByType(DirectoryKind kind, const char *name)
{
    static char path[kFilePathSize];
    // strcpy_s rejects a null directory and leaves the path empty, as if it did not fit.
    if (strcpy_s(path, sizeof path, DirectoryOf(kind)) != 0 || strcat_s(path, sizeof path, name) != 0) {
        path[0] = '\0';
        return nullptr;
    }
    return path;
}

ResultCode SCAN_InitLog()
{
    char path[kLogPathSize] = {};
    const char *file = GetFilePathByType(DirectoryKind::Log, kTraceFileName);
    if (file == nullptr) {
        // There is no log yet.
        (void)std::printf("Get SCAN trace log file failed.\n");
        (void)std::fflush(stdout);
        return RET_FAIL;
    }
    const int result = strcpy_s(path, sizeof path, file);
    if (result != 0) {
        // There is no log yet.
        (void)std::printf("init log path name fail with err{%s}!\n", std::strerror(result));
        return RET_FAIL;
    }
    return LOG_Init(path);
}
