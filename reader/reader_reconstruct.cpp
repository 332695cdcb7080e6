#include "reader_reconstruct.h"

#include <algorithm>
#include <iterator>
#include <unordered_map>
#include <utility>

#include "reader_query.h"
#include "reader_text.h"

namespace {

// A run whose records are being read. The texts are views into them.
struct Telling {
    Run run;
    Queries queries;
    std::unordered_map<std::string_view, std::size_t> diskOf;   // indices in Run::disks, by address
    std::unordered_map<std::string_view, std::size_t> otherOf;  // indices in Run::others, by vendor and product
    std::string_view withoutProduct;                            // address of a disk whose product could not be read
    std::string_view start;                                     // times of the first and the last record
    std::string_view end;
};

// The filed disk with that address. One that is not filed, because records are missing, is added.
Disk &DiskAt(Telling &telling, std::string_view address)
{
    const auto [found, isNew] = telling.diskOf.try_emplace(address, telling.run.disks.size());
    if (isNew) {
        telling.run.disks.emplace_back().address = address;
    }
    return telling.run.disks[found->second];
}

void TellCourse(Telling &telling, const LogRecord &record)
{
    constexpr std::array<std::pair<std::string_view, const char *>, 3> kRefusals = {
        {{"WARN: please exit", "not root"}, {"WARN: there is", "another copy"}, {"WARN: input param", "options"}}};
    Run &run = telling.run;
    for (const auto &[message, refusal] : kRefusals) {
        if (record.message.starts_with(message)) {
            run.outcome = Outcome::Refused;
            run.refusal = refusal;
            run.checked = false;
        }
    }
    if (record.message.starts_with("init vd config fail!")) {
        run.listLoaded = false;
        run.checked = false;
    } else if (record.message.starts_with("vdRescan_plus end.")) {
        run.outcome = Outcome::Complete;
    }
}

void TellTargets(Telling &telling, const LogRecord &record)
{
    if (record.level == LogLevel::Error) {
        telling.run.inventoryErrors.push_back(READER_Shown(record.message));
    }
}

// "create scsi disk{h:c:t:l, vendor, product, wwn, node} finish."
void TellFiledDisk(Telling &telling, std::string_view message)
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
    const std::size_t index = telling.run.disks.size();
    Disk &disk = DiskAt(telling, address);
    if (index == telling.run.disks.size()) {
        return;  // it is filed already
    }
    const auto field = [fields, kComma](std::size_t comma, std::size_t end) {
        return fields.substr(comma + kComma.size(), end - comma - kComma.size());
    };
    disk.vendor = field(vendor, product);
    disk.product = field(product, wwn);
    disk.wwn = field(wwn, node);
    disk.node = field(node, fields.size());
    READER_FileDisk(telling.queries, disk, index);
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
void CountOther(Telling &telling, std::string_view message)
{
    Run &run = telling.run;
    ++run.disksOfOthers;
    constexpr std::string_view kBetween = "} product{";
    const std::string_view names = READER_Between(message, " vendor{", "}.\n");
    const std::size_t between = names.find(kBetween);
    if (between == std::string_view::npos) {
        return;
    }
    const auto [found, isNew] = telling.otherOf.try_emplace(names, run.others.size());
    if (isNew) {
        run.others.push_back({names.substr(0, between), names.substr(between + kBetween.size())});
    }
    ++run.others[found->second].disks;
}

void TellDisk(Telling &telling, const LogRecord &record)
{
    const std::string_view message = record.message;
    telling.run.checked = true;
    if (message.starts_with("create scsi disk{")) {
        TellFiledDisk(telling, message);
    } else if (message.starts_with("create scsi session{")) {
        ++telling.run.sessions;
    } else if (message.starts_with("scsi disk get product fail")) {
        telling.withoutProduct = AddressIn(message);
    } else if (record.level == LogLevel::Error) {
        LeaveOut(telling.run, AddressIn(message), message);
    } else if (const std::string_view address = READER_Between(message, "scsi disk{", "}");
               !address.empty() && address == telling.withoutProduct) {
        // With its product it may be supported.
        LeaveOut(telling.run, address, "its product could not be read");
    } else {
        CountOther(telling, message);
    }
}

void TellDiskClass(Telling &telling, const LogRecord &record)
{
    telling.run.checked = true;
    TellTargets(telling, record);
}

void TellLuns(Telling &telling, const LogRecord &record)
{
    telling.run.checked = true;
    const std::string_view session = READER_Between(record.message, "session{", "}");
    if (record.level == LogLevel::Error) {
        READER_LunsFailed(telling.queries, record.message);
    } else if (!session.empty()) {  // others hold the LUNs themselves
        READER_LunsAnswered(telling.queries, session);
    }
}

void TellInquiry(Telling &telling, const LogRecord &record)
{
    telling.run.checked = true;
    READER_InquiryFailed(telling.queries, record.message);
}

// A line of the report, if it names a disk: "    h:c:t:l", of a changed one with " [old name -> new name]".
void TellStale(Telling &telling, const LogRecord &record)
{
    const bool isChanged = record.function == "SCAN_PrintRemapped";
    const bool isRemoved = record.function == "SCAN_PrintRemoved";
    const std::string_view address = READER_Between(record.message, "    ", isChanged ? " [" : "\n");
    if (!READER_IsAddress(address)) {
        return;
    }
    telling.run.checked = true;
    Disk &disk = DiskAt(telling, address);
    disk.state = isChanged ? DiskCondition::Changed : isRemoved ? DiskCondition::Removed : DiskCondition::NotConnected;
    if (isChanged) {
        disk.wwn = READER_Between(record.message, " [", " -> ");
        disk.wwnNow = READER_Between(record.message, " -> ", "]\n");
    }
}

void TellQuestion(Telling &telling, const LogRecord & /*record*/)
{
    telling.run.checked = true;
    telling.run.asked = true;
}

void TellDeletion(Telling &telling, const LogRecord &record)
{
    telling.run.checked = true;
    telling.run.answer = telling.run.asked ? std::optional(true) : std::nullopt;
    const std::string_view address = READER_Between(record.message, "    delete ", " ");
    const bool isDeleted = record.message.ends_with(" success.\n");
    if (READER_IsAddress(address) && (isDeleted || record.message.ends_with(" fail.\n"))) {
        DiskAt(telling, address).action = isDeleted ? DiskAction::Deleted : DiskAction::Failed;
    }
}

// The rescans begin. Nothing was deleted before, unless its record is missing.
void TellRescans(Telling &telling, const LogRecord & /*record*/)
{
    if (telling.run.asked && !telling.run.answer && telling.run.isWhole) {
        telling.run.answer = false;
    }
}

// "    scan host2 ", which "success." or "fail." follows.
void TellRescan(Telling &telling, const LogRecord &record)
{
    Run &run = telling.run;
    const bool isHost = record.function == "SCAN_ScanScsiHost";
    std::vector<std::string> &failed = isHost ? run.hostsNotRescanned : run.controllersNotRescanned;
    if (record.message.starts_with("    scan ")) {
        // Until it is known to be rescanned, it is not; the run may have ended there.
        failed.push_back(READER_Shown(READER_Between(record.message, "    scan ", " ")));
    } else if (record.message.starts_with("success.") && !failed.empty()) {
        failed.pop_back();
        ++(isHost ? run.hostsRescanned : run.controllersRescanned);
    }
}

// By the function that writes the records.
using Teller = std::pair<std::string_view, void (*)(Telling &telling, const LogRecord &record)>;

constexpr std::array<Teller, 29> kTellers = {{
    {"SCAN_Init", TellCourse},
    {"main", TellCourse},
    {"SCAN_GetAllScanTargets", TellTargets},
    {"SCAN_HandUdevScsiHost", TellTargets},
    {"SCAN_CreateScsiHost", TellTargets},
    {"SCAN_CreateNvmeCtrl", TellTargets},
    {"SCAN_GetAllScsiDisk", TellDiskClass},
    {"SCAN_HandUdevScsiDisk", TellDisk},
    {"SCAN_CreateScsiDisk", TellDisk},
    {"SCAN_InitScsiDisk", TellDisk},
    {"SCAN_GetScsiDiskWwid", TellDisk},
    {"SCAN_GetScsiDiskSgName", TellDisk},
    {"SCAN_SessionLookupCreate", TellDisk},
    {"SCAN_ReportLun", TellLuns},
    {"SCAN_IssueReportLun", TellLuns},
    {"SCAN_ParseReportLunids", TellLuns},
    {"SCAN_PrintLunIds", TellLuns},
    {"SCAN_GetDiskWwn", TellInquiry},
    {"SCAN_IusseInquiry0x83", TellInquiry},
    {"SCAN_ParseDiskWwn", TellInquiry},
    {"SCAN_PrintNoConnect", TellStale},
    {"SCAN_PrintRemoved", TellStale},
    {"SCAN_PrintRemapped", TellStale},
    {"SCAN_DeleteChangeMap", TellQuestion},
    {"SCAN_ReadUserYesOrNo", TellQuestion},
    {"SCAN_DeleteChangeDisk", TellDeletion},
    {"SCAN_ScanAllScsiHost", TellRescans},
    {"SCAN_ScanScsiHost", TellRescan},
    {"SCAN_ScanNvmeCtrl", TellRescan},
}};

void Tell(Telling &telling, const LogRecord &record)
{
    Run &run = telling.run;
    telling.start = telling.start.empty() ? record.time : telling.start;
    telling.end = record.time;
    const auto *teller = std::find_if(kTellers.begin(), kTellers.end(),
                                      [&record](const Teller &known) { return known.first == record.function; });
    if (teller == kTellers.end()) {
        return;
    }
    teller->second(telling, record);
    // The start-up would have recorded a list that could not be loaded.
    if (record.function != "SCAN_Init" && !run.listLoaded && run.isWhole) {
        run.listLoaded = true;
    }
}

std::string_view SessionOf(std::string_view address)
{
    return address.substr(0, address.rfind(':'));
}

void CountSessions(Run &run)
{
    std::unordered_map<std::string_view, std::size_t> disksLeft;  // of a session, those that are not removed
    std::vector<std::string_view> sessions;
    for (const Disk &disk : run.disks) {
        const auto [found, isNew] = disksLeft.try_emplace(SessionOf(disk.address));
        if (isNew) {
            sessions.push_back(found->first);
        }
        found->second += disk.state == DiskCondition::Removed ? 0 : 1;
    }
    // The records of their creation may be missing.
    run.sessions = std::max(run.sessions, sessions.size());
    std::copy_if(sessions.begin(), sessions.end(), std::back_inserter(run.sessionsRemoved),
                 [&disksLeft](std::string_view session) { return disksLeft[session] == 0; });
}

// What follows only from all records together.
void Conclude(Telling &telling)
{
    Run &run = telling.run;
    run.start = READER_Shown(telling.start);
    run.end = READER_Shown(telling.end);
    READER_AssignQueries(telling.queries, run);
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
    Telling telling;
    telling.run.number = text.number;
    telling.run.isWhole = text.isWhole;
    RecordText rest = {text.text};
    for (LogRecord record; READER_TakeRecord(rest, record);) {
        // Behind its last line end may stand the torn beginning of another record.
        const std::size_t lineEnd = record.message.rfind('\n');
        record.message = record.message.substr(0, lineEnd == std::string_view::npos ? lineEnd : lineEnd + 1);
        Tell(telling, record);
    }
    Conclude(telling);
    return std::move(telling.run);
}
