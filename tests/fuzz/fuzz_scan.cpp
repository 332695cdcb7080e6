// The first bytes of the input choose up to three conversions, which scan the rest. If every field fits, the C
// library's scanf must give the same result.
#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "safestr_scan.h"
#include "target.h"

// The input determines the formats.
#pragma GCC diagnostic ignored "-Wformat-nonliteral"

namespace {

constexpr std::size_t kFields = 3;
constexpr std::size_t kSize = 16;  // of each destination, in bytes

constexpr std::string_view kConversions[] = {"%d",     "%u",   "%hhd", "%hu",    "%lx", "%i", "%3d", "%s",
                                             "%4s",    "%c",   "%3c",  "%[a-z]", "%p",  "%o", "%*d", "%*s",
                                             "%[^]:]", "%lld", "%f",   "%lg",    " ",   ":",  "%%",  "%n"};

bool IsAssigned(std::string_view conversion)
{
    return conversion[0] == '%' && conversion[1] != '*' && conversion[1] != '%';
}

bool IsText(std::string_view conversion) { return conversion.find_first_of("sc[") != std::string_view::npos; }

// Fewer than four digits fit every type but char. A short input fits every text.
bool AllFit(const std::string &input, const std::string &format)
{
    const auto isDigit = [](unsigned char c) { return std::isxdigit(c) != 0; };
    return !input.empty() && input.size() < kSize && format.find("hh") == std::string::npos &&
           std::count_if(input.begin(), input.end(), isDigit) < 4;
}

}  // namespace

void Run(std::string_view bytes)
{
    if (bytes.size() <= kFields) {
        return;
    }
    alignas(kSize) char ours[kFields][kSize] = {};
    alignas(kSize) char theirs[kFields][kSize] = {};
    std::string format;
    // Pointers, each text pointer followed by its size. sscanf_s takes as many arguments as the format requires.
    std::uint64_t args[2 * kFields] = {};
    std::size_t argCount = 0;
    std::size_t fields = 0;
    for (std::size_t i = 0; i < kFields; ++i) {
        const std::string_view conversion = kConversions[static_cast<std::uint8_t>(bytes[i]) % std::size(kConversions)];
        format += conversion;
        if (IsAssigned(conversion)) {
            args[argCount++] = reinterpret_cast<std::uint64_t>(ours[fields++]);
            if (IsText(conversion)) {
                args[argCount++] = kSize;
            }
        }
    }
    const std::string input = std::string(bytes.substr(kFields)).c_str();  // up to a NUL
    errno = EDOM;
    const int count = sscanf_s(input.c_str(), format.c_str(), args[0], args[1], args[2], args[3], args[4], args[5]);
    CHECK(errno == EDOM);
    if (!AllFit(input, format)) {
        return;
    }
    const int expected = std::sscanf(input.c_str(), format.c_str(), theirs[0], theirs[1], theirs[2]);
    // At the end of the input, the C library does not count a suppressed conversion as complete.
    const bool isSuppressed = format.find('*') != std::string::npos;
    CHECK(count == expected || (isSuppressed && count == 0 && expected == EOF));
    CHECK(std::memcmp(ours, theirs, sizeof ours) == 0);
}
