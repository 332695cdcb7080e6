#include "scan_print.h"

#include <cstdio>

void SCAN_PrintMessage(LogLevel level, const char *function, int line, const char *format, ...)
{
    va_list list;
    va_start(list, format);
    // Nobody may read the output any more; the record is written all the same.
    (void)std::vprintf(format, list);
    (void)std::fflush(stdout);
    va_end(list);
    va_start(list, format);
    LOG_WriteRecordList(ModuleId::Scan, level, function, line, format, list);
    va_end(list);
}
