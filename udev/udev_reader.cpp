#include "udev_reader.h"

#include <cerrno>
#include <cstring>

#include "log_syslog.h"

namespace {

constexpr std::int32_t kMaxLineLength = 510;               // maximum length of a line for the handler
constexpr std::int32_t kLineTooLong = kMaxLineLength + 2;  // the number in the message
constexpr std::size_t kLineSize = 513;

}  // namespace

OwnedFile UDEV_OpenConfigFile(const char *path)
{
    OwnedFile file(std::fopen(path, "rb+"));
    if (file != nullptr) {
        (void)std::fseek(file.get(), 0, SEEK_SET);  // if it fails, reading starts at the current offset
    }
    return file;
}

ResultCode INTF_UTIL_ReadFileHandleByLine(const char *path, void *userArg, FileLineHandler handler)
{
    char line[kLineSize] = {};
    std::int32_t count = 0;
    const OwnedFile file = UDEV_OpenConfigFile(path);
    if (file == nullptr) {
        LOG_PrintUdev(LogLevel::Error, "can't open %s: %s\n", path, std::strerror(errno));
        return RET_FAIL;
    }
    for (int c = std::fgetc(file.get()); c != EOF; c = std::fgetc(file.get())) {
        const bool isTooLong = count > kMaxLineLength;
        if (c != '\n') {
            if (!isTooLong) {
                line[count++] = static_cast<char>(c);
            }
            continue;
        }
        line[count] = '\0';
        if (isTooLong) {
            LOG_PrintUdev(LogLevel::Error, "line over max number{%d} of char:%s\n", kLineTooLong, line);
        } else if (count > 0 && line[count - 1] == '\\') {
            continue;
        } else if (handler(line, count, userArg) != RET_OK) {
            return RET_LINE_HANDLER_FAIL;
        }
        count = 0;
    }
    return RET_OK;
}
