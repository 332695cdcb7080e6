// Lists the devices of a subsystem through libudev (libudev(3)).
#pragma once

#include "mpi_usr_if.h"

struct udev_device;

// Called for each device. `path` is its sysfs path, valid only during the call. `device` is the libudev device of that
// path, or null if libudev cannot make it.
using UdevDeviceHandler = void (*)(const char *path, udev_device *device);

// Calls `handler` for every device of the subsystem `subsystem`, in libudev's order. Neither a device that libudev
// cannot make nor a handler can end the walk.
// Returns RET_OK if libudev scanned the subsystem; RET_INVALID_PARAM for a null argument; RET_NO_MEMORY without a
// libudev context; RET_FAIL if the enumeration cannot be made, restricted or scanned. Releases all libudev objects.
[[nodiscard]] ResultCode INTF_UTIL_UdevGetDevice(const char *subsystem, UdevDeviceHandler handler);
