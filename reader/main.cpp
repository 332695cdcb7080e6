#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "mpi_owner.h"
#include "reader_check.h"
#include "reader_json.h"
#include "reader_lock.h"
#include "reader_options.h"
#include "reader_reconstruct.h"
#include "reader_view.h"

namespace {

enum ExitStatus : int { kFound = 0, kNoRun = 1, kWrongArguments = 2 };

// Reports why there is nothing to print: as a plugin with --check, else on standard error.
int Refuse(const Settings &settings, const std::string &reason, ExitStatus status)
{
    if (settings.Has(kCheck)) {
        return READER_CheckUnknown(stdout, reason);
    }
    (void)std::fprintf(stderr, "vdRescan_log: %s\n", reason.c_str());
    return status;
}

// What was read of a log: the runs that may be printed or judged.
struct Reading {
    std::optional<RunText> before;   // the last but one that was not refused
    std::optional<RunText> last;     // the last one that was not refused, or the one of --run
    std::optional<RunText> refused;  // the last one, where it was refused
    std::optional<RunLock> lock;     // of this host, if the log is the host's and the kernel can be asked
    std::size_t written = 0;         // runs written while the log was read
    int error = 0;                   // errno of a failed read
};

void Pick(const Settings &settings, Reading &picked, RunText run)
{
    if (settings.Has(kRun)) {
        if (run.number == static_cast<std::uint64_t>(settings.number)) {
            picked.last = std::move(run);
        }
    } else if (run.isRefused) {
        picked.refused = std::move(run);
    } else {
        picked.before = std::exchange(picked.last, std::move(run));
        picked.refused.reset();
    }
}

// Reconstructs the runs to print or judge. A run at work comes with the run before it, which is judged in its place. A
// run that has not ended comes with a copy that was refused after it.
std::vector<Run> Choose(const Settings &settings, const Reading &picked)
{
    std::vector<Run> runs;
    const auto add = [&runs, &picked](const RunText &text) {
        runs.push_back(READER_Reconstruct(text));
        if (picked.lock) {
            READER_MarkAtWork(runs.back(), *picked.lock);
        }
    };
    if (picked.last) {
        add(*picked.last);
        const bool isAtWork = runs.back().isAtWork == true;
        if (isAtWork && picked.before && settings.Has(kCheck)) {
            add(*picked.before);
            std::swap(runs.front(), runs.back());
        }
        const bool isOver = runs.back().outcome == Outcome::Complete;
        if (picked.refused && isOver && !settings.Has(kCheck)) {
            runs.clear();
        }
    }
    if (picked.refused) {
        add(*picked.refused);
    }
    return runs;
}

void Write(const Settings &settings, const Run &run, bool isFirst)
{
    if (settings.Has(kJson)) {
        READER_RunToJson(stdout, run, isFirst);
    } else if (settings.Has(kAll)) {
        READER_RunToLine(stdout, run);
    } else {
        (void)std::fputs(isFirst ? "" : "\n", stdout);
        READER_RunToView(stdout, run);
    }
}

// Reads the log to its end. With --all, writes each run as soon as it is read.
Reading ReadLog(std::FILE *file, const Settings &settings)
{
    Reading reading;
    RunStream runs;
    runs.log.file = file;
    for (RunText run; READER_NextRun(runs, run);) {
        if (settings.Has(kAll)) {
            Write(settings, READER_Reconstruct(run), reading.written++ == 0);
        } else {
            Pick(settings, reading, std::move(run));
        }
    }
    reading.error = std::ferror(file) == 0 ? 0 : errno;
    if (settings.isOwnLog) {
        reading.lock = READER_AskLock();
    }
    return reading;
}

// Returns whether the log has grown since its end was read; if so, rewinds it.
bool HasGrown(std::FILE *file)
{
    std::clearerr(file);
    return std::getc(file) != EOF && std::fseek(file, 0, SEEK_SET) == 0;
}

// Reads the log and reconstructs the runs to print or judge. A run without an end that does not hold the lock was
// stopped, unless it recorded its end after the log was read: then the log is read again.
std::vector<Run> ReadRuns(std::FILE *file, const Settings &settings, Reading &reading)
{
    for (;;) {
        reading = ReadLog(file, settings);
        std::vector<Run> runs = Choose(settings, reading);
        const bool isStopped = std::any_of(runs.begin(), runs.end(), [](const Run &run) {
            return run.outcome == Outcome::NotEnded && run.isAtWork == false;
        });
        if (!isStopped || reading.error != 0 || !HasGrown(file)) {
            return runs;
        }
    }
}

int ReportFrom(std::FILE *file, const Settings &settings)
{
    if (settings.Has(kJson)) {
        READER_BeginJson(stdout);
    }
    Reading reading;
    const std::vector<Run> runs = ReadRuns(file, settings, reading);
    if (settings.Has(kCheck) && !runs.empty() && reading.error == 0) {
        Demands demands = settings.demands;
        if (settings.isDateChecked) {
            demands.now = std::time(nullptr);  // only now: a run may have ended while the log was read
        }
        return READER_Check(stdout, runs, demands, reading.lock.value_or(RunLock()));
    }
    for (const Run &run : runs) {
        if (!settings.Has(kCheck)) {
            Write(settings, run, reading.written++ == 0);
        }
    }
    if (settings.Has(kJson)) {
        READER_EndJson(stdout);
    }
    const std::string path(settings.path);
    if (reading.error != 0) {
        return Refuse(settings, path + ": " + std::strerror(reading.error), kNoRun);
    }
    if (reading.written == 0) {
        return Refuse(settings, path + (settings.Has(kRun) ? " does not hold this run" : " holds no run"), kNoRun);
    }
    return kFound;
}

int ReportFromPath(const Settings &settings)
{
    if (std::string_view(settings.path) == "-") {
        return ReportFrom(stdin, settings);
    }
    const OwnedFile file(std::fopen(settings.path, "rb"));
    if (file == nullptr) {
        return Refuse(settings, std::string(settings.path) + ": " + std::strerror(errno), kNoRun);
    }
    return ReportFrom(file.get(), settings);
}

}  // namespace

int main(int argc, char *argv[])
{
    Settings settings;
    const std::string fault = READER_ReadArguments(argc, argv, settings);
    if (!fault.empty()) {
        return Refuse(settings, fault, kWrongArguments);
    }
    int status = kFound;
    if (settings.Has(kHelp) || settings.Has(kVersion)) {
        (void)std::printf("%s", settings.Has(kHelp) ? kReaderUsage : "vdRescan_log " VD_VERSION "\n");
    } else {
        status = ReportFromPath(settings);
    }
    const bool isWritten = std::fflush(stdout) == 0 && std::ferror(stdout) == 0;
    return isWritten ? status : Refuse(settings, "the output cannot be written", kNoRun);
}
