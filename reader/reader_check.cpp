#include "reader_check.h"

#include <algorithm>
#include <array>

#include "reader_text.h"

namespace {

constexpr std::size_t kMaxNames = 5;  // of a list in the line

struct Verdict {
    CheckState state = kCheckOk;
    std::string text;
};

void Worsen(Verdict &verdict, CheckState state, const std::string &reason)
{
    // What is not known is worse than good, and better than what is known to be bad.
    if (state != kCheckUnknown || verdict.state == kCheckOk) {
        verdict.state = std::max(verdict.state, state);
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

// How the disks for which `isMeant` holds are named.
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

void JudgeDisks(Verdict &verdict, const Run &run)
{
    const auto failed = [](const Disk &disk) { return disk.action == DiskAction::Failed; };
    const auto left = [&failed](const Disk &disk) {
        return disk.IsStale() && disk.action != DiskAction::Deleted && !failed(disk);
    };
    const auto notQuestioned = [](const Disk &disk) { return disk.state == DiskState::NotQuestioned; };
    WorsenBy(verdict, kCheckCritical, "deletion failed:", NamesOf(run.disks, failed));
    WorsenBy(verdict, kCheckWarning, "stale and left in place:", NamesOf(run.disks, left));
    WorsenBy(verdict, kCheckWarning, "not questioned:", NamesOf(run.disks, notQuestioned));
    WorsenBy(verdict, kCheckWarning, "left out:", NamesOf(run.leftOut, [](const Disk & /*disk*/) { return true; }));
    if (!run.unassigned.empty()) {
        Worsen(verdict, kCheckWarning, READER_Count(run.unassigned.size(), "disk") + " of unknown name not questioned");
    }
    if (run.checked == true && run.disks.empty()) {
        Worsen(verdict, kCheckWarning, "no supported disk found");
    }
}

void Judge(Verdict &verdict, const Run &run, bool mustLook)
{
    if (run.outcome == Outcome::Refused) {
        Worsen(verdict, kCheckWarning, "refused: " + run.refusal);
    }
    if (run.outcome == Outcome::NotEnded) {
        Worsen(verdict, kCheckCritical, "did not end");
    }
    if (!run.isWhole) {
        Worsen(verdict, kCheckWarning, "records are missing");
    }
    JudgeDisks(verdict, run);
    if (run.listLoaded == false) {
        Worsen(verdict, kCheckWarning, "the supported-device list was not loaded");
    }
    if (run.outcome == Outcome::Complete && !run.checked) {
        // A run on a host without any SCSI disk leaves the same records, so the line names both.
        Worsen(verdict, mustLook ? kCheckWarning : kCheckOk,
               "no disk was looked at: --nocheck, or there is no SCSI disk");
    }
    WorsenBy(verdict, kCheckWarning, "not rescanned:", run.hostsNotRescanned);
    WorsenBy(verdict, kCheckWarning, "not rescanned:", run.controllersNotRescanned);
    WorsenBy(verdict, kCheckWarning, "not listed:", run.inventoryErrors);
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

CheckState READER_Check(std::FILE *out, const std::vector<Run> &runs, std::optional<long long> oldest, bool mustLook)
{
    Verdict all;
    for (const Run &run : runs) {
        Verdict verdict;
        Judge(verdict, run, mustLook);
        if (verdict.text.empty()) {
            verdict.text = READER_Count(run.disks.size(), "disk") + " checked";
        }
        Worsen(all, verdict.state, "run " + std::to_string(run.number) + " of " + run.start + ": " + verdict.text);
    }
    if (oldest && READER_Seconds(runs.back().end).value_or(0) < *oldest) {
        Worsen(all, kCheckUnknown, "that is too long ago");
    }
    const Tally tally = READER_TallyOf(runs.front());
    Write(out, all,
          " | disks=" + std::to_string(runs.front().disks.size()) + " stale=" + std::to_string(tally.stale) +
              " deleted=" + std::to_string(tally.deleted) + " failed=" + std::to_string(tally.failed) +
              " not_questioned=" + std::to_string(tally.notQuestioned));
    return all.state;
}

CheckState READER_CheckUnknown(std::FILE *out, const std::string &reason)
{
    Write(out, {kCheckUnknown, READER_Shown(reason)}, "");
    return kCheckUnknown;
}
