// Pieces of messages.
#pragma once

#include <string>
#include <string_view>

// Appends `text` with a question mark for every byte that is neither printable ASCII nor a line end.
void READER_AppendShown(std::string &shown, std::string_view text);

// `text` as it is shown in a line: cut at 1000 bytes, without its line end, and with a question mark for any other one
// and for every byte that is not printable ASCII.
[[nodiscard]] std::string READER_Shown(std::string_view text);

// What stands in `text` behind the first `before` and in front of the next `after`; empty where they do not both stand
// there, and where it is no name: it is longer than 1000 bytes or holds a line end.
[[nodiscard]] std::string_view READER_Between(std::string_view text, std::string_view before, std::string_view after);

// "1 disk", "2 disks".
[[nodiscard]] std::string READER_Count(std::size_t count, const char *what);
