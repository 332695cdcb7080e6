#include "log.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string_view>

#include "log_record.h"
#include "mpi_owner.h"
#include "safestr_format.h"
#include "safestr_memory.h"
#include "safestr_string.h"

namespace {

constexpr unsigned int kRecordKind = 0;
constexpr std::size_t kTimeSize = 40;
constexpr std::size_t kRecordSize = 16384;  // enough for all records that repeat no command-line argument
constexpr std::size_t kPrefixSize = 1024;   // longer than any header; the function's name is its longest part

constexpr std::array<const char *, 34> kModuleNames = {
    "MPI",      "BAL",  "KLS",   "KCF",       "USI",      "LPM",     "VDS",     "LBS",       "PIA",
    "PIA_BASE", "DISK", "VHBA",  "VHBA_BASE", "VHBA_EXT", "VLM",     "SHEL",    "SHEL_BASE", "SHEL_EXT",
    "UIA",      "UIL",  "CLI",   "GUI",       "UDEV",     "SCAN",    "DETACH",  "REG",       "INST",
    "OUC",      "AGT",  "EVENT", "PCM",       "REF",      "HOM_EXT", "HOM_BASE"};

static_assert(std::string_view(kModuleNames[static_cast<std::size_t>(ModuleId::Udev)]) == "UDEV" &&
              std::string_view(kModuleNames[static_cast<std::size_t>(ModuleId::Scan)]) == "SCAN");

struct LogContext {
    ModuleId moduleId;      // module of the record being written
    std::int32_t sequence;  // number of the next record; 0 until LOG_Init
    char path[kLogPathSize];
};

LogContext g_logContext;

// The context, with `module` set for the next record.
LogContext *LOG_GetContext(ModuleId module)
{
    g_logContext.moduleId = module;
    return &g_logContext;
}

// Formats the local time. `text` is empty if the C library gives none.
void FormatNow(char (&text)[kTimeSize])
{
    (void)memset_s(text, sizeof text, 0, sizeof text);  // sizes are constant
    const std::time_t now = std::time(nullptr);
    const std::tm *local = std::localtime(&now);
    if (local == nullptr) {
        return;
    }
    // A time that is too long is truncated, which is good enough.
    (void)snprintf_s(text, sizeof text, TEXT_Limit(text), "%d-%02d-%02d %02d:%02d:%02d", local->tm_year + 1900,
                     local->tm_mon + 1, local->tm_mday, local->tm_hour, local->tm_min, local->tm_sec);
}

// Gives `file` a buffer for a whole record with this message, so one write appends it and records of two processes stay
// whole lines. A usual record fits the static buffer. A longer one takes memory; `longBuffer` owns it and must outlive
// the stream. Without that memory the record is written in pieces, and a record of another process may come between.
__attribute__((format(printf, 3, 0))) void BufferRecord(FILE *file, OwnedMemory<char> &longBuffer, const char *format,
                                                        va_list list)
{
    static char buffer[kRecordSize];
    const int length = std::vsnprintf(nullptr, 0, format, list);
    const std::size_t size = kPrefixSize + static_cast<std::size_t>(std::max(length, 0));
    if (size > sizeof buffer) {
        longBuffer.reset(static_cast<char *>(std::malloc(size)));
    }
    // By default the stream would use a smaller buffer.
    if (longBuffer != nullptr) {
        (void)std::setvbuf(file, longBuffer.get(), _IOFBF, size);
    } else {
        (void)std::setvbuf(file, buffer, _IOFBF, sizeof buffer);
    }
}

}  // namespace

ResultCode LOG_Init(const char *path)
{
    const int result = strncpy_s(g_logContext.path, sizeof g_logContext.path, path, std::strlen(path));
    if (result != 0) {
        (void)std::printf("init log fail with err{%s}!\n", std::strerror(result));  // there is no log yet
        return RET_FAIL;
    }
    g_logContext.sequence = 1;
    return RET_OK;
}

void LOG_WriteRecordList(ModuleId module, LogLevel level, const char *function, int line, const char *format,
                         va_list list)
{
    LogContext *context = LOG_GetContext(module);
    OwnedMemory<char> longBuffer;  // declared first, so it outlives the stream that uses it
    const OwnedFile file(std::fopen(context->path, "a"));
    if (file == nullptr) {
        return;
    }
    const auto moduleIndex = static_cast<std::uint32_t>(context->moduleId);
    const char *moduleName = kModuleNames[moduleIndex];
    char time[kTimeSize];
    FormatNow(time);
    const std::int32_t sequence = context->sequence++;
    va_list measured;
    va_copy(measured, list);
    BufferRecord(file.get(), longBuffer, format, measured);
    va_end(measured);
    // A record that cannot be written is dropped.
    (void)std::fprintf(file.get(), "[%d][%s][%08x%02x%02x%04x][%-4s][%-6s][%s: %d]", sequence, time, kRecordMark,
                       moduleIndex, kRecordKind, static_cast<unsigned int>(line),
                       kLevelNames[static_cast<std::size_t>(level)], moduleName, function, line);
    (void)std::vfprintf(file.get(), format, list);
    (void)std::fflush(file.get());
}

void LOG_WriteRecord(ModuleId module, LogLevel level, const char *function, int line, const char *format, ...)
{
    va_list list;
    va_start(list, format);
    LOG_WriteRecordList(module, level, function, line, format, list);
    va_end(list);
}

bool LOG_AssertionFailed(const char *function, int line, const char *expression)
{
    // Records have no source file, so its name stays empty.
    LOG_WriteRecord(ModuleId::Udev, LogLevel::Error, function, line,
                    "*** Assertion on file \"%s\" function \"%s\" line %d exception \"%s\"\n", "", function, line,
                    expression);
    return false;
}
