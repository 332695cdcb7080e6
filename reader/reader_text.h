// Pieces of messages.
#pragma once

#include <string>
#include <string_view>

// `text` as it is shown: without its line end, cut at 1000 bytes, and with a question mark for every byte that is no
// printable ASCII character.
[[nodiscard]] std::string READER_Shown(std::string_view text);

// What stands in `text` behind the first `before` and in front of the next `after`; empty where they do not both stand
// there.
[[nodiscard]] std::string_view READER_Between(std::string_view text, std::string_view before, std::string_view after);

// "1 disk", "2 disks".
[[nodiscard]] std::string READER_Count(std::size_t count, const char *what);
