#include "log_syslog.h"

#include <syslog.h>

#include "safestr_format.h"

namespace {

constexpr std::size_t kSyslogSize = 1024;

int g_syslogOn = 0;

}  // namespace

int LOG_IsSyslog()
{
    return g_syslogOn;
}

void LOG_SetSyslog()
{
    g_syslogOn = 1;
}

void LOG_ClearSyslog()
{
    g_syslogOn = 0;
}

void LOG_Syslog(const char *format, ...)
{
    if (format == nullptr) {
        return;
    }
    char text[kSyslogSize] = {};
    va_list list;
    va_start(list, format);
    const int length = vsnprintf_s(text, sizeof text, sizeof text, format, list);
    va_end(list);
    openlog("vdudev", LOG_PID | LOG_CONS, 0);
    syslog(LOG_INFO, "%s", length == -1 ? "vsnprintf failed." : text);
    closelog();
}
