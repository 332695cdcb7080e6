// Syslog output. Configuration and utility operations can use it instead of the trace file.
#pragma once

#include "log.h"

[[nodiscard]] int LOG_IsSyslog();  // 1 if syslog output is switched on, else 0
void LOG_SetSyslog();
void LOG_ClearSyslog();

// Writes one message of at most 1023 characters to syslog under the identity "vdudev". A longer message is replaced by
// "vsnprintf failed.". A null format is ignored.
void LOG_Syslog(const char *format, ...) __attribute__((format(printf, 1, 2)));

// Message of a configuration or utility operation: a trace record, or a syslog message if syslog is switched on.
#define LOG_PrintUdev(level, ...)                          \
    do {                                                   \
        if (LOG_IsSyslog() == 1) {                         \
            LOG_Syslog(__VA_ARGS__);                       \
        } else {                                           \
            LOG_Print(ModuleId::Udev, level, __VA_ARGS__); \
        }                                                  \
    } while (0)
