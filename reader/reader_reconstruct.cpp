#include "reader_reconstruct.h"

#include <algorithm>
#include <iterator>
#include <unordered_map>
#include <utility>

#include "reader_event.h"
#include "reader_query.h"
#include "reader_text.h"

namespace {

// A run whose records are being read. The texts are views into them.
struct Reconstruction {
    Run run;
    Queries queries;
    std::unordered_map<std::string_view, std::size_t> diskOf;   // indices in Run::disks, by address
    std::unordered_map<std::string_view, std::size_t> otherOf;  // indices in Run::others, by vendor and product
    std::string_view withoutProduct;                            // address of a disk whose product could not be read
    bool isRescanOpen = false;                                  // of the target that was recorded last
    std::string_view start;                                     // times of the first and the last record
    std::string_view end;
};

// The disk with that address; adds it if its record is missing.
Disk &DiskAt(Reconstruction &partial, std::string_view address)
{
    const auto [found, isNew] = partial.diskOf.try_emplace(address, partial.run.disks.size());
    if (isNew) {
        partial.run.disks.emplace_back().address = address;
    }
    return partial.run.disks[found->second];
}

void Refuse(Run &run, const char *reason)
{
    run.outcome = Outcome::Refused;
    run.refusal = reason;
    run.checked = false;
}

// "create scsi disk{h:c:t:l, vendor, product, wwn, node} finish."
void FileDisk(Reconstruction &partial, std::string_view message)
{
    constexpr std::string_view kComma = ", ";
    const std::string_view fields = READER_Between(message, "{", "} finish.\n");
    const std::size_t vendor = fields.find(kComma);
    const std::size_t product = fields.find(kComma, vendor + 1);
    const std::size_t node = fields.rfind(kComma);
    const std::size_t wwn = fields.rfind(kComma, node - 1);
    const std::string_view address = fields.substr(0, vendor);
    if (product == std::string_view::npos || product >= wwn || wwn >= node || !READER_IsAddress(address)) {
        return;
    }
    const std::size_t index = partial.run.disks.size();
    Disk &disk = DiskAt(partial, address);
    if (index == partial.run.disks.size()) {
        return;  // already filed
    }
    const auto field = [fields, kComma](std::size_t comma, std::size_t end) {
        return fields.substr(comma + kComma.size(), end - comma - kComma.size());
    };
    disk.vendor = field(vendor, product);
    disk.product = field(product, wwn);
    disk.wwn = field(wwn, node);
    disk.node = field(node, fields.size());
    READER_FileDisk(partial.queries, disk, index);
}

// The address in "path{DIRECTORY/h:c:t:l}" or "full name{DIRECTORY/h:c:t:l/generic}"; empty without one.
std::string_view AddressIn(std::string_view message)
{
    const std::string_view path = READER_Between(message, "path{", "}");
    const std::string_view directory = path.empty() ? READER_Between(message, "full name{", "/generic}") : path;
    const std::string_view name = directory.substr(directory.rfind('/') + 1);
    return READER_IsAddress(name) ? name : std::string_view();
}

void LeaveOut(Run &run, std::string_view address, std::string_view message)
{
    Disk &disk = run.leftOut.emplace_back();
    disk.address = address;
    disk.node = READER_Between(message, "sg{", "}");
    disk.state = DiskCondition::LeftOut;
    disk.reason = READER_Shown(message);
}

// "scsi disk{h:c:t:l} isn't support with vendor{vendor} product{product}."
void CountOther(Reconstruction &partial, std::string_view message)
{
    Run &run = partial.run;
    ++run.disksOfOthers;
    constexpr std::string_view kBetween = "} product{";
    const std::string_view names = READER_Between(message, " vendor{", "}.\n");
    const std::size_t between = names.find(kBetween);
    if (between == std::string_view::npos) {
        return;
    }
    const auto [found, isNew] = partial.otherOf.try_emplace(names, run.others.size());
    if (isNew) {
        run.others.push_back({names.substr(0, between), names.substr(between + kBetween.size())});
    }
    ++run.others[found->second].disks;
}

// A line of the report: "    h:c:t:l", followed by " [old name -> new name]" for a changed disk.
void MarkStale(Reconstruction &partial, DiskCondition state, std::string_view message)
{
    const bool isChanged = state == DiskCondition::Changed;
    const std::string_view address = READER_Between(message, "    ", isChanged ? " [" : "\n");
    if (!READER_IsAddress(address)) {
        return;
    }
    Disk &disk = DiskAt(partial, address);
    disk.state = state;
    if (isChanged) {
        disk.wwn = READER_Between(message, " [", " -> ");
        disk.wwnNow = READER_Between(message, " -> ", "]\n");
    }
}

// "    delete h:c:t:l success.", or with "fail."
void MarkDeleted(Reconstruction &partial, std::string_view message)
{
    const std::string_view address = READER_Between(message, "    delete ", " ");
    const bool isDeleted = message.ends_with(" success.\n");
    if (READER_IsAddress(address) && (isDeleted || message.ends_with(" fail.\n"))) {
        DiskAt(partial, address).action = isDeleted ? DiskAction::Deleted : DiskAction::Failed;
    }
}

// "scsi disk{h:c:t:l} isn't support with vendor{vendor} product{product}."
void NoteUnsupported(Reconstruction &partial, std::string_view message)
{
    const std::string_view address = READER_Between(message, "scsi disk{", "}");
    if (!address.empty() && address == partial.withoutProduct) {
        // The unknown product may be in the list.
        LeaveOut(partial.run, address, "its product could not be read");
    } else {
        CountOther(partial, message);
    }
}

// "    scan host2 ". The target counts as not rescanned until "success." follows; the run may have ended here.
void BeginRescan(Reconstruction &partial, std::vector<std::string> &notRescanned, std::string_view message)
{
    notRescanned.push_back(READER_Shown(READER_Between(message, "    scan ", " ")));
    partial.isRescanOpen = true;
}

// The result of the rescan that began last, unless the record of its beginning is missing.
void EndRescan(Reconstruction &partial, std::vector<std::string> &notRescanned, std::size_t &rescanned)
{
    if (partial.isRescanOpen && !notRescanned.empty()) {
        notRescanned.pop_back();
    }
    ++rescanned;
    partial.isRescanOpen = false;
}

// Events of start-up, options, targets and rescans.
void ApplyToCourse(Reconstruction &partial, Event event, std::string_view message)
{
    Run &run = partial.run;
    switch (event) {
        case Event::NotRoot:
            return Refuse(run, "not root");
        case Event::AnotherCopy:
            return Refuse(run, "another copy");
        case Event::WrongOptions:
            return Refuse(run, "options");
        case Event::ListNotLoaded:
            run.listLoaded = false;
            run.checked = false;
            return;
        case Event::NotListed:
        case Event::DisksNotListed:
            run.inventoryErrors.push_back(READER_Shown(message));
            return;
        case Event::RescansBegan:
            // No deletion precedes the rescans, so the answer was no, unless records are missing.
            if (run.asked && !run.answer && run.isWhole) {
                run.answer = false;
            }
            return;
        case Event::HostRescan:
            return BeginRescan(partial, run.hostsNotRescanned, message);
        case Event::HostRescanned:
            return EndRescan(partial, run.hostsNotRescanned, run.hostsRescanned);
        case Event::ControllerRescan:
            return BeginRescan(partial, run.controllersNotRescanned, message);
        case Event::ControllerRescanned:
            return EndRescan(partial, run.controllersNotRescanned, run.controllersRescanned);
        case Event::HostNotRescanned:
        case Event::ControllerNotRescanned:
            partial.isRescanOpen = false;
            return;
        case Event::Ended:
            run.outcome = Outcome::Complete;
            return;
        default:
            return;
    }
}

// Events of the check for stale disks and of deletions.
void ApplyToDisks(Reconstruction &partial, Event event, std::string_view message)
{
    switch (event) {
        case Event::SessionFiled:
            ++partial.run.sessions;
            return;
        case Event::DiskFiled:
            return FileDisk(partial, message);
        case Event::ProductUnknown:
            partial.withoutProduct = AddressIn(message);
            return;
        case Event::NotSupported:
            return NoteUnsupported(partial, message);
        case Event::LeftOut:
            return LeaveOut(partial.run, AddressIn(message), message);
        case Event::LunsAnswered:
            return READER_LunsAnswered(partial.queries, READER_Between(message, "session{", "}"));
        case Event::LunsFailed:
            return READER_LunsFailed(partial.queries, message);
        case Event::InquiryFailed:
            return READER_InquiryFailed(partial.queries, message);
        case Event::NotConnected:
            return MarkStale(partial, DiskCondition::NotConnected, message);
        case Event::Removed:
            return MarkStale(partial, DiskCondition::Removed, message);
        case Event::Changed:
            return MarkStale(partial, DiskCondition::Changed, message);
        case Event::Asked:
            partial.run.asked = true;
            return;
        case Event::DeletionsBegan:
        case Event::Deletion:
            partial.run.answer = partial.run.asked ? std::optional(true) : std::nullopt;
            return MarkDeleted(partial, message);
        default:
            return;
    }
}

void Apply(Reconstruction &partial, const LogRecord &record)
{
    const Event event = READER_EventOf(record);
    partial.start = partial.start.empty() ? record.time : partial.start;
    partial.end = record.time;
    // If the list could not be loaded, the start-up has recorded it.
    if (event > Event::ListNotLoaded && !partial.run.listLoaded && partial.run.isWhole) {
        partial.run.listLoaded = true;
    }
    if (event >= Event::DisksNotListed && event <= Event::Deletion) {
        partial.run.checked = true;
    }
    ApplyToCourse(partial, event, record.message);
    ApplyToDisks(partial, event, record.message);
}

std::string_view SessionOf(std::string_view address)
{
    return address.substr(0, address.rfind(':'));
}

void CountSessions(Run &run)
{
    std::unordered_map<std::string_view, std::size_t> disksLeft;  // disks of a session that are not removed
    std::vector<std::string_view> sessions;
    for (const Disk &disk : run.disks) {
        const auto [found, isNew] = disksLeft.try_emplace(SessionOf(disk.address));
        if (isNew) {
            sessions.push_back(found->first);
        }
        found->second += disk.state == DiskCondition::Removed ? 0 : 1;
    }
    // Records of created sessions may be missing.
    run.sessions = std::max(run.sessions, sessions.size());
    std::copy_if(sessions.begin(), sessions.end(), std::back_inserter(run.sessionsRemoved),
                 [&disksLeft](std::string_view session) { return disksLeft[session] == 0; });
}

// Draws the conclusions that need all records.
void Conclude(Reconstruction &partial)
{
    Run &run = partial.run;
    run.start = READER_Shown(partial.start);
    run.end = READER_Shown(partial.end);
    READER_AssignQueries(partial.queries, run);
    for (Disk &disk : run.disks) {
        if (disk.state == DiskCondition::Healthy && disk.action != DiskAction::None) {
            disk.state = DiskCondition::Unknown;
        } else if (disk.state == DiskCondition::Healthy && !disk.reason.empty()) {
            disk.state = DiskCondition::NotQuestioned;
        }
        if (disk.IsStale() && disk.action == DiskAction::None && run.answer == false) {
            disk.action = DiskAction::Kept;
        }
    }
    CountSessions(run);
}

}  // namespace

Run READER_Reconstruct(const RunText &text)
{
    Reconstruction partial;
    partial.run.number = text.number;
    partial.run.isWhole = text.isWhole;
    RecordText rest = {text.text};
    for (LogRecord record; READER_TakeRecord(rest, record);) {
        // The torn beginning of another record may follow the last newline.
        const std::size_t lineEnd = record.message.rfind('\n');
        record.message = record.message.substr(0, lineEnd == std::string_view::npos ? lineEnd : lineEnd + 1);
        Apply(partial, record);
    }
    Conclude(partial);
    return std::move(partial.run);
}
