#include "reader_split.h"

#include <utility>

#include "reader_event.h"
#include "reader_text.h"

namespace {

// Limits on what garbage can make this program keep in memory; no real run comes near.
constexpr std::size_t kMaxOpen = 1000;                   // runs that wait for the end of an earlier one
constexpr std::size_t kMaxText = std::size_t{64} << 20;  // bytes of their records

// The phase of a run after the event.
RunPhase PhaseAfter(Event event)
{
    switch (event) {
        case Event::Started:
            return RunPhase::Started;
        case Event::LockFailed:
            return RunPhase::LockFailed;
        case Event::NotRoot:
        case Event::AnotherCopy:
            return RunPhase::Refused;
        case Event::Ended:
            return RunPhase::Over;
        default:
            return RunPhase::Working;
    }
}

bool IsOver(RunPhase phase)
{
    return phase == RunPhase::Refused || phase == RunPhase::Over;
}

// Returns whether one record can take a run from the phase `from` to the phase `to`.
bool CanFollow(RunPhase from, RunPhase to)
{
    return from == RunPhase::Started || (from == RunPhase::LockFailed && to == RunPhase::Refused) ||
           (from == RunPhase::Working && (to == RunPhase::Working || to == RunPhase::Over));
}

// Finds the run that wrote the record. If several runs expect its number, it is the youngest: a run at work is further,
// a stopped run writes no more, and two runs that have only started are interchangeable.
OpenRun &OwnerOf(RunStream &runs, const LogRecord &record, RunPhase phase)
{
    OpenRun *afterGap = nullptr;
    for (auto run = runs.open.rbegin(); run != runs.open.rend() && record.sequence > 1; ++run) {
        if (run->expected > record.sequence || !CanFollow(run->phase, phase)) {
            continue;
        }
        if (run->expected == record.sequence) {
            return *run;
        }
        afterGap = afterGap == nullptr ? &*run : afterGap;
    }
    if (afterGap != nullptr) {
        afterGap->run.isWhole = false;
        return *afterGap;
    }
    OpenRun &begun = runs.open.emplace_back();
    begun.run.number = ++runs.count;
    begun.run.isWhole = record.sequence == 1;
    return begun;
}

// Marks the runs as over that can write no more after `owner` has reached `phase`.
void EndOthers(RunStream &runs, const OpenRun &owner, RunPhase phase)
{
    for (OpenRun &other : runs.open) {
        if (&other == &owner) {
            return;
        }
        // Only one run works at a time, and a copy that started before its end was refused by then.
        if (phase == RunPhase::Over || (phase == RunPhase::Working && other.phase == RunPhase::Working)) {
            other.phase = RunPhase::Over;
        }
    }
}

void File(RunStream &runs, const LogRecord &record)
{
    const Event event = READER_EventOf(record);
    const RunPhase phase = PhaseAfter(event);
    OpenRun &owner = OwnerOf(runs, record, phase);
    EndOthers(runs, owner, phase);
    owner.run.isRefused = owner.run.isRefused || event == Event::WrongOptions || phase == RunPhase::Refused;
    owner.phase = phase;
    owner.expected = record.sequence < INT32_MAX ? record.sequence + 1 : record.sequence;
    if (owner.run.text.size() + record.whole.size() <= kMaxText) {
        READER_AppendShown(owner.run.text, record.whole);
        runs.kept += record.whole.size();
    } else {
        owner.run.isWhole = false;
    }
}

}  // namespace

bool READER_NextRun(RunStream &runs, RunText &run)
{
    const auto isFrontOver = [&runs] {
        return !runs.open.empty() && (IsOver(runs.open.front().phase) || runs.open.size() > kMaxOpen ||
                                      (runs.kept > kMaxText && runs.open.size() > 1));
    };
    LogRecord record;
    while (!isFrontOver() && READER_NextRecord(runs.log, record)) {
        File(runs, record);
    }
    if (runs.open.empty()) {
        return false;
    }
    run = std::move(runs.open.front().run);
    runs.open.pop_front();
    runs.kept -= run.text.size();
    return true;
}
