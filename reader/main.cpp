#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "mpi_owner.h"
#include "reader_check.h"
#include "reader_follow.h"
#include "reader_json.h"
#include "reader_options.h"
#include "reader_pick.h"
#include "reader_reconstruct.h"
#include "reader_users.h"
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

int RefuseToRead(const Settings &settings, int error)
{
    return Refuse(settings, std::string(settings.path) + ": " + std::strerror(error), kNoRun);
}

int RefuseWithoutRun(const Settings &settings)
{
    const char *reason = settings.Has(kRun) ? " does not hold this run" : " holds no run";
    return Refuse(settings, settings.path + std::string(reason), kNoRun);
}

// Picks the runs of the log, and finds out who uses the stale disks of this host now. An older run may have known other
// disks by the same addresses.
void PickRuns(std::FILE *file, const Settings &settings, PickedRuns &picked)
{
    READER_PickRuns(file, settings, picked);
    if (settings.isOwnLog && !picked.isOutdated) {
        std::for_each(picked.runs.begin(), picked.runs.end(), READER_FindUsers);
    }
}

int CheckFrom(std::FILE *file, const Settings &settings)
{
    PickedRuns picked;
    PickRuns(file, settings, picked);
    if (picked.error != 0) {
        return RefuseToRead(settings, picked.error);
    }
    if (picked.runs.empty()) {
        return RefuseWithoutRun(settings);
    }
    Demands demands = settings.demands;
    if (settings.isDateChecked) {
        demands.now = std::time(nullptr);  // only now: a run may have ended while the log was read
    }
    return READER_Check(stdout, picked.runs, demands, picked.lock.value_or(RunLock()));
}

// Writes each run as soon as it is read. Returns their number, and the errno of a failed read.
std::pair<std::size_t, int> WriteAll(std::FILE *file, const Settings &settings)
{
    std::size_t count = 0;
    RunStream stream;
    stream.log.file = file;
    for (RunText run; READER_NextRun(stream, run);) {
        Write(settings, READER_Reconstruct(run), count++ == 0);
    }
    return {count, std::ferror(file) == 0 ? 0 : errno};
}

// Writes the run of --run, or the last one. Returns how many runs that were, and the errno of a failed read.
std::pair<std::size_t, int> WritePicked(std::FILE *file, const Settings &settings)
{
    PickedRuns picked;
    PickRuns(file, settings, picked);
    for (const Run &run : picked.runs) {
        Write(settings, run, &run == &picked.runs.front());
    }
    return {picked.runs.size(), picked.error};
}

int ReportFrom(std::FILE *file, const Settings &settings)
{
    if (settings.Has(kCheck)) {
        return CheckFrom(file, settings);
    }
    if (settings.Has(kJson)) {
        READER_BeginJson(stdout);
    }
    const auto [count, error] = settings.Has(kAll) ? WriteAll(file, settings) : WritePicked(file, settings);
    if (settings.Has(kJson)) {
        READER_EndJson(stdout);
    }
    if (error != 0) {
        return RefuseToRead(settings, error);
    }
    return count == 0 ? RefuseWithoutRun(settings) : kFound;
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

// Follows the run at work to its end, then prints the last run.
int Follow(const Settings &settings)
{
    Progress progress;
    std::string start;  // of the run that is followed
    for (long followed = 0;;) {
        const OwnedFile file(std::fopen(settings.path, "rb"));
        PickedRuns picked;
        if (file != nullptr) {
            READER_PickRuns(file.get(), settings, picked);
        } else {
            picked.lock = READER_AskLock();  // the log was rotated, and the run has recorded nothing since
        }
        const bool isFollowed =
            picked.lock && picked.lock->isHeld && (followed == 0 || followed == picked.lock->process);
        if (!isFollowed) {
            // The last run, if it is the followed one.
            const bool isEnded = !picked.runs.empty() && picked.runs.front().start == start;
            READER_EndProgress(stdout, isEnded ? picked.runs.front() : Run(), progress);
            return ReportFromPath(settings);
        }
        followed = picked.lock->process;
        Run run;  // if the log has no record of it
        run.start = picked.lock->since;
        for (const Run &known : picked.runs) {
            run = known.isAtWork == true ? known : run;
        }
        start = run.start;
        READER_ShowProgress(stdout, run, *picked.lock, progress);
        (void)sleep(1);  // a signal only shortens it
    }
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
        status = settings.Has(kFollow) ? Follow(settings) : ReportFromPath(settings);
    }
    const bool isWritten = std::fflush(stdout) == 0 && std::ferror(stdout) == 0;
    return isWritten ? status : Refuse(settings, "the output cannot be written", kNoRun);
}
