#include "reader_pick.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "reader_reconstruct.h"

namespace {

void Keep(const Settings &settings, PickedRuns &picked, RunText run)
{
    if (settings.Has(kRun)) {
        picked.isOutdated = picked.isOutdated || (picked.last && !run.isRefused);
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

void Choose(const Settings &settings, PickedRuns &picked)
{
    std::vector<Run> &runs = picked.runs;
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
        if (picked.refused && isOver && !settings.Has(kCheck) && !settings.Has(kFollow)) {
            runs.clear();
        }
    }
    if (picked.refused) {
        add(*picked.refused);
    }
}

void ReadLog(std::FILE *file, const Settings &settings, PickedRuns &picked)
{
    RunStream stream;
    stream.log.file = file;
    for (RunText run; READER_NextRun(stream, run);) {
        Keep(settings, picked, std::move(run));
    }
    picked.error = std::ferror(file) == 0 ? 0 : errno;
    if (settings.isOwnLog) {
        picked.lock = READER_AskLock();
    }
}

// Returns whether the log has grown since its end was read; if so, rewinds it.
bool HasGrown(std::FILE *file)
{
    std::clearerr(file);
    return std::getc(file) != EOF && std::fseek(file, 0, SEEK_SET) == 0;
}

}  // namespace

// A run without an end that does not hold the lock was stopped, unless it recorded its end after the log was read: then
// the log is read again.
void READER_PickRuns(std::FILE *file, const Settings &settings, PickedRuns &picked)
{
    for (;;) {
        picked = {};
        ReadLog(file, settings, picked);
        Choose(settings, picked);
        const bool isStopped = std::any_of(picked.runs.begin(), picked.runs.end(), [](const Run &run) {
            return run.outcome == Outcome::NotEnded && run.isAtWork == false;
        });
        if (!isStopped || picked.error != 0 || !HasGrown(file)) {
            return;
        }
    }
}
