// Cleans lines of the configuration files.
#pragma once

#include <cstdint>

// Removes these bytes from the text `buffer` of at most `bufferLen` bytes: every double quote, every semicolon, and
// every byte that is 0x20 or less as a signed char. Terminates the result with NUL if it is shorter than `bufferLen`.
// Returns 1, or 0 after an assertion record for a null `buffer` or a `bufferLen` of 0.
[[nodiscard]] std::uint8_t UDEV_ClearCharacters(char *buffer, std::int32_t bufferLen);

// Replaces every '=' in the text `buffer` of at most `bufferLen` bytes with a blank.
// Returns 1, or 0 after an assertion record for a null `buffer` or a `bufferLen` of 0.
[[nodiscard]] std::uint8_t UDEV_ReplaceCharacters(char *buffer, std::int32_t bufferLen);
