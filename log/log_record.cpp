#include "log_record.h"

#include <algorithm>
#include <charconv>

namespace {

constexpr std::string_view kMark = "][00005342";  // follows the time in every header
static_assert(kRecordMark == 0x5342);

constexpr std::size_t kIdRest = 8;      // digits of the record id that follow the mark
constexpr std::size_t kFrontSize = 64;  // bytes; more than a header has before the mark

// Moves the text before the first `end` from `rest` to `taken` and drops `end`. Returns false if there is no `end`.
bool TakeUpTo(char end, std::string_view &rest, std::string_view &taken)
{
    const std::size_t length = rest.find(end);
    if (length == std::string_view::npos) {
        return false;
    }
    taken = rest.substr(0, length);
    rest.remove_prefix(length + 1);
    return true;
}

// Like TakeUpTo, with "][" as the end. No field contains a bracket.
bool TakeField(std::string_view &rest, std::string_view &field)
{
    const bool isTaken = TakeUpTo(']', rest, field) && rest.starts_with('[');
    rest.remove_prefix(isTaken ? 1 : 0);
    return isTaken;
}

// Reads the sequence number and the time at the end of `text`. Returns their size in bytes with brackets; 0 if the text
// is not a header.
std::size_t ReadFront(std::string_view text, LogRecord &record)
{
    const std::size_t timeStart = text.rfind("][");
    const std::size_t start = timeStart == std::string_view::npos ? timeStart : text.rfind('[', timeStart);
    if (start == std::string_view::npos) {
        return 0;
    }
    record.time = text.substr(timeStart + 2);
    const char *numberEnd = text.data() + timeStart;
    const auto [end, error] = std::from_chars(text.data() + start + 1, numberEnd, record.sequence);
    return error == std::errc() && end == numberEnd && record.sequence > 0 ? text.size() - start : 0;
}

// Reads the fields after the mark and leaves the message in `rest`. Returns false if the text is not a header.
bool ReadBack(std::string_view &rest, LogRecord &record)
{
    std::string_view id;
    std::string_view level;
    std::string_view module;
    std::string_view line;
    if (!TakeField(rest, id) || !TakeField(rest, level) || !TakeField(rest, module) ||
        !TakeUpTo(':', rest, record.function) || !TakeUpTo(']', rest, line)) {
        return false;
    }
    const auto *name = std::find(kLevelNames.begin(), kLevelNames.end(), level.substr(0, level.find(' ')));
    record.level = static_cast<LogLevel>(name - kLevelNames.begin());
    return id.size() == kIdRest && name != kLevelNames.end();
}

}  // namespace

std::size_t LOG_FindRecord(std::string_view text, LogRecord &record)
{
    for (std::size_t mark = text.find(kMark); mark != std::string_view::npos; mark = text.find(kMark, mark + 1)) {
        const std::size_t frontSize = std::min(mark, kFrontSize);
        const std::size_t front = ReadFront(text.substr(mark - frontSize, frontSize), record);
        const std::size_t back = mark + kMark.size();
        std::string_view rest = text.substr(back, kHeaderSize - kFrontSize);
        if (front != 0 && ReadBack(rest, record)) {
            record.message = text.substr(static_cast<std::size_t>(rest.data() - text.data()));
            record.whole = text.substr(mark - front);
            return mark - front;
        }
    }
    return std::string_view::npos;
}
