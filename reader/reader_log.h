// The records of a trace file, one after another.
#pragma once

#include <cstdio>
#include <string>
#include <string_view>

#include "log_record.h"

// A text whose records are taken off, one after another. Initialised with the text.
struct RecordText {
    std::string_view rest;
    bool isNextKnown = false;  // `rest` begins with `next`
    LogRecord next = {};
};

// A file that is being read. Initialised with the file, which stays the caller's.
struct LogStream {
    std::FILE *file = nullptr;
    std::string buffer;  // holds `unread`; never grows
    RecordText unread;
};

// Takes the next record off the text: its message ends where the next record begins, or with the text. What is no
// record is left out. Returns false, with nothing left of the text, when there is none.
[[nodiscard]] bool READER_TakeRecord(RecordText &text, LogRecord &record);

// Reads the next record of the file; it is valid until the next call. A message of more than 128 KiB is cut.
// Returns false at the end of the file, or where it cannot be read, which ferror tells.
[[nodiscard]] bool READER_NextRecord(LogStream &log, LogRecord &record);
