#include "reader_query.h"

#include <algorithm>
#include <iterator>
#include <span>

#include "reader_text.h"

namespace {

constexpr std::size_t kMaxCandidates = std::size_t{1} << 20;  // disks that are named for queries that are no disk's

bool AreLunsOver(const Queries &queries)
{
    return queries.session < queries.sessions.size() &&
           (queries.hasLuns || queries.lunFailures == queries.sessions[queries.session].size());
}

// Goes on to the session that a REPORT LUNS is for. Returns false where there is none.
bool EnterSession(Queries &queries)
{
    if (AreLunsOver(queries)) {
        ++queries.session;
        queries.lunFailures = 0;
        queries.hasLuns = false;
    }
    return queries.session < queries.sessions.size();
}

// The only failure that names a disk is that of opening its node.
std::optional<std::size_t> NamedDisk(const Queries &queries, std::string_view message)
{
    const auto disk = queries.diskOf.find(READER_Between(message, "open file{", "}"));
    return disk == queries.diskOf.end() ? std::nullopt : std::optional(disk->second);
}

void Assign(Run &run, std::size_t disk, const std::string &message)
{
    std::string &reason = run.disks[disk].reason;
    reason += (reason.empty() ? "" : "; ") + message;
}

// A query that failed on one of these disks, or, where none are given, on any.
void LeaveUnassigned(Run &run, const std::string &message, std::span<const std::size_t> disks)
{
    if (disks.size() > kMaxCandidates - run.candidates) {
        disks = {};
    }
    run.candidates += disks.size();
    run.unassigned.push_back({message, {disks.begin(), disks.end()}});
}

// Assigns the failed INQUIRYs of a session: each is another disk's, in the order of the disks that were asked. So it is
// one between the first that leaves enough for those before it and the last that leaves enough for those behind it.
void AssignInquiries(Run &run, const std::vector<std::size_t> &session, std::span<const FailedQuery> failed)
{
    std::vector<std::size_t> asked;
    std::copy_if(session.begin(), session.end(), std::back_inserter(asked), [&run](std::size_t disk) {
        return run.disks[disk].state != DiskCondition::Removed && run.disks[disk].state != DiskCondition::Changed;
    });
    std::vector<std::size_t> last(failed.size());
    std::size_t end = asked.size();
    for (std::size_t i = failed.size(); i-- > 0; last[i] = --end) {
        while (end > 0 && failed[i].disk && failed[i].disk != asked[end - 1]) {
            --end;
        }
        if (end == 0) {
            // More failed than were asked.
            std::for_each(failed.begin(), failed.end(),
                          [&run, &session](const FailedQuery &query) { LeaveUnassigned(run, query.message, session); });
            return;
        }
    }
    std::size_t first = 0;
    for (std::size_t i = 0; i < failed.size(); ++i, ++first) {
        first = failed[i].disk ? last[i] : first;
        if (first == last[i]) {
            Assign(run, asked[first], failed[i].message);
        } else {
            LeaveUnassigned(run, failed[i].message, std::span(asked).subspan(first, last[i] + 1 - first));
        }
    }
}

void AssignWithoutOrder(const Queries &queries, Run &run)
{
    for (const FailedQuery &query : queries.failed) {
        const auto disk = NamedDisk(queries, query.message);
        if (disk) {
            Assign(run, *disk, query.message);
        } else {
            LeaveUnassigned(run, query.message, {});
        }
    }
}

}  // namespace

void READER_FileDisk(Queries &queries, const Disk &disk, std::size_t index)
{
    const std::string_view name = disk.address.substr(0, disk.address.rfind(':'));
    const auto [session, isNew] = queries.sessionOf.try_emplace(name, queries.sessions.size());
    if (isNew) {
        queries.sessions.emplace_back();
    }
    queries.sessions[session->second].push_back(index);
    queries.diskOf[disk.node] = index;
}

void READER_LunsAnswered(Queries &queries, std::string_view session)
{
    const auto named = queries.sessionOf.find(session);
    queries.isOrdered = EnterSession(queries) && named != queries.sessionOf.end() && named->second == queries.session &&
                        queries.isOrdered;
    queries.hasLuns = true;
}

void READER_LunsFailed(Queries &queries, std::string_view message)
{
    std::optional<std::size_t> disk;
    if (EnterSession(queries)) {
        disk = queries.sessions[queries.session][queries.lunFailures++];
    }
    const auto named = NamedDisk(queries, message);
    queries.isOrdered = queries.isOrdered && disk && (!named || *named == *disk);
    queries.failed.push_back({queries.session, disk, false, READER_Shown(message)});
}

void READER_InquiryFailed(Queries &queries, std::string_view message)
{
    queries.isOrdered = queries.isOrdered && AreLunsOver(queries);
    queries.failed.push_back({queries.session, NamedDisk(queries, message), true, READER_Shown(message)});
}

void READER_AssignQueries(const Queries &queries, Run &run)
{
    if (!queries.isOrdered || !run.isWhole) {
        AssignWithoutOrder(queries, run);
        return;
    }
    for (auto query = queries.failed.begin(); query != queries.failed.end();) {
        const auto end = std::find_if(query, queries.failed.end(), [&query](const FailedQuery &other) {
            return other.session != query->session || other.isInquiry != query->isInquiry;
        });
        if (query->isInquiry) {
            AssignInquiries(run, queries.sessions[query->session], {query, end});
        } else {
            std::for_each(query, end, [&run](const FailedQuery &luns) { Assign(run, *luns.disk, luns.message); });
        }
        query = end;
    }
}
