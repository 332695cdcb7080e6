// Trace log: one process-wide context, and the functions that write every message.
//
// Every message is one record in a single text file, which is opened, appended to and closed for each record:
// [sequence][time][record id][level][module][function: line]message
// A record is one write, so records of concurrent processes stay whole lines. Only a record of more than 15 KiB takes
// several writes, and only if memory is short. A record that cannot be written is dropped silently: a log failure must
// not disturb the run.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>

#include "mpi_usr_if.h"

// Index into the module-name table. Only modules that write records are listed.
enum class ModuleId : std::uint32_t {
    Udev = 22,  // configuration and utility operations
    Scan = 23,  // the rescan command's own operations
};

enum class LogLevel : std::uint32_t { Debug = 0, Info = 1, Warn = 2, Error = 3, Fatal = 4 };

inline constexpr std::size_t kLogPathSize = 256;  // bytes of a trace file path, the terminator included

// Stores `path`, the full path of the trace file and not null, and starts the sequence at 1. Does not open the file.
// Returns RET_OK, or RET_FAIL after a line on standard output if the path is longer than 255 characters.
[[nodiscard]] ResultCode LOG_Init(const char *path);

// Appends one record from `line` of `function`. Adds no newline to the message.
void LOG_WriteRecord(ModuleId module, LogLevel level, const char *function, int line, const char *format, ...)
    __attribute__((format(printf, 5, 6)));
void LOG_WriteRecordList(ModuleId module, LogLevel level, const char *function, int line, const char *format,
                         va_list list) __attribute__((format(printf, 5, 0)));

// Records a message (format and arguments) with the function and line of this statement.
#define LOG_Print(module, level, ...) LOG_WriteRecord(module, level, __func__, __LINE__, __VA_ARGS__)

// Writes the assertion record for the condition `expression`, always to the trace file. Returns false.
[[nodiscard]] bool LOG_AssertionFailed(const char *function, int line, const char *expression);

// The null pointer as assertion records show it. The compiler's own NULL has another text.
#define LOG_NULL ((void *)0)

// True if `condition` holds. If not, writes the assertion record with the condition's text (macros expanded), and the
// caller must return its failure value: `if (!LOG_ASSERT(buffer != LOG_NULL)) { return 0; }`.
#define LOG_ASSERT(condition) LOG_ASSERT_EXPANDED(condition)
#define LOG_ASSERT_EXPANDED(condition) ((condition) || LOG_AssertionFailed(__func__, __LINE__, #condition))
