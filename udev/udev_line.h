// Cleaning of the lines of the configuration files.
#pragma once

#include <cstdint>

// Removes every byte that, taken as a signed char, is 0x20 or less, every double quote and every semicolon from the
// text `buffer`, looking at no more than `bufferLen` bytes; the text ends with NUL behind the kept bytes where fewer
// than `bufferLen` were kept. Returns 1, or 0 after an assertion record for a null `buffer` or a `bufferLen` of 0.
[[nodiscard]] std::uint8_t UDEV_ClearCharacters(char *buffer, std::int32_t bufferLen);

// Replaces every '=' in the text `buffer` by a blank, looking at no more than `bufferLen` bytes.
// Returns 1, or 0 after an assertion record for a null `buffer` or a `bufferLen` of 0.
[[nodiscard]] std::uint8_t UDEV_ReplaceCharacters(char *buffer, std::int32_t bufferLen);
