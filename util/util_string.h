// Cutting, checking, trimming and formatting of the short strings that the inventory reads and builds.
#pragma once

#include <cstdint>

#include "mpi_usr_if.h"

// Cuts the text at `*cursor` at the first occurrence of the whole text `separator`, which is overwritten with NUL, and
// moves the cursor behind it; where it does not occur, or is empty, the cursor becomes null.
// Returns the text before the separator (the whole text where there is none), or null when the cursor or the separator
// is null; then the cursor stays as it was.
char *INTF_UTIL_StrSep(char **cursor, const char *separator);

// Returns 1 when every character of `text` is a hexadecimal digit, the empty text included; else, and for null, 0.
[[nodiscard]] int INTF_UTIL_IsHexStr(const char *text);

// Overwrites the blanks (0x20 only) at the end of `text`, which stands in a field of `fieldSize` bytes, with NUL.
// A null text is ignored.
void INTF_UTIL_TrimTailSpace(char *text, std::int32_t fieldSize);

// Writes the `sourceLength` bytes at `source` as lower-case hexadecimal text into `dest` of `destSize` bytes.
// Returns RET_OK, or RET_INVALID_PARAM with nothing written when a pointer is null or `destSize` is not greater than
// twice `sourceLength`.
[[nodiscard]] ResultCode INTF_UTIL_BytesToHexStr(const std::uint8_t *source, std::uint32_t sourceLength, char *dest,
                                                 std::uint32_t destSize);
