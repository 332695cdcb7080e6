// Which disk a query that failed was sent to. Its record names none, but the order is fixed: sessions are questioned as
// they were filed. In each, REPORT LUNS goes to one disk after the other until one answers, which is recorded; then one
// INQUIRY goes to each disk whose LUN is reported, and its success is not recorded.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "reader_model.h"

struct FailedQuery {
    std::size_t session;              // index in Queries::sessions
    std::optional<std::size_t> disk;  // index in Run::disks, where it is known at once
    bool isInquiry;
    std::string message;
};

// The inventory as it is questioned, and what failed so far. The names are views into the records.
struct Queries {
    std::vector<std::vector<std::size_t>> sessions;               // indices in Run::disks, as they were filed
    std::unordered_map<std::string_view, std::size_t> sessionOf;  // by h:c:t
    std::unordered_map<std::string_view, std::size_t> diskOf;     // by generic node
    std::vector<FailedQuery> failed;
    std::size_t session = 0;      // the one that is being questioned
    std::size_t lunFailures = 0;  // of its REPORT LUNS
    bool hasLuns = false;         // one was answered
    bool isOrdered = true;        // false: the records stand in an order that no run writes
};

// Takes in the disk with that index in Run::disks.
void READER_FileDisk(Queries &queries, const Disk &disk, std::size_t index);

// Take in the records of the check, in their order.
void READER_LunsAnswered(Queries &queries, std::string_view session);
void READER_LunsFailed(Queries &queries, std::string_view message);
void READER_InquiryFailed(Queries &queries, std::string_view message);

// When all records are read: gives each failed query to its disk, as its reason, and where it may be one of several, to
// Run::unassigned.
void READER_AssignQueries(const Queries &queries, Run &run);
