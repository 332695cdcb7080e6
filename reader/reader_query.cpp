#include "reader_query.h"

#include <algorithm>
#include <iterator>
#include <span>

#include "reader_text.h"

namespace {

constexpr std::size_t kMaxCandidates = std::size_t{1} << 20;  // listed for unassigned queries of a run

bool AreLunsOver(const Queries &queries)
{
    return queries.session < queries.sessions.size() &&
           (queries.hasLuns || queries.lunFailures == queries.sessions[queries.session].size());
}

// Advances to the session that the next REPORT LUNS belongs to. Returns false if there is none.
bool EnterSession(Queries &queries)
{
    if (AreLunsOver(queries)) {
        ++queries.session;
        queries.lunFailures = 0;
        queries.hasLuns = false;
    }
    return queries.session < queries.sessions.size();
}

// The disk that the message names; only the failure to open a node names one.
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

// Adds a failed query to one of these disks, or to any disk if the list is empty.
void LeaveUnassigned(Run &run, const std::string &message, std::span<const std::size_t> disks)
{
    if (disks.size() > kMaxCandidates - run.candidates) {
        disks = {};
    }
    run.candidates += disks.size();
    run.unassigned.push_back({message, {disks.begin(), disks.end()}});
}

// The disks of a session to which an INQUIRY may have failed: it was sent, and no record shows an answer.
std::vector<std::size_t> SuspectsOf(const Run &run, const std::vector<std::size_t> &session)
{
    std::vector<std::size_t> suspects;
    std::copy_if(session.begin(), session.end(), std::back_inserter(suspects), [&run](std::size_t disk) {
        return run.disks[disk].state != DiskCondition::Removed && run.disks[disk].state != DiskCondition::Changed;
    });
    return suspects;
}

// For each failure the last suspect that leaves enough suspects for the failures after it, as indices in `suspects`.
// Returns nothing if there are more failures than suspects.
std::optional<std::vector<std::size_t>> LatestOf(std::span<const FailedQuery> failed,
                                                 const std::vector<std::size_t> &suspects)
{
    std::vector<std::size_t> latest(failed.size());
    std::size_t end = suspects.size();  // of the suspects that are left
    for (std::size_t i = failed.size(); i > 0; --i) {
        const std::optional<std::size_t> named = failed[i - 1].disk;
        while (named && end > 0 && suspects[end - 1] != *named) {
            --end;
        }
        if (end == 0) {
            return std::nullopt;
        }
        --end;
        latest[i - 1] = end;
    }
    return latest;
}

// For each failure the first suspect that leaves enough suspects for the failures before it.
std::vector<std::size_t> EarliestOf(std::span<const FailedQuery> failed, const std::vector<std::size_t> &latest)
{
    std::vector<std::size_t> earliest(failed.size());
    std::size_t next = 0;
    for (std::size_t i = 0; i < failed.size(); ++i) {
        earliest[i] = failed[i].disk ? latest[i] : next;
        next = earliest[i] + 1;
    }
    return earliest;
}

// Assigns the failed INQUIRYs of a session. Failures come in query order, at most one per disk, so each has an earliest
// and a latest disk. For example, two INQUIRYs to the disks 1, 2 and 3 failed, and the second one names disk 3: the
// first one failed on 1 or 2. If one INQUIRY to four disks failed without a name, any of the four may have failed.
void AssignInquiries(Run &run, const std::vector<std::size_t> &session, std::span<const FailedQuery> failed)
{
    const std::vector<std::size_t> suspects = SuspectsOf(run, session);
    const auto latest = LatestOf(failed, suspects);
    if (!latest) {
        for (const FailedQuery &query : failed) {
            LeaveUnassigned(run, query.message, session);
        }
        return;
    }
    const std::vector<std::size_t> earliest = EarliestOf(failed, *latest);
    for (std::size_t i = 0; i < failed.size(); ++i) {
        const std::size_t count = (*latest)[i] + 1 - earliest[i];
        if (count == 1) {
            Assign(run, suspects[earliest[i]], failed[i].message);
        } else {
            LeaveUnassigned(run, failed[i].message, std::span(suspects).subspan(earliest[i], count));
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
    const bool isEntered = EnterSession(queries);
    const auto named = queries.sessionOf.find(session);
    const bool isThis = named != queries.sessionOf.end() && named->second == queries.session;
    queries.isOrdered = queries.isOrdered && isEntered && isThis;
    queries.hasLuns = true;
}

void READER_LunsFailed(Queries &queries, std::string_view message)
{
    std::optional<std::size_t> disk;
    if (EnterSession(queries)) {
        disk = queries.sessions[queries.session][queries.lunFailures];
        ++queries.lunFailures;
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
    run.sessionDisks = queries.sessions;
    run.sessionQueried = queries.session;
    run.areLunsOver = AreLunsOver(queries);
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
