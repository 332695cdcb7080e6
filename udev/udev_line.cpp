#include "udev_line.h"

#include <algorithm>
#include <cstring>

#include "log.h"

namespace {

// End of the text in the first `bufferLen` bytes of `buffer`.
char *EndOfText(char *buffer, std::int32_t bufferLen)
{
    return bufferLen < 0 ? buffer : buffer + strnlen(buffer, static_cast<std::size_t>(bufferLen));
}

bool IsMeaningless(char c)
{
    return static_cast<signed char>(c) <= 0x20 || c == '"' || c == ';';
}

}  // namespace

std::uint8_t UDEV_ClearCharacters(char *buffer, std::int32_t bufferLen)
{
    if (!LOG_ASSERT(buffer != LOG_NULL) || !LOG_ASSERT(bufferLen != 0)) {
        return 0;
    }
    char *end = std::remove_if(buffer, EndOfText(buffer, bufferLen), IsMeaningless);
    if (end - buffer < bufferLen) {
        *end = '\0';
    }
    return 1;
}

std::uint8_t UDEV_ReplaceCharacters(char *buffer, std::int32_t bufferLen)
{
    if (!LOG_ASSERT(buffer != LOG_NULL) || !LOG_ASSERT(bufferLen != 0)) {
        return 0;
    }
    std::replace(buffer, EndOfText(buffer, bufferLen), '=', ' ');
    return 1;
}
