#include "safestr_string.h"

#include <cstdint>
#include <cstring>

namespace {

int ResetText(char *dest, int code)
{
    dest[0] = '\0';
    return code;
}

// Argument checks of all copying functions. Before it returns 150, it resets the destination.
int CheckTextArguments(char *dest, std::size_t destMax, const char *src)
{
    if (!SAFE_IsValidSize(destMax)) {
        return kSafeBadSize;
    }
    if (dest == nullptr) {
        return kSafeNullDest;
    }
    return src == nullptr ? ResetText(dest, kSafeInvalidReset) : kSafeOk;
}

}  // namespace

int strcpy_s(char *dest, std::size_t destMax, const char *src)
{
    const int check = CheckTextArguments(dest, destMax, src);
    if (check != kSafeOk) {
        return check;
    }
    const std::size_t length = strnlen(src, destMax);
    if (length + 1 > destMax) {
        return ResetText(dest, kSafeRangeReset);
    }
    if (dest == src) {
        return kSafeOk;
    }
    if (SAFE_Overlaps(dest, src, length + 1)) {
        return ResetText(dest, kSafeOverlapReset);
    }
    std::memcpy(dest, src, length + 1);
    return kSafeOk;
}

int strcat_s(char *dest, std::size_t destMax, const char *src)
{
    const int check = CheckTextArguments(dest, destMax, src);
    if (check != kSafeOk) {
        return check;
    }
    const std::size_t destLength = strnlen(dest, destMax);
    const std::size_t srcLength = strnlen(src, destMax - destLength);
    const auto d = reinterpret_cast<std::uintptr_t>(dest);
    const auto s = reinterpret_cast<std::uintptr_t>(src);
    // Terminators count as part of the texts: one must not be a character of the other text.
    if ((d < s && s <= d + destLength + srcLength) || (s < d && s + srcLength >= d)) {
        const bool behindUnterminated = destLength == destMax && s >= d + destLength;
        return ResetText(dest, behindUnterminated ? kSafeInvalidReset : kSafeOverlapReset);
    }
    if (destLength + srcLength >= destMax || dest == src) {
        return ResetText(dest, destLength == destMax ? kSafeInvalidReset : kSafeRangeReset);
    }
    std::memcpy(dest + destLength, src, srcLength + 1);
    return kSafeOk;
}

int strncpy_s(char *dest, std::size_t destMax, const char *src, std::size_t count)
{
    const int check = CheckTextArguments(dest, destMax, src);
    if (check != kSafeOk) {
        return check;
    }
    if (count == 0) {
        return ResetText(dest, kSafeOk);
    }
    if (count > kMaxBufferSize) {
        return ResetText(dest, kSafeRangeReset);
    }
    const std::size_t length = strnlen(src, destMax <= count ? destMax : count);
    if (length == destMax) {
        return ResetText(dest, kSafeRangeReset);
    }
    if (dest != src) {
        if (SAFE_Overlaps(dest, src, length + 1)) {
            return ResetText(dest, kSafeOverlapReset);
        }
        std::memcpy(dest, src, length);
    }
    dest[length] = '\0';
    return kSafeOk;
}

char *strtok_s(char *string, const char *delimiters, char **context)
{
    if (delimiters == nullptr || context == nullptr) {
        return nullptr;
    }
    char *rest = string != nullptr ? string : *context;
    if (rest == nullptr) {
        return nullptr;
    }
    char *token = rest + std::strspn(rest, delimiters);
    char *end = token + std::strcspn(token, delimiters);
    *context = end;
    if (*end != '\0') {
        *end = '\0';
        *context = end + 1;
    }
    return *token == '\0' ? nullptr : token;
}
