// Enumeration of the devices of a subsystem through libudev (libudev(3)).
#pragma once

#include "mpi_usr_if.h"

struct udev_device;

// Called for each device with its sysfs path, which is valid only during the call, and the libudev device made from
// that path, or null when it could not be made.
using UdevDeviceHandler = void (*)(const char *path, udev_device *device);

// Hands every device of the subsystem `subsystem` to `handler`, in the order in which libudev lists them. A device that
// cannot be made, or anything that a handler does, never ends the walk.
// Returns RET_OK when the subsystem was scanned; RET_INVALID_PARAM for a null argument; RET_NO_MEMORY without a libudev
// context; RET_FAIL when the enumeration cannot be made, restricted or scanned. No libudev object is left behind.
[[nodiscard]] ResultCode INTF_UTIL_UdevGetDevice(const char *subsystem, UdevDeviceHandler handler);
