// Works out which disk a failed query was for. Its record names none, but the order of queries is fixed: sessions in
// the order in which they were filed. In each session, REPORT LUNS goes to one disk after the other until one answers,
// which is recorded. Then one INQUIRY goes to each disk whose LUN is reported; its success is not recorded.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "reader_model.h"

struct FailedQuery {
    std::size_t session;              // index in Queries::sessions
    std::optional<std::size_t> disk;  // index in Run::disks, if the record shows it
    bool isInquiry;
    std::string message;
};

// The inventory in query order, and the failures so far. The names are views into the records.
struct Queries {
    std::vector<std::vector<std::size_t>> sessions;               // indices in Run::disks, as they were filed
    std::unordered_map<std::string_view, std::size_t> sessionOf;  // by h:c:t
    std::unordered_map<std::string_view, std::size_t> diskOf;     // by generic node
    std::vector<FailedQuery> failed;
    std::size_t session = 0;      // the one being queried
    std::size_t lunFailures = 0;  // of its REPORT LUNS
    bool hasLuns = false;         // one was answered
    bool isOrdered = true;        // false: no run writes its records in this order
};

// Adds the disk with this index in Run::disks.
void READER_FileDisk(Queries &queries, const Disk &disk, std::size_t index);

// Add the records of the check, in their order.
void READER_LunsAnswered(Queries &queries, std::string_view session);
void READER_LunsFailed(Queries &queries, std::string_view message);
void READER_InquiryFailed(Queries &queries, std::string_view message);

// After the last record: adds each failed query to the reason of its disk, or to Run::unassigned if there are several
// candidates. Stores how far the queries are, too.
void READER_AssignQueries(const Queries &queries, Run &run);
