// The form of a trace record, for those who read the trace file:
// [sequence][time][record id][level][module][function: line]message
#pragma once

#include <array>
#include <string_view>

#include "log.h"

inline constexpr unsigned int kRecordMark = 0x5342;  // first half of every record id

// Names of the levels in records, in the order of LogLevel.
inline constexpr std::array<const char *, 5> kLevelNames = {"DEBUG", "INFO", "WARN", "ERROR", "FATAL"};

inline constexpr std::size_t kHeaderSize = 512;  // bytes; more than stands in front of any message

// One record; the texts are views into the text that it was found in.
struct LogRecord {
    std::int32_t sequence;  // its number in its run, from 1
    std::string_view time;  // local time; empty where the writer had none
    LogLevel level;
    std::string_view function;  // that wrote it
    std::string_view message;   // what stands behind the header, up to the end of the text
    std::string_view whole;     // header and message
};

// Finds the first record header in `text`, which may stand anywhere and among any bytes.
// Returns the offset of its first byte, or npos, and then `record` holds nothing of use.
[[nodiscard]] std::size_t LOG_FindRecord(std::string_view text, LogRecord &record);
