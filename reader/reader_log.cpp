#include "reader_log.h"

#include <algorithm>

namespace {

constexpr std::size_t kBufferSize = std::size_t{128} << 10;

// Keeps `kept`, which is in the buffer, and reads more after it. Returns false at the end of the file or if the buffer
// is full.
bool ReadOn(LogStream &log, std::string_view kept)
{
    log.buffer.resize(kBufferSize);
    std::copy(kept.begin(), kept.end(), log.buffer.begin());
    const std::size_t count = std::fread(log.buffer.data() + kept.size(), 1, kBufferSize - kept.size(), log.file);
    log.unread = {std::string_view(log.buffer.data(), kept.size() + count)};
    return count > 0;
}

}  // namespace

bool READER_TakeRecord(RecordText &text, LogRecord &record)
{
    if (text.isNextKnown) {
        record = text.next;
    } else if (LOG_FindRecord(text.rest, record) == std::string_view::npos) {
        text.rest = {};
        return false;
    }
    const std::size_t messageSize = LOG_FindRecord(record.message, text.next);
    text.isNextKnown = messageSize != std::string_view::npos;
    text.rest = text.isNextKnown ? record.message.substr(messageSize) : std::string_view();
    record.message = record.message.substr(0, messageSize);
    record.whole = record.whole.substr(0, record.whole.size() - text.rest.size());
    return true;
}

bool READER_NextRecord(LogStream &log, LogRecord &record)
{
    for (bool mayGoOn = true;;) {
        const std::string_view unread = log.unread.rest;
        const bool isFound = READER_TakeRecord(log.unread, record);
        if (!log.unread.rest.empty() || !mayGoOn) {
            return isFound;
        }
        // A record that ends where the buffer ends may continue in the file.
        const std::size_t headerSize = std::min(unread.size(), kHeaderSize);
        mayGoOn = ReadOn(log, isFound ? record.whole : unread.substr(unread.size() - headerSize));
    }
}
