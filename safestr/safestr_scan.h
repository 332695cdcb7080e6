// Bounded scanning with the conversions of the C library's scanf.
#pragma once

#include <cstdarg>

#include "safestr_code.h"

// Scans the text `input` as `format` describes.
//
// Text: after each destination of a %s, %c or %[, its size in characters follows as an unsigned int. If the field does
// not fit (%s and %[ with terminator), the destination is emptied and the scan ends as a matching failure.
// Numbers: a number that does not fit its type is also a matching failure, and is never truncated. An unsigned
// conversion accepts a sign as strtoul does: the digits must fit the type, and a minus sign negates them within it
// ("-1" is the largest unsigned int for %u). A suppressed field ("%*d") has no type, so any number fits.
//
// Returns the number of fields assigned. Returns -1 if `input` or `format` is null, if the input is empty or longer
// than kMaxBufferSize, or if the input ends before the first conversion (assigned or suppressed) is complete. Also
// returns -1 if the scan reaches an error: a conversion that does not exist or does not end ("%[a"), a length modifier
// that the conversion does not have ("%llf"), a null destination, or no memory for a set or width of more than 60
// characters. If the input is empty and the format's first conversion is a %s, %c or %[, its destination is emptied.
// errno does not change. The compiler's scanf check does not apply: it does not expect a size after a text destination.
[[nodiscard]] int sscanf_s(const char *input, const char *format, ...);
[[nodiscard]] int vsscanf_s(const char *input, const char *format, va_list list);
