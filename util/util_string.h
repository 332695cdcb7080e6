// Splits, checks, trims and formats the short strings of the inventory.
#pragma once

#include <cstdint>

#include "mpi_usr_if.h"

// Splits the text at `*cursor` at the first occurrence of the whole text `separator`: overwrites the separator with NUL
// and moves the cursor past it. If the separator does not occur or is empty, the cursor becomes null.
// Returns the text before the separator, or the whole text if there is none. If `cursor`, `*cursor` or `separator` is
// null, returns null and changes nothing.
char *INTF_UTIL_StrSep(char **cursor, const char *separator);

// Returns 1 if every character of `text` is a hexadecimal digit, or if it is empty; else, and for null, 0.
[[nodiscard]] int INTF_UTIL_IsHexStr(const char *text);

// Overwrites the blanks (0x20 only) at the end of `text` with NUL. `text` is in a field of `fieldSize` bytes; a null
// text is ignored.
void INTF_UTIL_TrimTailSpace(char *text, std::int32_t fieldSize);

// Writes the `sourceLength` bytes at `source` as lower-case hexadecimal text into `dest` of `destSize` bytes.
// Returns RET_OK. Returns RET_INVALID_PARAM and writes nothing if a pointer is null or `destSize` is not greater than
// twice `sourceLength`.
[[nodiscard]] ResultCode INTF_UTIL_BytesToHexStr(const std::uint8_t *source, std::uint32_t sourceLength, char *dest,
                                                 std::uint32_t destSize);
