#include "reader_follow.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "mpi_owner.h"
#include "reader_text.h"
#include "reader_time.h"

namespace {

// One command to a silent disk: three attempts of 10 seconds.
constexpr long long kCommandSeconds = 30;

constexpr int kDescriptors = 1024;  // a caller may have left some open

// How far the queries are.
struct Position {
    const Disk *disk = nullptr;  // whose generic node is open
    std::size_t session = 0;     // its session, from 1
    std::size_t done = 0;        // disks that need no further query
    long long seconds = 0;       // until the last query has ended, if every disk is silent from now on
};

bool IsAttribute(const std::string &path)
{
    return path.starts_with("/sys/") && (path.ends_with("/delete") || path.ends_with("/scan"));
}

// The generic node or the attribute that the process has open; empty if there is none, or if it cannot be read.
std::string OpenPathOf(long process)
{
    const std::string directory = "/proc/" + std::to_string(process) + "/fd/";
    std::array<char, PATH_MAX> target;
    for (int fd = 0; fd < kDescriptors; ++fd) {
        const ssize_t size = readlink((directory + std::to_string(fd)).c_str(), target.data(), target.size());
        const std::string path(target.data(), size < 0 ? 0 : static_cast<std::size_t>(size));
        if (path.starts_with("/dev/sg") || IsAttribute(path)) {
            return READER_Shown(path);
        }
    }
    return "";
}

// The kernel's state of the disk with that generic node, such as "running".
std::string StateOf(const std::string &node)
{
    const std::string name = node.substr(node.rfind('/') + 1);
    const OwnedFile file(std::fopen(("/sys/class/scsi_generic/" + name + "/device/state").c_str(), "re"));
    std::array<char, 64> state = {};
    const bool isRead = file != nullptr && std::fgets(state.data(), state.size(), file.get()) != nullptr;
    return isRead ? READER_Shown(state.data()) : "?";
}

// The run queries the sessions in the order of their first disks. In each, it sends REPORT LUNS to one disk after
// another until one answers, and then an INQUIRY to each disk.
Position FindPosition(const Run &run, const std::string &node)
{
    Position position;
    const auto found =
        std::find_if(run.disks.begin(), run.disks.end(), [&node](const Disk &disk) { return disk.node == node; });
    if (found == run.disks.end()) {
        return position;
    }
    position.disk = &*found;
    const std::size_t index = static_cast<std::size_t>(found - run.disks.begin());
    bool isLater = false;  // the session comes after that of the disk
    for (std::size_t session = 0; session < run.sessionDisks.size(); ++session) {
        const std::vector<std::size_t> &disks = run.sessionDisks[session];
        const auto disk = std::find(disks.begin(), disks.end(), index);
        const auto count = static_cast<long long>(disks.size());
        if (disk != disks.end()) {
            const bool isInquiry = session == run.sessionQueried && run.areLunsOver;
            const auto before = disk - disks.begin();
            position.session = session + 1;
            position.done += isInquiry ? static_cast<std::size_t>(before) : 0;
            position.seconds = (count - before + (isInquiry ? 0 : count)) * kCommandSeconds;
            isLater = true;
        } else if (isLater) {
            position.seconds += 2 * count * kCommandSeconds;
        } else {
            position.done += disks.size();
        }
    }
    return position;
}

// "0:03:20"
std::string DurationOf(long long seconds)
{
    const auto twoDigits = [](long long number) { return (number < 10 ? ":0" : ":") + std::to_string(number); };
    return std::to_string(seconds / 3600) + twoDigits(seconds / 60 % 60) + twoDigits(seconds % 60);
}

// What a run does that has no generic node open.
std::string StepOf(const Run &run, const std::string &path)
{
    const Tally tally = READER_TallyOf(run);
    const std::size_t targets = run.hostsRescanned + run.controllersRescanned + run.hostsNotRescanned.size() +
                                run.controllersNotRescanned.size();
    std::string step = run.disks.empty() ? "lists devices" : "checks " + READER_Count(run.disks.size(), "disk");
    if (targets > 0 || path.ends_with("/scan")) {
        step = "rescans";
    } else if (tally.deleted + tally.failed > 0 || path.ends_with("/delete")) {
        step = "deletes, " + std::to_string(tally.deleted + tally.failed) + " of " + READER_Count(tally.stale, "disk");
    } else if (run.asked && !run.answer) {
        step = "waits for the answer to its question";
    }
    if (path.starts_with("/dev/sg")) {
        step = "queries disks";  // the record of this one is missing
    }
    return step + (path.empty() ? "" : ", waits for " + path);
}

struct Line {
    std::string text;
    std::string news;  // the text without times
    double share = 0;  // of the disks that are done
};

// The share of the disks that a step without a query has done.
double ShareOf(const Run &run, const std::string &step)
{
    const Tally tally = READER_TallyOf(run);
    if (step.starts_with("deletes")) {
        return static_cast<double>(tally.deleted + tally.failed) / static_cast<double>(std::max(tally.stale, 1UL));
    }
    return step.starts_with("lists") || step.starts_with("checks") ? 0 : 1;
}

Line LineOf(const Run &run, const std::string &path, long long silent, long long now)
{
    const std::string name = run.number == 0 ? "a run without records" : "run " + std::to_string(run.number);
    const std::string start =
        name + ", " + DurationOf(std::max(0LL, now - READER_Seconds(run.start).value_or(now))) + ": ";
    const Position position = FindPosition(run, path);
    if (position.disk == nullptr) {
        const std::string step = StepOf(run, path);
        return {start + step, step, ShareOf(run, step)};
    }
    const std::string where = "session " + std::to_string(position.session) + " of " +
                              std::to_string(run.sessionDisks.size()) + ", " + std::string(position.disk->address) +
                              " (" + path + ", " + StateOf(path) + ")";
    const std::string disks = std::to_string(position.done) + " of " + READER_Count(run.disks.size(), "disk");
    return {start + where + " silent for " + std::to_string(silent) + " s; " + disks +
                (run.isWhole ? "; at most " + DurationOf(position.seconds) + " more" : ""),
            where + disks, static_cast<double>(position.done) / static_cast<double>(run.disks.size())};
}

// Draws the line and, below it, a bar as wide as the terminal. Returns the number of terminal lines above the bar.
std::size_t Draw(std::FILE *out, const Line &line)
{
    winsize size = {};
    const bool isKnown = ioctl(fileno(out), TIOCGWINSZ, &size) == 0 && size.ws_col > 2;
    const std::size_t width = isKnown ? size.ws_col : 80;
    const auto filled = static_cast<std::size_t>(line.share * static_cast<double>(width - 2));
    const char *noColor = std::getenv("NO_COLOR");  // https://no-color.org: set and not empty
    const bool hasColor = noColor == nullptr || *noColor == '\0';
    (void)std::fprintf(out, "%s\n[%s%s%s%s]", line.text.c_str(), hasColor ? "\x1b[32m" : "",
                       std::string(filled, '#').c_str(), hasColor ? "\x1b[0m" : "",
                       std::string(width - 2 - filled, '.').c_str());
    return (line.text.size() + width - 1) / width;
}

void ShowDeletions(std::FILE *out, const Run &run, Progress &progress)
{
    for (const Disk &disk : run.disks) {
        const bool isNew = disk.action == DiskAction::Deleted || disk.action == DiskAction::Failed;
        if (isNew && progress.deletions.insert(std::string(disk.address)).second) {
            (void)std::fprintf(out, "%s: %s\n", std::string(disk.address).c_str(),
                               kActionNames[static_cast<std::size_t>(disk.action)]);
        }
    }
}

// Clears the bar and the lines above it, one by one: terminals may keep a copy of what is cleared at once.
void Erase(std::FILE *out, Progress &progress)
{
    if (progress.lines > 0) {
        (void)std::fputs("\r\x1b[2K", out);
    }
    for (; progress.lines > 0; --progress.lines) {
        (void)std::fputs("\x1b[1A\x1b[2K", out);
    }
}

}  // namespace

void READER_ShowProgress(std::FILE *out, const Run &run, const RunLock &lock, Progress &progress)
{
    const long long now = std::time(nullptr);
    const std::string path = OpenPathOf(lock.process);
    const bool isFirst = progress.shown.empty();
    if (isFirst || path != progress.waitsFor) {
        progress.waitsFor = path;
        // The query began after the last record. It may have begun later, if this is the first look.
        progress.since = isFirst ? READER_Seconds(run.end).value_or(now) : now;
    }
    const Line line = LineOf(run, path, std::max(0LL, now - progress.since), now);
    Erase(out, progress);
    ShowDeletions(out, run, progress);
    if (isatty(fileno(out)) == 1) {
        progress.lines = Draw(out, line);
    } else if (line.news != progress.shown) {
        (void)std::fprintf(out, "%s\n", line.text.c_str());
    }
    progress.shown = line.news;
    (void)std::fflush(out);
}

void READER_EndProgress(std::FILE *out, const Run &run, Progress &progress)
{
    Erase(out, progress);
    ShowDeletions(out, run, progress);
}
