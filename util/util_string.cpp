#include "util_string.h"

#include <cstring>

#include "safestr_format.h"
#include "safestr_memory.h"

char *INTF_UTIL_StrSep(char **cursor, const char *separator)
{
    if (cursor == nullptr || separator == nullptr) {
        return nullptr;
    }
    char *text = *cursor;
    *cursor = nullptr;
    if (text == nullptr || *separator == '\0') {
        return text;
    }
    char *found = std::strstr(text, separator);
    if (found == nullptr) {
        return text;
    }
    const std::size_t separatorLength = std::strlen(separator);
    (void)memset_s(found, std::strlen(found), 0, separatorLength);  // the separator is in the text, so it fits
    *cursor = found + separatorLength;
    return text;
}

int INTF_UTIL_IsHexStr(const char *text)
{
    return text != nullptr && text[std::strspn(text, "0123456789abcdefABCDEF")] == '\0' ? 1 : 0;
}

void INTF_UTIL_TrimTailSpace(char *text, std::int32_t fieldSize)
{
    if (text == nullptr) {
        return;
    }
    for (auto i = static_cast<std::int32_t>(std::strlen(text)) - 1; i >= 0 && i < fieldSize && text[i] == ' '; --i) {
        text[i] = '\0';
    }
}

ResultCode INTF_UTIL_BytesToHexStr(const std::uint8_t *source, std::uint32_t sourceLength, char *dest,
                                   std::uint32_t destSize)
{
    if (source == nullptr || dest == nullptr) {
        return RET_INVALID_PARAM;
    }
    // 64 bits: twice a length of 2 GiB or more must not wrap to a size that seems to fit.
    const std::size_t textLength = std::size_t{2} * sourceLength;
    if (destSize <= textLength) {
        return RET_INVALID_PARAM;
    }
    for (std::size_t i = 0; i < sourceLength; ++i) {
        (void)snprintf_s(dest + 2 * i, destSize - 2 * i, 3, "%02x", source[i]);  // two digits fit: checked above
    }
    dest[textLength] = '\0';
    return RET_OK;
}
