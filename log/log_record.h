// Format of a trace record, for programs that read the trace log:
// [sequence][time][record id][level][module][function: line]message
#pragma once

#include <array>
#include <string_view>

#include "log.h"

inline constexpr unsigned int kRecordMark = 0x5342;  // first half of every record id

// Names of the levels in records, in the order of LogLevel.
inline constexpr std::array<const char *, 5> kLevelNames = {"DEBUG", "INFO", "WARN", "ERROR", "FATAL"};

inline constexpr std::size_t kHeaderSize = 512;  // bytes; more than any header has

// One record. Its texts are views into the searched text.
struct LogRecord {
    std::int32_t sequence;  // its number in its run, from 1
    std::string_view time;  // local time; empty if the writer had none
    LogLevel level;
    std::string_view function;  // the function that wrote it
    std::string_view message;   // from the end of the header to the end of the text
    std::string_view whole;     // header and message
};

// Finds the first record header in `text`, at any offset and among any bytes.
// Returns the offset of its first byte. Returns npos if there is none; the content of `record` is then undefined.
[[nodiscard]] std::size_t LOG_FindRecord(std::string_view text, LogRecord &record);
