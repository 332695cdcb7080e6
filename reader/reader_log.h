// The records of a trace file, one after another.
#pragma once

#include <cstdio>
#include <string>
#include <string_view>

#include "log_record.h"

// A file that is being read. Initialised with the file, which stays the caller's.
struct LogStream {
    std::FILE *file = nullptr;
    std::string buffer;     // holds what is being looked at; never grows
    std::size_t begin = 0;  // of what is unread in it
    std::size_t end = 0;
};

// Takes the next record off `text`: its message ends where the next record begins, or with the text. What is no record
// is left out. Returns false, with nothing left in `text`, when there is none.
[[nodiscard]] bool READER_TakeRecord(std::string_view &text, LogRecord &record);

// Reads the next record of the file; it is valid until the next call. A message of more than a MiB is cut.
// Returns false at the end of the file, or where it cannot be read, which ferror tells.
[[nodiscard]] bool READER_NextRecord(LogStream &log, LogRecord &record);
