#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <functional>
#include <string>

#include "safestr_format.h"
#include "safestr_memory.h"
#include "safestr_scan.h"
#include "safestr_string.h"

// The compiler would reject some formats.
#pragma GCC diagnostic ignored "-Wformat-nonliteral"

namespace {

// A call on a buffer `d` with the text `before`, followed by '#' characters. `after` is the start of the buffer after
// the call, with '.' for NUL.
struct Case {
    const char *name;
    std::function<int(char *)> call;
    std::string before;
    int result;
    std::string after;
};
#define CALL(expression) #expression, [&]([[maybe_unused]] char *d) { return expression; }

TEST(SafeString, EveryFailureIsAResultAndNothingStaleSurvivesIt)
{
    constexpr std::size_t kTooLarge = 0x80000000;
    const std::string t255(255, 't');
    const std::string t256(256, 't');
    char second[4] = "old";
    int number = 0;
    char countOnly[] = "ab%n";  // a format in writable memory
    char secondOnly[] = "%2$d";
    char *context = nullptr;
    char *readOnly = const_cast<char *>(",ab");
    char *noToken = const_cast<char *>(",,");
    const Case cases[] = {
        {CALL(memcpy_s(d, 5, t256.data(), 256)), "", 162, ".....#"},
        {CALL(memcpy_s(d, 3, nullptr, 2)), "", 150, "...#"},
        {CALL(memcpy_s(nullptr, 3, "ab", 2)), "", 22, ""},
        {CALL(memcpy_s(d, kTooLarge, "a", 1)), "", 34, "#"},
        {CALL(memcpy_s(d, 2, d, 2)), "ab", 0, "ab#"},
        {CALL(memcpy_s(d, 4, d + 1, 2)), "abc", 182, "....#"},
        {CALL(memcpy_s(d + 1, 2, d, 2)), "abc", 182, "a..#"},
        {CALL(memcpy_s(d, 2, d + 2, 2)), "abcd", 0, "cdcd#"},
        {CALL(memset_s(d, 2, 0x141, 2)), "", 0, "AA#"},
        {CALL(memset_s(d, 3, 'x', 4)), "", 162, "xxx#"},
        {CALL(strcpy_s(d, 256, t255.c_str())), "", 0, t255 + ".#"},
        {CALL(strcpy_s(d, 256, t256.c_str())), "", 162, ".#"},
        {CALL(strcpy_s(d, 9, d + 1)), "abc.", 182, ".bc"},
        {CALL(strcat_s(d, 5, "cd")), "ab.", 0, "abcd.#"},
        {CALL(strcat_s(d, 4, "cd")), "ab.", 162, ".b.#"},
        {CALL(strcat_s(d, 120, "a")), "", 150, ".#"},
        {CALL(strcat_s(d, 4, d + 4)), "", 150, ".#"},
        {CALL(strcat_s(d, 9, d)), "ab.", 162, ".b"},
        {CALL(strcat_s(d, 9, d + 2)), "ab.", 182, ".b"},
        {CALL(strcat_s(d + 1, 9, d)), "abc.", 182, "a.c"},
        {CALL(strcat_s(d + 2, 9, d)), "ab.", 182, "ab."},
        {CALL(strncpy_s(d, 3, "abcdef", 9)), "", 162, ".#"},
        {CALL(strncpy_s(d, 2, "ab", 0)), "", 0, ".#"},
        {CALL(strncpy_s(d, 2, "a", kTooLarge)), "", 162, ".#"},
        {CALL(strncpy_s(d, 9, d, 2)), "abc.", 0, "ab.."},
        {CALL(strncpy_s(d, 9, d + 2, 2)), "abcd", 182, ".bcd"},
        {CALL(strtok_s(nullptr, ",", &context) == nullptr), "", 1, ""},
        {CALL(strtok_s(d, "", &context) == d && context == d + 2), "a;.", 1, "a;."},
        {CALL(strtok_s(readOnly, ",", &context) == readOnly + 1 && context == readOnly + 3), "", 1, ""},
        {CALL(strtok_s(nullptr, ",", &context) == nullptr && context == readOnly + 3), "", 1, ""},
        {CALL(strtok_s(noToken, ",", &context) == nullptr && context == noToken + 2), "", 1, ""},
        {CALL(sprintf_s(d, kTooLarge, "%d", 123)), "", -1, "#"},
        {CALL(sprintf_s(d, 9, "a%lc", wint_t{0x20ac})), "", -1, "."},
        {CALL(sprintf_s(d, 9, countOnly, &number)), "", 2, "ab.#"},
        {CALL(sprintf_s(d, 9, secondOnly, 1, 2)), "", 1, "2.#"},
        {CALL(sscanf_s("18446744073709551616abc", "%*d%s", d, 4U)), "", 1, "abc.#"},
        {CALL(sscanf_s("abc", "%hs", d, 4U)), "", -1, "#"},
        {CALL(sscanf_s("abc", "%s%d%", d, 4U, &number)), "", 1, "abc.#"},
        {CALL(sscanf_s("abc", "%1c%[b", d, 1U, d, 4U)), "", -1, "a#"},
        {CALL(sscanf_s("abc", "%c%s", d, 1U, nullptr, 4U)), "", -1, "a#"},
        {CALL(sscanf_s("5 6", "%d%d", &number, nullptr)), "", -1, ""},
        {CALL(sscanf_s("1.5", "%f", nullptr)), "", -1, ""},
        {CALL(sscanf_s(t256.c_str(), ("%[" + t256 + t256 + "]").c_str(), d, 257U)), "", 1, t256 + ".#"},
        {CALL(sscanf_s("", "%s %s", d, 4U, second, 4U)), "", -1, ".#"},
        {CALL(sscanf_s("longer", "%s", d, 4U)), "", 0, ".#"},
        {CALL(sscanf_s("key longer", "%s %s", d, 4U, second, 4U)), "", 1, "key.#"},
        {CALL(std::string(second).empty()), "", 1, ""},
        {CALL(sscanf_s("abcd", "%3c", d, 3U)), "", 1, "abc#"},
    };
    for (const Case &c : cases) {
        std::string buffer = c.before;
        buffer.resize(300, '#');
        std::replace(buffer.begin(), buffer.end(), '.', '\0');
        EXPECT_EQ(c.result, c.call(buffer.data())) << c.name;
        std::replace(buffer.begin(), buffer.end(), '\0', '.');
        EXPECT_EQ(c.after, buffer.substr(0, c.after.size())) << c.name;
    }
}

// A number that does not fit is a matching failure and does not change its destination.
TEST(SafeString, NumbersAreNeverCut)
{
    constexpr unsigned int kUntouched = 7;
    const struct {
        const char *input;
        const char *format;
        int result;
        unsigned int number;
    } cases[] = {
        {"4294967295", "%u", 1, 4294967295},
        {"4294967296", "%u", 0, kUntouched},
        {"-1", "%u", 1, 4294967295},
        {"-4294967295", "%u", 1, 1},
        {"-4294967296", "%u", 0, kUntouched},
        {"-18446744073709551615", "%u", 0, kUntouched},
        {"18446744073709551616", "%lu", 0, kUntouched},
        {"3:4294967296", "%*u:%u", 0, kUntouched},
        {"5", "%*d%d", 0, kUntouched},
        {"5", "%Ld", -1, kUntouched},
        {"1.5", "%llf", -1, kUntouched},
        {"  ", "%u", -1, kUntouched},
    };
    for (const auto &c : cases) {
        alignas(16) unsigned int numbers[4] = {kUntouched, kUntouched, kUntouched, kUntouched};
        errno = EDOM;
        EXPECT_EQ(c.result, sscanf_s(c.input, c.format, numbers)) << c.input << " " << c.format;
        EXPECT_EQ(c.number, numbers[0]) << c.input << " " << c.format;
        EXPECT_EQ(kUntouched, numbers[1]) << c.input << " " << c.format;
        EXPECT_EQ(EDOM, errno) << c.input << " " << c.format;
    }
}

TEST(SafeString, FormattedTextThatDoesNotFitIsCutOrEmptied)
{
    for (std::size_t size = 0; size < 9; ++size) {
        for (const std::size_t count : {std::size_t{0}, size - 1, size, std::size_t{6}, kNoFormatLimit}) {
            char d[] = "##########";
            const bool fits = size > 6 && count >= 6;
            EXPECT_EQ(fits ? 6 : -1, snprintf_s(d, size, count, "%s%d", "abc", 123)) << size << " " << count;
            EXPECT_EQ(size == 0 ? "##########" : fits ? "abc123" : std::string("abc123", count < size ? count : 0), d);
            EXPECT_EQ('#', d[size]);
        }
    }
}

}  // namespace
