#include "reader_model.h"

#include <algorithm>
#include <cctype>
#include <iterator>

#include "reader_time.h"

bool READER_IsAddress(std::string_view text)
{
    return text.find_first_not_of("0123456789:") == std::string_view::npos &&
           std::count(text.begin(), text.end(), ':') == 3;
}

std::string_view READER_DoubtAbout(const Disk &disk)
{
    const auto isSameLetter = [](char a, char b) { return std::tolower(a) == std::tolower(b); };
    if (disk.wwnNow.empty()) {
        return {};
    }
    if (disk.wwnNow.find_first_not_of('0') == std::string_view::npos) {
        return "the new name is all zeros: the answer holds no name";
    }
    if (std::equal(disk.wwn.begin(), disk.wwn.end(), disk.wwnNow.begin(), disk.wwnNow.end(), isSameLetter)) {
        return "the names differ only in case: the disk is the same";
    }
    return {};
}

bool READER_IsMisused(const Disk &disk)
{
    return disk.state == DiskCondition::Changed && disk.use && !disk.use->chains.empty() &&
           READER_DoubtAbout(disk).empty();
}

std::vector<Disk> READER_Remarkable(const Run &run)
{
    std::vector<Disk> disks;
    std::copy_if(run.disks.begin(), run.disks.end(), std::back_inserter(disks),
                 [](const Disk &disk) { return disk.state != DiskCondition::Healthy; });
    disks.insert(disks.end(), run.leftOut.begin(), run.leftOut.end());
    return disks;
}

Tally READER_TallyOf(const Run &run)
{
    Tally tally;
    tally.notQuestioned = run.leftOut.size();
    tally.failedQueries = run.unassigned.size();
    for (const Disk &disk : run.disks) {
        tally.stale += disk.IsStale() ? 1 : 0;
        tally.deleted += disk.action == DiskAction::Deleted ? 1 : 0;
        tally.failed += disk.action == DiskAction::Failed ? 1 : 0;
        tally.notQuestioned += disk.state == DiskCondition::NotQuestioned ? 1 : 0;
    }
    return tally;
}

std::optional<long long> READER_Duration(const Run &run)
{
    const auto start = READER_Seconds(run.start);
    const auto end = READER_Seconds(run.end);
    // The clock may have been set back.
    return start && end && *end >= *start ? std::optional(*end - *start) : std::nullopt;
}
