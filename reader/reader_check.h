// Whether all is well, as a plugin of a monitoring system says it (Monitoring Plugins Development Guidelines).
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "reader_lock.h"
#include "reader_model.h"

// Exit status of a plugin.
enum CheckState : int { kCheckOk = 0, kCheckWarning = 1, kCheckCritical = 2, kCheckUnknown = 3 };

// What the check demands. Times are in seconds since the epoch.
struct Demands {
    std::optional<long long> since;    // only runs that began then or later count
    std::optional<long long> oldest;   // the last run must have ended then or later
    std::optional<long long> now;      // no run may be dated later
    bool mustLook = false;             // a run that looked at no disk is not good
    std::vector<std::string> ignored;  // addresses of disks that need not be questioned
};

// Writes the plugin's line about these runs, and returns its exit status. A run at work is named and not judged. `lock`
// is that of the host of these runs; it is not held where it is not known.
[[nodiscard]] CheckState READER_Check(std::FILE *out, const std::vector<Run> &runs, const Demands &demands,
                                      const RunLock &lock);

// Writes the plugin's line for a log that cannot be judged, with the reason; returns kCheckUnknown.
[[nodiscard]] CheckState READER_CheckUnknown(std::FILE *out, const std::string &reason);
