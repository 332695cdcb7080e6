// Codes and limits of the bounded memory and string functions.
//
// The functions have the names and argument orders of C11 Annex K (ISO/IEC 9899:2011), but never call a constraint
// handler: every failure is a return value. Most failures reset the destination, so no partial or old text remains.
// To reset a string destination is to set its first byte to NUL.
#pragma once

#include <cstddef>
#include <cstdint>

inline constexpr std::size_t kMaxBufferSize = 0x7fffffff;  // largest size in bytes that a destination may have

inline constexpr int kSafeOk = 0;
inline constexpr int kSafeNullDest = 22;       // EINVAL: the destination is null; nothing is written
inline constexpr int kSafeBadSize = 34;        // ERANGE: destination size 0 or above kMaxBufferSize; nothing is written
inline constexpr int kSafeInvalidReset = 150;  // 22 + 128: null source or unterminated destination; destination reset
inline constexpr int kSafeRangeReset = 162;    // 34 + 128: the result does not fit; destination reset
inline constexpr int kSafeOverlapReset = 182;  // 54 + 128: source and destination overlap; destination reset

[[nodiscard]] constexpr bool SAFE_IsValidSize(std::size_t size)
{
    return size >= 1 && size <= kMaxBufferSize;
}

// True if the `count` bytes at `left` and the `count` bytes at `right` overlap.
[[nodiscard]] inline bool SAFE_Overlaps(const void *left, const void *right, std::size_t count)
{
    const auto a = reinterpret_cast<std::uintptr_t>(left);
    const auto b = reinterpret_cast<std::uintptr_t>(right);
    return a < b ? b - a < count : a - b < count;
}
