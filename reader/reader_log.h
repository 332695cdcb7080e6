// The records of a trace file, one after another.
#pragma once

#include <cstdio>
#include <string>
#include <string_view>

#include "log_record.h"

// A text from which records are taken one after another. Initialised with the text.
struct RecordText {
    std::string_view rest;
    bool isNextKnown = false;  // `rest` begins with `next`
    LogRecord next = {};
};

// A file that is being read. Initialised with the file, which the caller owns.
struct LogStream {
    std::FILE *file = nullptr;
    std::string buffer;  // holds `unread`; never grows
    RecordText unread;
};

// Takes the next record from the text and skips everything that is no record. The message ends where the next record
// begins, or with the text. Returns false, with an empty rest, if there is none.
[[nodiscard]] bool READER_TakeRecord(RecordText &text, LogRecord &record);

// Reads the next record of the file. It is valid until the next call. A message of more than 128 KiB is truncated.
// Returns false at the end of the file or on a read error; ferror distinguishes the two.
[[nodiscard]] bool READER_NextRecord(LogStream &log, LogRecord &record);
