#include "reader_text.h"

#include <algorithm>

namespace {

constexpr std::size_t kMaxShown = 1000;

}  // namespace

void READER_AppendShown(std::string &shown, std::string_view text)
{
    const auto printable = [](char c) { return (c >= ' ' && c <= '~') || c == '\n' ? c : '?'; };
    const std::size_t size = shown.size();
    shown.resize(size + text.size());
    std::transform(text.begin(), text.end(), shown.data() + size, printable);
}

std::string READER_Shown(std::string_view text)
{
    if (text.ends_with('\n')) {
        text.remove_suffix(1);
    }
    std::string shown;
    READER_AppendShown(shown, text.substr(0, kMaxShown));
    std::replace(shown.begin(), shown.end(), '\n', '?');
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
    const std::string_view name = rest.substr(0, length);
    const bool isName = length <= kMaxShown && name.find('\n') == std::string_view::npos;
    return isName ? name : std::string_view();
}

std::string READER_Count(std::size_t count, const char *what)
{
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}
