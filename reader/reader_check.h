// Whether all is well, as a plugin of a monitoring system says it (Monitoring Plugins Development Guidelines).
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "reader_run.h"

// Exit status of a plugin.
enum CheckState : int { kCheckOk = 0, kCheckWarning = 1, kCheckCritical = 2, kCheckUnknown = 3 };

// Writes the plugin's line about these runs, of which there is at least one, and returns its exit status. The last one
// must have ended at `oldest` or later, in seconds since the epoch, where that is given. A run that looked at no disk
// is good unless `mustLook`.
[[nodiscard]] CheckState READER_Check(std::FILE *out, const std::vector<Run> &runs, std::optional<long long> oldest,
                                      bool mustLook);

// Writes the plugin's line for a log that cannot be judged, with the reason; returns kCheckUnknown.
[[nodiscard]] CheckState READER_CheckUnknown(std::FILE *out, const std::string &reason);
