// Bounded scanning with the conversions of the C library's scanf.
#pragma once

#include <cstdarg>

#include "safestr_code.h"

// Scans the text `input` by `format`. Each destination of a %s, %c or %[ is followed by its size in characters as an
// unsigned int; a field that does not fit (%s and %[ with their terminator) leaves that destination empty and ends the
// scan as a matching failure. A number that does not fit its type is a matching failure too, and never cut. An unsigned
// conversion takes a sign as strtoul does: a minus sign negates within the destination's type ("-1" is the largest
// unsigned int for %u), and what stands behind the sign must fit. A suppressed field ("%*d") has no type to fit.
// Returns the number of fields assigned. Returns -1 when the input ends before the first conversion, assigned or
// suppressed, is done, when it is empty or above kMaxBufferSize, or when `input` or `format` is null; and for an error
// that the scan reaches: a conversion that does not exist or does not end ("%[a"), a length modifier that the
// conversion does not know ("%llf"), a null destination, or no memory for a set or width of more than 60 characters. An
// empty input also empties the destination of the format's first conversion where that is a %s, %c or %[. errno is left
// as it was. The compiler's scanf check does not apply: it does not know the size behind a text destination.
[[nodiscard]] int sscanf_s(const char *input, const char *format, ...);
[[nodiscard]] int vsscanf_s(const char *input, const char *format, va_list list);
