#include "reader_text.h"

#include <algorithm>

namespace {

constexpr std::size_t kMaxShown = 1000;

}  // namespace

std::string READER_Shown(std::string_view text)
{
    if (text.ends_with('\n')) {
        text.remove_suffix(1);
    }
    std::string shown(text.substr(0, kMaxShown));
    std::replace_if(shown.begin(), shown.end(), [](char c) { return c < ' ' || c > '~'; }, '?');
    return shown;
}

std::string_view READER_Between(std::string_view text, std::string_view before, std::string_view after)
{
    const std::size_t found = text.find(before);
    if (found == std::string_view::npos) {
        return {};
    }
    const std::string_view rest = text.substr(found + before.size());
    const std::size_t length = rest.find(after);
    return length == std::string_view::npos ? std::string_view() : rest.substr(0, length);
}

std::string READER_Count(std::size_t count, const char *what)
{
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}
