// Trace log: one process-wide context, and the writers that every message site uses.
//
// Every message is one record, appended to a single text file that is opened, written and closed for each record:
// [sequence][time][record id][level][module][function: line]message
// A record is one write, so that records of processes that write at the same time stay whole lines; only where memory
// is short, one of more than 15 KiB takes several. A record that cannot be written is dropped in silence: the trace
// never gets in the way of the run.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>

#include "mpi_usr_if.h"

// Index into the module-name table; only the modules that write records have a name here.
enum class ModuleId : std::uint32_t {
    Udev = 22,  // configuration and utility operations
    Scan = 23,  // the rescan command's own operations
};

enum class LogLevel : std::uint32_t { Debug = 0, Info = 1, Warn = 2, Error = 3, Fatal = 4 };

inline constexpr std::size_t kLogPathSize = 256;  // bytes of a trace file path, the terminator included

// Stores `path`, the full path of the trace file and not null, and starts the sequence at 1. The file is not opened
// here. Returns RET_OK, or RET_FAIL after a line on standard output when the path does not fit 255 characters.
[[nodiscard]] ResultCode LOG_Init(const char *path);

// Appends one record with the place `function` and `line`; the message carries its own line end, if it has one.
void LOG_WriteRecord(ModuleId module, LogLevel level, const char *function, int line, const char *format, ...)
    __attribute__((format(printf, 5, 6)));
void LOG_WriteRecordList(ModuleId module, LogLevel level, const char *function, int line, const char *format,
                         va_list list) __attribute__((format(printf, 5, 0)));

// Records a message, its format and arguments, with the place of the statement itself.
#define LOG_Print(module, level, ...) LOG_WriteRecord(module, level, __func__, __LINE__, __VA_ARGS__)

// Writes the assertion record, always to the trace file, for the condition with the text `expression`; returns false.
[[nodiscard]] bool LOG_AssertionFailed(const char *function, int line, const char *expression);

// The null pointer that assertion records show; the compiler's own NULL would read otherwise.
#define LOG_NULL ((void *)0)

// True when `condition` holds; otherwise the assertion record is written with the condition's text, macros expanded,
// and the caller returns its failure value: `if (!LOG_ASSERT(buffer != LOG_NULL)) { return 0; }`.
#define LOG_ASSERT(condition) LOG_ASSERT_EXPANDED(condition)
#define LOG_ASSERT_EXPANDED(condition) ((condition) || LOG_AssertionFailed(__func__, __LINE__, #condition))
