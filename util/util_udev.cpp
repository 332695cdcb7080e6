#include "util_udev.h"

#include <libudev.h>

#include <memory>

#include "log_syslog.h"

namespace {

struct UdevReleaser {
    void operator()(udev *context) const { (void)udev_unref(context); }
    void operator()(udev_enumerate *enumeration) const { (void)udev_enumerate_unref(enumeration); }
    void operator()(udev_device *device) const { (void)udev_device_unref(device); }
};

template <typename Object>
using UdevOwner = std::unique_ptr<Object, UdevReleaser>;

void UTIL_UdevForEach(udev *context, udev_enumerate *enumeration, UdevDeviceHandler handler)
{
    for (udev_list_entry *entry = udev_enumerate_get_list_entry(enumeration); entry != nullptr;
         entry = udev_list_entry_get_next(entry)) {
        const char *path = udev_list_entry_get_name(entry);
        if (path == nullptr) {
            LOG_PrintUdev(LogLevel::Error, "get device path failed.\n");
            continue;
        }
        const UdevOwner<udev_device> device(udev_device_new_from_syspath(context, path));
        if (device == nullptr) {
            LOG_PrintUdev(LogLevel::Error, "get device failed devPath:%s.\n", path);
        }
        handler(path, device.get());
    }
}

}  // namespace

ResultCode INTF_UTIL_UdevGetDevice(const char *subsystem, UdevDeviceHandler handler)
{
    if (subsystem == nullptr || handler == nullptr) {
        LOG_PrintUdev(LogLevel::Error, "invalid parameter.\n");
        return RET_INVALID_PARAM;
    }
    const UdevOwner<udev> context(udev_new());
    if (context == nullptr) {
        LOG_PrintUdev(LogLevel::Error, "create new udev is fail.\n");
        return RET_NO_MEMORY;
    }
    const UdevOwner<udev_enumerate> enumeration(udev_enumerate_new(context.get()));
    if (enumeration == nullptr) {
        LOG_PrintUdev(LogLevel::Error, "udev enumerate iterator is NULL.\n");
        return RET_FAIL;
    }
    int result = udev_enumerate_add_match_subsystem(enumeration.get(), subsystem);
    if (result != 0) {
        LOG_PrintUdev(LogLevel::Error, "udev enumerate add match subsystem{%s} fail with ret{%d}.\n", subsystem,
                      result);
        return RET_FAIL;
    }
    result = udev_enumerate_scan_devices(enumeration.get());
    if (result != 0) {
        LOG_PrintUdev(LogLevel::Error, "udev enumerate scan fail with ret{%d}.\n", result);
        return RET_FAIL;
    }
    UTIL_UdevForEach(context.get(), enumeration.get(), handler);
    return RET_OK;
}
