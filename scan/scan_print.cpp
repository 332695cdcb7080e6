#include "scan_print.h"

#include <cstdio>

void SCAN_PrintMessage(LogLevel level, const char *function, int line, const char *format, ...)
{
    va_list list;
    va_start(list, format);
    // Ignore a failure: even if nobody reads the output, the record must be written.
    (void)std::vprintf(format, list);
    (void)std::fflush(stdout);
    va_end(list);
    va_start(list, format);
    LOG_WriteRecordList(ModuleId::Scan, level, function, line, format, list);
    va_end(list);
}
