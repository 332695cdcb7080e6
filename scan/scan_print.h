// Messages of the rescan command.
#pragma once

#include "log.h"

// Message for the operator: prints it on standard output, flushes, and records the same text.
#define SCAN_Print(level, ...) SCAN_PrintMessage(level, __func__, __LINE__, __VA_ARGS__)

// Message for the trace log only.
#define SCAN_Record(level, ...) LOG_Print(ModuleId::Scan, level, __VA_ARGS__)

void SCAN_PrintMessage(LogLevel level, const char *function, int line, const char *format, ...)
    __attribute__((format(printf, 4, 5)));
