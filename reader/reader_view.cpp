#include "reader_view.h"

#include <algorithm>
#include <array>
#include <iterator>

#include "reader_text.h"

namespace {

constexpr std::size_t kMaxSuspects = 8;  // candidates of one query that are printed

using Row = std::array<std::string, 7>;

std::string TextOr(std::string_view text, const char *otherwise)
{
    return std::string(text.empty() ? otherwise : text);
}

std::string OutcomeOf(const Run &run)
{
    return kOutcomeNames[static_cast<std::size_t>(run.outcome)] + (run.refusal.empty() ? "" : ", " + run.refusal);
}

// The result of the check for stale disks.
std::string CheckOf(const Run &run)
{
    if (run.outcome == Outcome::Refused) {
        return "Nothing was done.";
    }
    if (run.listLoaded == false) {
        return "No disk was looked at: the supported-device list was not loaded.";
    }
    const std::string list = run.listLoaded.value_or(false) ? "The supported-device list was loaded. " : "";
    if (run.checked) {
        return list + (run.isWhole ? "" : "At least ") + READER_Count(run.disks.size(), "supported disk") +
               " found in " + READER_Count(run.sessions, "session") + ", " + std::to_string(run.leftOut.size()) +
               " left out, " + std::to_string(run.disksOfOthers) + " others not in the list.";
    }
    if (!run.isWhole) {
        return list + "The records do not show whether disks were looked at.";
    }
    return list + "No disk was looked at" +
           (run.outcome == Outcome::Complete ? ": --nocheck, or there is no SCSI disk." : " so far.");
}

void WriteHeading(std::FILE *out, const Run &run)
{
    const auto seconds = READER_Duration(run);
    (void)std::fprintf(out, "Run %llu of %s, %s: %s.\n", static_cast<unsigned long long>(run.number),
                       TextOr(run.start, "an unknown time").c_str(),
                       seconds ? READER_Count(static_cast<std::size_t>(*seconds), "second").c_str() : "? seconds",
                       OutcomeOf(run).c_str());
    if (run.outcome == Outcome::NotEnded) {
        (void)std::fprintf(out, "%s\n",
                           !run.isAtWork   ? "It was stopped, or is at work, or the log took no more records."
                           : *run.isAtWork ? "It is at work."
                                           : "It was stopped, or the log took no more records.");
    }
    if (!run.isWhole) {
        (void)std::fputs("Records of it are missing, so this may not be all.\n", out);
    }
    (void)std::fprintf(out, "%s\n", CheckOf(run).c_str());
    if (run.asked) {
        (void)std::fprintf(out, "The operator was asked and %s.\n",
                           !run.answer   ? "no answer is recorded"
                           : *run.answer ? "said yes"
                                         : "said no");
    }
}

void WriteLines(std::FILE *out, const char *title, const std::vector<std::string> &lines)
{
    for (const std::string &line : lines) {
        (void)std::fprintf(out, "%s%s\n", title, line.c_str());
    }
}

// The lines below the row of a disk: the reason, what to know before it is deleted, and who uses it.
std::vector<std::string> LinesBelow(const Disk &disk)
{
    std::vector<std::string> lines = {
        disk.reason, std::string(READER_DoubtAbout(disk)),
        READER_IsMisused(disk) ? "What uses it reads and writes another volume now." : ""};
    std::erase(lines, "");
    if (disk.use && disk.use->chains.empty()) {
        lines.push_back(disk.use->block + " > -");
    } else if (disk.use) {
        for (const std::vector<std::string> &chain : disk.use->chains) {
            lines.push_back(disk.use->block);
            for (const std::string &name : chain) {
                lines.back() += " > " + name;
            }
        }
    }
    return lines;
}

// Writes a row for every disk, with its lines below.
void WriteDisks(std::FILE *out, const std::vector<Disk> &disks)
{
    std::vector<Row> rows = {{"ADDRESS", "NODE", "VENDOR", "PRODUCT", "STATE", "ACTION", "WWN"}};
    for (const Disk &disk : disks) {
        rows.push_back({TextOr(disk.address, "?"), TextOr(disk.node, "?"), TextOr(disk.vendor, "?"),
                        TextOr(disk.product, "?"), kStateNames[static_cast<std::size_t>(disk.state)],
                        kActionNames[static_cast<std::size_t>(disk.action)],
                        TextOr(disk.wwn, "?") + (disk.wwnNow.empty() ? "" : " -> ") + std::string(disk.wwnNow)});
    }
    std::array<std::size_t, std::tuple_size_v<Row>> widths = {};
    for (const Row &row : rows) {
        for (std::size_t column = 0; column < row.size(); ++column) {
            widths[column] = std::max(widths[column], row[column].size());
        }
    }
    widths.back() = 0;  // nothing follows it
    for (std::size_t i = 0; i < rows.size(); ++i) {
        for (std::size_t column = 0; column < widths.size(); ++column) {
            (void)std::fprintf(out, "%s%-*s", column == 0 ? "" : "  ", static_cast<int>(widths[column]),
                               rows[i][column].c_str());
        }
        (void)std::fputs("\n", out);
        if (i > 0) {
            WriteLines(out, "    ", LinesBelow(disks[i - 1]));
        }
    }
}

std::vector<Disk> MostUrgentFirst(const std::vector<Disk> &disks)
{
    std::vector<Disk> sorted;
    std::copy_if(disks.begin(), disks.end(), std::back_inserter(sorted), READER_IsMisused);
    std::remove_copy_if(disks.begin(), disks.end(), std::back_inserter(sorted), READER_IsMisused);
    return sorted;
}

void WriteUnassigned(std::FILE *out, const Run &run)
{
    for (const Unassigned &query : run.unassigned) {
        (void)std::fprintf(out, "A query failed, on one of these disks: %s\n   ", query.message.c_str());
        for (std::size_t i = 0; i < std::min(query.disks.size(), kMaxSuspects); ++i) {
            (void)std::fprintf(out, " %s", std::string(run.disks[query.disks[i]].address).c_str());
        }
        const bool isCut = query.disks.size() > kMaxSuspects;
        (void)std::fprintf(out, "%s\n", query.disks.empty() ? " any" : isCut ? " ..." : "");
    }
}

// The notes after the outcome in the line of a run.
std::string NotesOf(const Run &run)
{
    std::string notes;
    const auto add = [&notes](const std::string &note) { notes += (notes.empty() ? "  " : ", ") + note; };
    if (!run.isWhole) {
        add("records are missing");
    }
    if (run.listLoaded == false) {
        add("list not loaded");
    } else if (run.outcome == Outcome::Complete && !run.checked && run.isWhole) {
        add("no disk looked at");
    }
    if (run.checked == true) {
        const Tally tally = READER_TallyOf(run);
        add(READER_Count(run.disks.size(), "disk"));
        add(std::to_string(tally.stale) + " stale");
        add(std::to_string(tally.deleted) + " deleted");
        add(std::to_string(tally.failed) + " failed");
        add(std::to_string(tally.notQuestioned) + " not questioned");
        if (tally.failedQueries > 0) {
            add("queries failed on unknown disks: " + std::to_string(tally.failedQueries));
        }
    }
    const std::size_t notRescanned = run.hostsNotRescanned.size() + run.controllersNotRescanned.size();
    if (notRescanned > 0) {
        add(std::to_string(notRescanned) + " not rescanned");
    }
    if (!run.inventoryErrors.empty()) {
        add(std::to_string(run.inventoryErrors.size()) + " not listed");
    }
    return notes;
}

}  // namespace

void READER_RunToView(std::FILE *out, const Run &run)
{
    WriteHeading(out, run);
    const std::vector<Disk> disks = MostUrgentFirst(READER_Remarkable(run));
    if (!disks.empty()) {
        (void)std::fputs("\n", out);
        WriteDisks(out, disks);
    }
    if (run.outcome == Outcome::Refused) {
        return;
    }
    (void)std::fputs("\n", out);
    for (const OtherProduct &other : run.others) {
        (void)std::fprintf(out, "Not in the list: %s %s: %zu\n", std::string(other.vendor).c_str(),
                           std::string(other.product).c_str(), other.disks);
    }
    for (const std::string_view session : run.sessionsRemoved) {
        (void)std::fprintf(out, "Every %sdisk of session %s is removed; an array that is starting reports no LUN.\n",
                           run.isWhole ? "" : "recorded ", std::string(session).c_str());
    }
    if (run.areUsersUnknown) {
        (void)std::fputs("Not known: who uses the stale disks; lsblk gave no list.\n", out);
    }
    WriteUnassigned(out, run);
    WriteLines(out, "Not listed: ", run.inventoryErrors);
    WriteLines(out, "Not rescanned: ", run.hostsNotRescanned);
    WriteLines(out, "Not rescanned: ", run.controllersNotRescanned);
    (void)std::fprintf(out, "Rescanned: %s, %s.\n", READER_Count(run.hostsRescanned, "host").c_str(),
                       READER_Count(run.controllersRescanned, "controller").c_str());
}

void READER_RunToLine(std::FILE *out, const Run &run)
{
    (void)std::fprintf(out, "%4llu  %-19s  %-21s%s\n", static_cast<unsigned long long>(run.number),
                       TextOr(run.start, "?").c_str(), OutcomeOf(run).c_str(), NotesOf(run).c_str());
}
