// With _FORTIFY_SOURCE, the C library aborts the process if it rejects a format ("%n" in writable memory, "%2$d"
// alone). These functions check the bounds themselves and return every failure.
#undef _FORTIFY_SOURCE

#include "safestr_format.h"

#include <cstdio>

int vsnprintf_s(char *dest, std::size_t destMax, std::size_t count, const char *format, va_list list)
{
    const bool validDest = dest != nullptr && SAFE_IsValidSize(destMax);
    if (!validDest || format == nullptr || (count >= kMaxBufferSize && count != kNoFormatLimit)) {
        if (validDest) {
            dest[0] = '\0';
        }
        return -1;
    }
    const bool mayCut = count < destMax;
    const std::size_t room = mayCut ? count : destMax - 1;
    const int length = std::vsnprintf(dest, room + 1, format, list);
    if (length >= 0 && static_cast<std::size_t>(length) <= room) {
        return length;
    }
    if (length < 0 || !mayCut) {
        dest[0] = '\0';
    }
    return -1;
}

int snprintf_s(char *dest, std::size_t destMax, std::size_t count, const char *format, ...)
{
    va_list list;
    va_start(list, format);
    const int result = vsnprintf_s(dest, destMax, count, format, list);
    va_end(list);
    return result;
}

int vsprintf_s(char *dest, std::size_t destMax, const char *format, va_list list)
{
    return vsnprintf_s(dest, destMax, kNoFormatLimit, format, list);
}

int sprintf_s(char *dest, std::size_t destMax, const char *format, ...)
{
    va_list list;
    va_start(list, format);
    const int result = vsprintf_s(dest, destMax, format, list);
    va_end(list);
    return result;
}
