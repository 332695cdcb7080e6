#include "reader_time.h"

#include <algorithm>
#include <array>
#include <ctime>

std::optional<long long> READER_Seconds(const std::string &time)
{
    std::tm parts = {};
    const char *end = strptime(time.c_str(), "%Y-%m-%d %H:%M:%S", &parts);
    if (end == nullptr || *end != '\0') {
        return std::nullopt;
    }
    // In the repeated hour, summer time comes first. If the time is not in summer, mktime changes the hour.
    std::tm summer = parts;
    summer.tm_isdst = 1;
    const std::time_t inSummer = std::mktime(&summer);
    parts.tm_isdst = -1;
    const std::time_t found = std::mktime(&parts);
    return summer.tm_isdst == 1 && summer.tm_hour == parts.tm_hour ? std::min(inSummer, found) : found;
}

std::string READER_LocalTime(long long seconds)
{
    const std::time_t time = seconds;
    std::tm parts = {};
    std::array<char, 40> text = {};
    if (localtime_r(&time, &parts) != nullptr) {
        (void)std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &parts);  // empty if it does not fit
    }
    return text.data();
}
