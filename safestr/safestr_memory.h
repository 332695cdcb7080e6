// Bounded copying and filling of memory. Results and limits: safestr_code.h.
#pragma once

#include "safestr_code.h"

// Copies `count` bytes from `src` to `dest`, which holds `destMax` bytes.
// Returns 0, also if `src` is `dest`; 22 or 34 with `dest` unchanged; 150 (null `src`), 162 (`count` above `destMax`)
// or 182 (the two ranges of `count` bytes overlap) with all `destMax` bytes of `dest` set to zero.
[[nodiscard]] int memcpy_s(void *dest, std::size_t destMax, const void *src, std::size_t count);

// Fills the first `count` of the `destMax` bytes at `dest` with the byte `c`.
// Returns 0; 22 or 34 with `dest` unchanged; 162 (`count` above `destMax`) with all `destMax` bytes filled with `c`.
// A `count` of 0 writes nothing and succeeds even if `destMax` is 0.
[[nodiscard]] int memset_s(void *dest, std::size_t destMax, int c, std::size_t count);
