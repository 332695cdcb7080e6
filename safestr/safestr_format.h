// Bounded formatting with the conversions of the C library's printf.
// Returns the number of characters written, without the terminator, or -1.
#pragma once

#include <cstdarg>

#include "safestr_code.h"

inline constexpr std::size_t kNoFormatLimit = static_cast<std::size_t>(-1);

// Formats into the `destMax` bytes at `dest`. If the text with its terminator does not fit, a conversion fails or an
// argument is invalid, returns -1 and, if `dest` and `destMax` are valid, empties `dest`.
[[nodiscard]] int sprintf_s(char *dest, std::size_t destMax, const char *format, ...)
    __attribute__((format(printf, 3, 4)));
[[nodiscard]] int vsprintf_s(char *dest, std::size_t destMax, const char *format, va_list list)
    __attribute__((format(printf, 3, 0)));

// Like sprintf_s, with a limit of `count` characters (kNoFormatLimit: none). If `count` is below `destMax`, a longer
// text is truncated to `count` characters and the result is -1.
[[nodiscard]] int snprintf_s(char *dest, std::size_t destMax, std::size_t count, const char *format, ...)
    __attribute__((format(printf, 4, 5)));
[[nodiscard]] int vsnprintf_s(char *dest, std::size_t destMax, std::size_t count, const char *format, va_list list)
    __attribute__((format(printf, 4, 0)));
