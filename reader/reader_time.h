// Times of records.
#pragma once

#include <optional>
#include <string>

// Converts the local time of a record to seconds since the epoch; nothing if it is no time. In the hour that the clock
// repeats in autumn, it assumes the first pass.
[[nodiscard]] std::optional<long long> READER_Seconds(const std::string &time);

// Formats a time as in records: local, such as "2026-11-22 21:32:21".
[[nodiscard]] std::string READER_LocalTime(long long seconds);
