// Bounded copying, appending and cutting of NUL-terminated text. Results and limits: safestr_code.h.
// Every code of 128 and above leaves an empty text in `dest`; 22 and 34 leave `dest` untouched.
#pragma once

#include "safestr_code.h"

// Copies the text `src` with its terminator into the `destMax` bytes at `dest`.
// Returns 0, 22, 34, 150 (null `src`), 162 (`src` has no terminator within `destMax` bytes) or 182 (overlap).
[[nodiscard]] int strcpy_s(char *dest, std::size_t destMax, const char *src);

// Appends the text `src` to the text in the `destMax` bytes at `dest`.
// Returns 0, 22, 34, 150 (null `src`, or `dest` holds no terminator), 162 (the result does not fit, or `dest` is
// `src`) or 182 (overlap).
[[nodiscard]] int strcat_s(char *dest, std::size_t destMax, const char *src);

// Copies at most `count` characters of `src` into the `destMax` bytes at `dest` and terminates them.
// A text longer than `count` is cut without an error where `destMax` is above `count`.
// Returns 0, 22, 34, 150 (null `src`), 162 (`count` above kMaxBufferSize, or the text does not fit) or 182 (overlap).
[[nodiscard]] int strncpy_s(char *dest, std::size_t destMax, const char *src, std::size_t count);

// Returns the next token of `string`, or of `*context` where `string` is null, and null when none is left. The
// delimiter behind the token is overwritten with NUL; nothing else of the text is written, so that a call that meets no
// delimiter behind the token works on a read-only text. All state stands in `*context`, which each call moves on and
// which points at the terminator once the text is used up.
// A null `delimiters` or `context` gives null and changes nothing; an empty `delimiters` makes the rest one token.
[[nodiscard]] char *strtok_s(char *string, const char *delimiters, char **context);
