#include <getopt.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <ctime>
#include <iterator>
#include <optional>
#include <utility>

#include "log_path.h"
#include "mpi_owner.h"
#include "reader_check.h"
#include "reader_json.h"
#include "reader_run.h"
#include "reader_view.h"

namespace {

enum ExitStatus : int { kFound = 0, kNoRun = 1, kWrongArguments = 2 };

constexpr std::uint64_t kMaxNumber = 1000000000;  // that is read from an argument
constexpr long long kSecondsPerHour = 3600;

constexpr const char *kUsage =
    "usage: vdRescan_log [--all | --run N] [--json] [FILE | -]\n"
    "       vdRescan_log --check [--run N] [--max-age HOURS] [--must-look] [FILE | -]\n"
    "       vdRescan_log --help | --version\n"
    "Tells from the trace log of vdRescan_plus what its last run did.\n"
    "    --all            tell of all runs, one line each, newest last\n"
    "    --run N          tell of the run with that number\n"
    "    --json           write the same as data\n"
    "    --check          write one line and end with a status for a monitoring system\n"
    "    --max-age HOURS  with --check: the last run must not be older\n"
    "    --must-look      with --check: the last run must have looked at disks\n";

struct Settings {
    int all = 0;  // 1: the option is given; as for these
    int json = 0;
    int check = 0;
    int mustLook = 0;
    int help = 0;
    int version = 0;
    std::optional<std::uint64_t> number;
    std::optional<std::uint64_t> maxAge;  // hours
    const char *path = nullptr;
};

// Reads a number from 1 up. Returns false where the text is something else.
bool ReadNumber(std::string_view text, std::optional<std::uint64_t> &number)
{
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number.emplace());
    return error == std::errc() && end == text.data() + text.size() && *number > 0 && *number <= kMaxNumber;
}

// Returns false for arguments that are not understood; `check` is told all the same.
bool ReadArguments(int argc, char *argv[], Settings &settings)
{
    const option options[] = {
        {"all", no_argument, &settings.all, 1},
        {"run", required_argument, nullptr, 'r'},
        {"json", no_argument, &settings.json, 1},
        {"check", no_argument, &settings.check, 1},
        {"max-age", required_argument, nullptr, 'm'},
        {"must-look", no_argument, &settings.mustLook, 1},
        {"help", no_argument, &settings.help, 1},
        {"version", no_argument, &settings.version, 1},
        {},
    };
    bool isGood = true;
    for (int found = 0; (found = getopt_long(argc, argv, "", options, nullptr)) != -1;) {
        if (found != 0) {
            isGood = found != '?' && ReadNumber(optarg, found == 'r' ? settings.number : settings.maxAge) && isGood;
        }
    }
    settings.path = optind < argc ? argv[optind] : GetFilePathByType(DirectoryKind::Log, kTraceFileName);
    const bool isCheck = settings.check == 1;
    const bool isView = settings.all == 1 || settings.json == 1;
    return isGood && argc - optind <= 1 && !(settings.all == 1 && settings.number) && !(isCheck && isView) &&
           (isCheck || (!settings.maxAge && settings.mustLook == 0));
}

// Says why there is nothing to tell, as those expect it who asked.
int Refuse(const Settings &settings, const std::string &reason, ExitStatus status)
{
    if (settings.check == 1) {
        return READER_CheckUnknown(stdout, reason);
    }
    (void)std::fprintf(stderr, "vdRescan_log: %s\n", reason.c_str());
    return status;
}

// Keeps of the runs that were read so far what will be told.
void Pick(const Settings &settings, std::vector<RunText> &picked, RunText run)
{
    if (settings.number) {
        if (run.number != *settings.number) {
            return;
        }
    } else if (settings.check == 0 || !run.isRefused) {
        picked.clear();
    } else if (!picked.empty() && picked.back().isRefused) {
        // What the last run that worked has left behind still counts.
        picked.pop_back();
    }
    picked.push_back(std::move(run));
}

void Write(const Settings &settings, const Run &run, bool isFirst)
{
    if (settings.json == 1) {
        READER_RunToJson(stdout, run, isFirst);
    } else if (settings.all == 1) {
        READER_RunToLine(stdout, run);
    } else {
        READER_RunToView(stdout, run);
    }
}

int Check(const Settings &settings, const std::vector<RunText> &picked)
{
    std::vector<Run> runs;
    std::transform(picked.begin(), picked.end(), std::back_inserter(runs), READER_Tell);
    std::optional<long long> oldest;
    if (settings.maxAge) {
        oldest = std::time(nullptr) - static_cast<long long>(*settings.maxAge) * kSecondsPerHour;
    }
    return READER_Check(stdout, runs, oldest, settings.mustLook == 1);
}

int TellFrom(std::FILE *file, const Settings &settings)
{
    RunStream runs;
    runs.log.file = file;
    std::vector<RunText> picked;
    std::size_t written = 0;
    if (settings.json == 1) {
        READER_BeginJson(stdout);
    }
    for (RunText run; READER_NextRun(runs, run);) {
        if (settings.all == 1) {
            Write(settings, READER_Tell(run), written++ == 0);
        } else {
            Pick(settings, picked, std::move(run));
        }
    }
    const int error = std::ferror(file) == 0 ? 0 : errno;
    if (settings.check == 1 && !picked.empty() && error == 0) {
        return Check(settings, picked);
    }
    for (const RunText &run : picked) {
        Write(settings, READER_Tell(run), written++ == 0);
    }
    if (settings.json == 1) {
        READER_EndJson(stdout);
    }
    const std::string path(settings.path);
    if (error != 0) {
        return Refuse(settings, path + ": " + std::strerror(error), kNoRun);
    }
    return written > 0
               ? kFound
               : Refuse(settings, path + (settings.number ? " does not hold this run" : " holds no run"), kNoRun);
}

int TellFromPath(const Settings &settings)
{
    if (std::string_view(settings.path) == "-") {
        return TellFrom(stdin, settings);
    }
    const OwnedFile file(std::fopen(settings.path, "rb"));
    if (file == nullptr) {
        return Refuse(settings, std::string(settings.path) + ": " + std::strerror(errno), kNoRun);
    }
    return TellFrom(file.get(), settings);
}

}  // namespace

int main(int argc, char *argv[])
{
    Settings settings;
    if (!ReadArguments(argc, argv, settings)) {
        (void)std::fputs(kUsage, stderr);
        return Refuse(settings, "wrong arguments", kWrongArguments);
    }
    if (settings.help == 1 || settings.version == 1) {
        (void)std::printf("%s", settings.help == 1 ? kUsage : "vdRescan_log " VD_VERSION "\n");
        return kFound;
    }
    const int status = TellFromPath(settings);
    const bool isWritten = std::fflush(stdout) == 0 && std::ferror(stdout) == 0;
    return isWritten ? status : Refuse(settings, "the output cannot be written", kNoRun);
}
