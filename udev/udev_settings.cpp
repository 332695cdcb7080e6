#include "udev_settings.h"

#include <cstring>

#include "log_syslog.h"
#include "safestr_format.h"
#include "safestr_scan.h"
#include "udev_line.h"
#include "udev_reader.h"

namespace {

constexpr const char *kSettingsPath = "/etc/vdLinux.conf";
constexpr std::size_t kSettingNameSize = 64;

struct LinuxCfgAttr {
    char name[kSettingNameSize];
    std::int32_t value;
    std::int32_t min;
    std::int32_t max;
};

LinuxCfgAttr g_linuxCfg[] = {
    {"dev_loss_tmo", 5, 1, 600},
    {"fast_io_fail_tmo", 4, 0, 599},
    {"recovery_tmo", 5, 0, 600},
    {"scsi_timeout", 30, 1, 600},
};

LinuxCfgAttr *FindSetting(const char *name)
{
    for (LinuxCfgAttr &setting : g_linuxCfg) {
        if (std::strcmp(setting.name, name) == 0) {
            return &setting;
        }
    }
    return nullptr;
}

}  // namespace

ResultCode UDEV_UpdateVdLinuxCfg(const char *name, std::int32_t value)
{
    LinuxCfgAttr *setting = FindSetting(name);
    if (setting == nullptr) {
        LOG_PrintUdev(LogLevel::Error, "get atrr{%s} value{%d} is not find.\n", name, value);
        return RET_NOT_FOUND;
    }
    if (value < setting->min || value > setting->max) {
        LOG_PrintUdev(LogLevel::Error, "get atrr{%s} value{%d} is out range{%d, %d}.\n", name, value, setting->min,
                      setting->max);
        return RET_FAIL;
    }
    setting->value = value;
    return RET_OK;
}

ResultCode UDEV_GetVdLinuxCfgValue(const char *name, char *out, std::uint32_t outLen)
{
    const LinuxCfgAttr *setting = FindSetting(name);
    if (setting == nullptr) {
        LOG_PrintUdev(LogLevel::Error, "get atrr{%s} value is not find.\n", name);
        return RET_NOT_FOUND;
    }
    if (sprintf_s(out, outLen, "%d", setting->value) == -1) {
        LOG_PrintUdev(LogLevel::Error, "sprintf_s attr{%s} value{%d} fail.\n", name, setting->value);
        return RET_FAIL;
    }
    return RET_OK;
}

ResultCode UDEV_HandVdLinuxCfgReadLine(char *buf, std::int32_t length, void * /*userArg*/)
{
    if (!LOG_ASSERT(buf != LOG_NULL)) {
        return RET_OK;  // a failure would end the reading
    }
    char name[kSettingNameSize] = {};
    if (length == 0) {
        return RET_OK;
    }
    (void)UDEV_ClearCharacters(buf, length);  // its arguments are checked above
    if (buf[0] == '\0') {
        return RET_OK;
    }
    (void)UDEV_ReplaceCharacters(buf, length);  // its arguments are checked above
    std::int32_t value = 0;
    // Both the name and a number that fits are required.
    if (sscanf_s(buf, "%s %d", name, static_cast<unsigned int>(sizeof name), &value) != 2) {
        LOG_PrintUdev(LogLevel::Error, "sscanf_s {%s} failed.\n", buf);
        return RET_OK;
    }
    const ResultCode result = UDEV_UpdateVdLinuxCfg(name, value);
    if (result != RET_OK) {
        LOG_PrintUdev(LogLevel::Warn, "update attr{%s} to value{%d} fail with ret{%d}.\n", name, value, result);
    }
    return RET_OK;
}

ResultCode UDEV_InitVdLinuxConfig()
{
    const ResultCode result = INTF_UTIL_ReadFileHandleByLine(kSettingsPath, nullptr, UDEV_HandVdLinuxCfgReadLine);
    if (result != RET_OK) {
        LOG_PrintUdev(LogLevel::Error, "init vdLinux config fail with ret{%d}.\n", result);
    }
    return result;
}
