#include "safestr_memory.h"

#include <cstring>

int memcpy_s(void *dest, std::size_t destMax, const void *src, std::size_t count)
{
    if (!SAFE_IsValidSize(destMax)) {
        return kSafeBadSize;
    }
    if (dest == nullptr) {
        return kSafeNullDest;
    }
    if (src == nullptr) {
        std::memset(dest, 0, destMax);
        return kSafeInvalidReset;
    }
    if (count > destMax) {
        std::memset(dest, 0, destMax);
        return kSafeRangeReset;
    }
    if (dest == src || count == 0) {
        return kSafeOk;
    }
    if (SAFE_Overlaps(dest, src, count)) {
        std::memset(dest, 0, destMax);
        return kSafeOverlapReset;
    }
    std::memcpy(dest, src, count);
    return kSafeOk;
}

int memset_s(void *dest, std::size_t destMax, int c, std::size_t count)
{
    if (dest != nullptr && count <= destMax) {
        if (destMax > kMaxBufferSize) {
            return kSafeBadSize;
        }
        std::memset(dest, c, count);
        return kSafeOk;
    }
    if (!SAFE_IsValidSize(destMax)) {
        return kSafeBadSize;
    }
    if (dest == nullptr) {
        return kSafeNullDest;
    }
    std::memset(dest, c, destMax);
    return kSafeRangeReset;
}
