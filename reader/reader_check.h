// A one-line verdict for a monitoring system (Monitoring Plugins Development Guidelines).
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "reader_lock.h"
#include "reader_model.h"

// Exit status of a plugin.
enum CheckState : int { kCheckOk = 0, kCheckWarning = 1, kCheckCritical = 2, kCheckUnknown = 3 };

// What the caller requires of the runs. Times are in seconds since the epoch.
struct Demands {
    std::optional<long long> since;    // only runs that began then or later count
    std::optional<long long> oldest;   // the last run must have ended then or later
    std::optional<long long> now;      // no run may be dated later
    bool mustLook = false;             // a run that looked at no disk is a WARNING
    std::vector<std::string> ignored;  // addresses of disks that need not be questioned
};

// Writes the verdict on these runs and returns the exit status. A run at work is named but not judged. `lock` is the
// lock of the host of these runs; not held if it is unknown.
[[nodiscard]] CheckState READER_Check(std::FILE *out, const std::vector<Run> &runs, const Demands &demands,
                                      const RunLock &lock);

// Writes the verdict UNKNOWN with the reason, for a log that cannot be judged. Returns kCheckUnknown.
[[nodiscard]] CheckState READER_CheckUnknown(std::FILE *out, const std::string &reason);
