// Times of records.
#pragma once

#include <optional>
#include <string>

// Local time of a record in seconds since the epoch; nothing where it is no time. In the hour that a clock goes through
// twice, it is the first time.
[[nodiscard]] std::optional<long long> READER_Seconds(const std::string &time);

// A time as records hold it: local, as "2026-11-22 21:32:21".
[[nodiscard]] std::string READER_LocalTime(long long seconds);
