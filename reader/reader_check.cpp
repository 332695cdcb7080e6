#include "reader_check.h"

#include <algorithm>
#include <array>
#include <climits>

#include "reader_text.h"
#include "reader_time.h"

namespace {

constexpr std::size_t kMaxNames = 5;  // per list in the line

struct Verdict {
    CheckState state = kCheckOk;
    std::string text;
};

// OK < UNKNOWN < WARNING < CRITICAL
int SeverityOf(CheckState state)
{
    constexpr std::array<int, 4> kSeverities = {0, 2, 3, 1};
    return kSeverities[static_cast<std::size_t>(state)];
}

void Worsen(Verdict &verdict, CheckState state, const std::string &reason)
{
    if (SeverityOf(state) > SeverityOf(verdict.state)) {
        verdict.state = state;
    }
    verdict.text += (verdict.text.empty() ? "" : "; ") + reason;
}

// Adds a reason with names, if there are any.
void WorsenBy(Verdict &verdict, CheckState state, const std::string &reason, const std::vector<std::string> &names)
{
    if (names.empty()) {
        return;
    }
    std::string list;
    for (std::size_t i = 0; i < std::min(names.size(), kMaxNames); ++i) {
        list += " " + names[i];
    }
    const std::size_t more = names.size() > kMaxNames ? names.size() - kMaxNames : 0;
    Worsen(verdict, state, reason + list + (more == 0 ? "" : " and " + std::to_string(more) + " more"));
}

// Returns whether the disk is not stale, as far as is known, and the administrator excused it.
bool IsIgnored(const Disk &disk, const Demands &demands)
{
    return !disk.IsStale() &&
           std::find(demands.ignored.begin(), demands.ignored.end(), disk.address) != demands.ignored.end();
}

// The names of the disks for which `isMeant` holds.
template <typename Predicate>
std::vector<std::string> NamesOf(const std::vector<Disk> &disks, Predicate isMeant)
{
    std::vector<std::string> names;
    for (const Disk &disk : disks) {
        if (isMeant(disk)) {
            names.emplace_back(!disk.address.empty() ? disk.address : !disk.node.empty() ? disk.node : "?");
        }
    }
    return names;
}

// Failed queries of a run that are taken for ignored disks, and all others.
struct Excuses {
    std::vector<std::string> names;  // of the disks that excuse a failure, with the number of other candidates
    std::size_t unexcused = 0;       // failed queries on disks of unknown name
};

// The record of a failed query may leave several candidates. Each ignored disk among them excuses one query: it always
// fails, so the failure is most likely its own.
Excuses ExcusesIn(const Run &run, const Demands &demands)
{
    Excuses excuses;
    std::vector<std::size_t> used;  // indices in Run::disks
    for (const Unassigned &query : run.unassigned) {
        const auto disk = std::find_if(query.disks.begin(), query.disks.end(), [&](std::size_t candidate) {
            return IsIgnored(run.disks[candidate], demands) &&
                   std::find(used.begin(), used.end(), candidate) == used.end();
        });
        if (disk == query.disks.end()) {
            ++excuses.unexcused;
            continue;
        }
        used.push_back(*disk);
        excuses.names.push_back(std::string(run.disks[*disk].address) + " (or another of " +
                                READER_Count(query.disks.size(), "disk") + ")");
    }
    return excuses;
}

// The changed disks that are in use, each with what uses it: "3:0:0:1 (/srv/data)".
std::vector<std::string> MisusedIn(const Run &run)
{
    std::vector<std::string> names;
    for (const Disk &disk : run.disks) {
        if (disk.use && READER_IsMisused(disk)) {
            const auto &chains = disk.use->chains;
            const auto mount = std::find_if(chains.begin(), chains.end(), [](const std::vector<std::string> &chain) {
                return chain.back().starts_with('/');
            });
            const std::size_t more = chains.size() - 1;
            names.push_back(std::string(disk.address) + " (" +
                            (mount == chains.end() ? chains.front() : *mount).back() +
                            (more == 0 ? "" : " and " + std::to_string(more) + " more") + ")");
        }
    }
    return names;
}

void JudgeDisks(Verdict &verdict, const Run &run, const Demands &demands)
{
    const auto failed = [](const Disk &disk) { return disk.action == DiskAction::Failed; };
    const auto left = [&failed](const Disk &disk) {
        return disk.IsStale() && disk.action != DiskAction::Deleted && !failed(disk);
    };
    const auto notQuestioned = [&demands](const Disk &disk) {
        return disk.state == DiskCondition::NotQuestioned && !IsIgnored(disk, demands);
    };
    const auto leftOut = [&demands](const Disk &disk) { return !IsIgnored(disk, demands); };
    const auto mayBeMisused = [&run](const Disk &disk) {
        return run.areUsersUnknown && disk.state == DiskCondition::Changed && disk.action != DiskAction::Deleted &&
               READER_DoubtAbout(disk).empty();
    };
    WorsenBy(verdict, kCheckCritical, "changed and in use:", MisusedIn(run));
    WorsenBy(verdict, kCheckCritical, "changed, and it is not known who uses them:", NamesOf(run.disks, mayBeMisused));
    WorsenBy(verdict, kCheckCritical, "deletion failed:", NamesOf(run.disks, failed));
    WorsenBy(
        verdict, kCheckWarning,
        run.isWhole && run.outcome != Outcome::NotEnded ? "stale and left in place:" : "stale, deletion not recorded:",
        NamesOf(run.disks, left));
    WorsenBy(verdict, kCheckWarning, "not questioned:", NamesOf(run.disks, notQuestioned));
    WorsenBy(verdict, kCheckWarning, "left out:", NamesOf(run.leftOut, leftOut));
    const std::size_t queries = ExcusesIn(run, demands).unexcused;
    if (queries > 0) {
        Worsen(verdict, kCheckWarning, "queries failed on unknown disks: " + std::to_string(queries));
    }
    if (run.checked == true && run.disks.empty()) {
        Worsen(verdict, kCheckWarning, "no supported disk found");
    }
}

// The ignored disks that would otherwise be reported.
std::vector<std::string> IgnoredIn(const Run &run, const Demands &demands)
{
    std::vector<std::string> names =
        NamesOf(READER_Remarkable(run), [&demands](const Disk &disk) { return IsIgnored(disk, demands); });
    const std::vector<std::string> excused = ExcusesIn(run, demands).names;
    names.insert(names.end(), excused.begin(), excused.end());
    return names;
}

// Adds notes, which a good run has, too.
void AddNotes(Verdict &verdict, const Run &run, const Demands &demands)
{
    const std::vector<std::string> ignored = IgnoredIn(run, demands);
    if (verdict.text.empty()) {
        verdict.text = READER_Count(run.disks.size(), "disk") + (ignored.empty() ? " checked" : " found");
    }
    WorsenBy(verdict, kCheckOk, "ignored:", ignored);
    WorsenBy(verdict, kCheckOk,
             "deleted:", NamesOf(run.disks, [](const Disk &disk) { return disk.action == DiskAction::Deleted; }));
}

void Judge(Verdict &verdict, const Run &run, const Demands &demands)
{
    if (run.outcome == Outcome::Refused) {
        Worsen(verdict, kCheckWarning, "refused: " + run.refusal);
    }
    if (run.outcome == Outcome::NotEnded) {
        Worsen(verdict, kCheckCritical, "no end is recorded");
    }
    if (!run.isWhole) {
        Worsen(verdict, kCheckWarning, "records are missing");
    }
    JudgeDisks(verdict, run, demands);
    if (run.listLoaded == false) {
        Worsen(verdict, kCheckWarning, "the supported-device list was not loaded");
    }
    if (run.outcome == Outcome::Complete && run.isWhole && !run.checked) {
        // A run on a host without any SCSI disk leaves the same records, so the line names both causes.
        Worsen(verdict, demands.mustLook ? kCheckWarning : kCheckOk,
               "no disk was looked at: --nocheck, or there is no SCSI disk");
    }
    WorsenBy(verdict, kCheckWarning, "not rescanned:", run.hostsNotRescanned);
    WorsenBy(verdict, kCheckWarning, "not rescanned:", run.controllersNotRescanned);
    WorsenBy(verdict, kCheckWarning, "not listed:", run.inventoryErrors);
    AddNotes(verdict, run, demands);
    if (std::max(READER_Seconds(run.start), READER_Seconds(run.end)) > demands.now.value_or(LLONG_MAX)) {
        Worsen(verdict, kCheckUnknown, "that is later than now");
    }
}

std::string NameOf(const Run &run)
{
    return "run " + std::to_string(run.number) + " of " + run.start;
}

// Judges each run that counts and adds its verdict to `all`. Returns these runs.
std::vector<const Run *> JudgeRuns(Verdict &all, const std::vector<Run> &runs, const Demands &demands)
{
    std::vector<const Run *> judged;
    const Run *tooOld = nullptr;
    for (const Run &run : runs) {
        if (run.isAtWork == true) {
            continue;
        }
        if (demands.since && READER_Seconds(run.start).value_or(0) < *demands.since) {
            tooOld = &run;
            continue;
        }
        Verdict verdict;
        Judge(verdict, run, demands);
        Worsen(all, verdict.state, NameOf(run) + ": " + verdict.text);
        judged.push_back(&run);
    }
    if (judged.empty()) {
        Worsen(all, kCheckUnknown,
               tooOld == nullptr ? "no run to judge"
                                 : "no run began since " + READER_LocalTime(demands.since.value_or(0)) +
                                       "; the last one is " + NameOf(*tooOld));
    } else if (demands.oldest && READER_Seconds(judged.back()->end).value_or(0) < *demands.oldest) {
        Worsen(all, kCheckUnknown, "that is too long ago");
    }
    return judged;
}

void Write(std::FILE *out, const Verdict &verdict, const std::string &performance)
{
    constexpr std::array<const char *, 4> kNames = {"OK", "WARNING", "CRITICAL", "UNKNOWN"};
    std::string text = verdict.text;
    std::replace(text.begin(), text.end(), '|', '/');  // begins the performance data
    (void)std::fprintf(out, "VDRESCAN %s - %s%s\n", kNames[static_cast<std::size_t>(verdict.state)], text.c_str(),
                       performance.c_str());
}

}  // namespace

CheckState READER_Check(std::FILE *out, const std::vector<Run> &runs, const Demands &demands, const RunLock &lock)
{
    Verdict all;
    const std::vector<const Run *> judged = JudgeRuns(all, runs, demands);
    if (lock.isHeld) {
        const auto atWork = std::find_if(runs.begin(), runs.end(), [](const Run &run) { return run.isAtWork == true; });
        Worsen(all, kCheckOk,
               atWork == runs.end() ? "a run is at work since " + lock.since
                                    : "run " + std::to_string(atWork->number) + " is at work since " + lock.since);
    }
    std::string performance;
    if (!judged.empty()) {
        const Run &run = *judged.front();
        const Tally tally = READER_TallyOf(run);
        performance = " | disks=" + std::to_string(run.disks.size()) + " stale=" + std::to_string(tally.stale) +
                      " deleted=" + std::to_string(tally.deleted) + " failed=" + std::to_string(tally.failed) +
                      " not_questioned=" + std::to_string(tally.notQuestioned) +
                      " failed_queries=" + std::to_string(tally.failedQueries);
    }
    Write(out, all, performance);
    return all.state;
}

CheckState READER_CheckUnknown(std::FILE *out, const std::string &reason)
{
    Write(out, {kCheckUnknown, READER_Shown(reason)}, "");
    return kCheckUnknown;
}
