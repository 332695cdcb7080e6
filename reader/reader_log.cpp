#include "reader_log.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr std::size_t kBufferSize = std::size_t{1} << 20;

// Reads on behind what is unread. Returns false when nothing more comes, or nothing more fits.
bool ReadOn(LogStream &log)
{
    log.buffer.resize(kBufferSize);
    std::memmove(log.buffer.data(), log.buffer.data() + log.begin, log.end - log.begin);
    log.end -= log.begin;
    log.begin = 0;
    const std::size_t count = std::fread(log.buffer.data() + log.end, 1, kBufferSize - log.end, log.file);
    log.end += count;
    return count > 0;
}

}  // namespace

bool READER_TakeRecord(std::string_view &text, LogRecord &record)
{
    if (LOG_FindRecord(text, record) == std::string_view::npos) {
        text = {};
        return false;
    }
    LogRecord next;
    const std::size_t messageSize = std::min(LOG_FindRecord(record.message, next), record.message.size());
    text = record.message.substr(messageSize);
    record.message = record.message.substr(0, messageSize);
    record.whole = record.whole.substr(0, record.whole.size() - text.size());
    return true;
}

bool READER_NextRecord(LogStream &log, LogRecord &record)
{
    for (bool mayGoOn = true;;) {
        std::string_view rest(log.buffer.data() + log.begin, log.end - log.begin);
        const bool isFound = READER_TakeRecord(rest, record);
        // What reaches up to the end of what was read may go on behind it.
        if (rest.empty() && mayGoOn) {
            if (!isFound) {
                log.begin = log.end - std::min(log.end - log.begin, kHeaderSize);
            }
            mayGoOn = ReadOn(log);
            continue;
        }
        log.begin = log.end - rest.size();
        return isFound;
    }
}
