// Pieces of messages.
#pragma once

#include <string>
#include <string_view>

// Appends `text` with a question mark for every byte that is neither printable ASCII nor a line end.
void READER_AppendShown(std::string &shown, std::string_view text);

// The text as part of a line: truncated to 1000 bytes, without its final newline, and with a question mark for any
// other newline and for every byte that is not printable ASCII.
[[nodiscard]] std::string READER_Shown(std::string_view text);

// The part of `text` between the first `before` and the next `after`. Empty if one of them is missing, or if the part
// is longer than 1000 bytes or contains a newline.
[[nodiscard]] std::string_view READER_Between(std::string_view text, std::string_view before, std::string_view after);

// "1 disk", "2 disks".
[[nodiscard]] std::string READER_Count(std::size_t count, const char *what);
