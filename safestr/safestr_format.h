// Bounded formatting with the conversions of the C library's printf.
// The result is the number of characters written without the terminator, or -1.
#pragma once

#include <cstdarg>

#include "safestr_code.h"

inline constexpr std::size_t kNoFormatLimit = static_cast<std::size_t>(-1);

// Formats into the `destMax` bytes at `dest`. A text that does not fit with its terminator, a conversion error or an
// invalid argument gives -1 and, where `dest` is usable at all, an empty text.
[[nodiscard]] int sprintf_s(char *dest, std::size_t destMax, const char *format, ...)
    __attribute__((format(printf, 3, 4)));
[[nodiscard]] int vsprintf_s(char *dest, std::size_t destMax, const char *format, va_list list)
    __attribute__((format(printf, 3, 0)));

// As sprintf_s, with a limit of `count` characters (kNoFormatLimit: none). Where `count` is below `destMax`, a longer
// text is cut: `dest` keeps its first `count` characters and the result is -1.
[[nodiscard]] int snprintf_s(char *dest, std::size_t destMax, std::size_t count, const char *format, ...)
    __attribute__((format(printf, 4, 5)));
[[nodiscard]] int vsnprintf_s(char *dest, std::size_t destMax, std::size_t count, const char *format, va_list list)
    __attribute__((format(printf, 4, 0)));
