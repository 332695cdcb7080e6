// Bounded copying, appending and splitting of NUL-terminated text. Results and limits: safestr_code.h.
// A result of 128 or above leaves an empty text in `dest`; 22 and 34 leave `dest` unchanged.
#pragma once

#include "safestr_code.h"

// Copies the text `src` with its terminator into the `destMax` bytes at `dest`.
// Returns 0, 22, 34, 150 (null `src`), 162 (`src` has no terminator within `destMax` bytes) or 182 (overlap).
[[nodiscard]] int strcpy_s(char *dest, std::size_t destMax, const char *src);

// Appends the text `src` to the text in the `destMax` bytes at `dest`.
// Returns 0, 22, 34, 150 (null `src`, or `dest` has no terminator), 162 (the result does not fit, or `dest` is
// `src`) or 182 (overlap).
[[nodiscard]] int strcat_s(char *dest, std::size_t destMax, const char *src);

// Copies at most `count` characters of `src` into the `destMax` bytes at `dest` and terminates them.
// If `destMax` is above `count`, a text longer than `count` is truncated without an error.
// Returns 0, 22, 34, 150 (null `src`), 162 (`count` above kMaxBufferSize, or the text does not fit) or 182 (overlap).
[[nodiscard]] int strncpy_s(char *dest, std::size_t destMax, const char *src, std::size_t count);

// Returns the next token of `string`, or of `*context` if `string` is null. Returns null if none is left. Overwrites
// the delimiter after the token with NUL and writes nothing else, so a call that finds no delimiter works on a
// read-only text. `*context` is the only state: each call advances it, and at the end of the text it points to the
// terminator. A null `delimiters` or `context` gives null and changes nothing. An empty `delimiters` makes the rest one
// token.
[[nodiscard]] char *strtok_s(char *string, const char *delimiters, char **context);
