#include "reader_json.h"

#include <cstdlib>

#include "reader_owned_json.h"

namespace {

constexpr int kFormatVersion = 1;

// JSON values; null for what the log does not hold.
OwnedJson Number(std::optional<long long> number)
{
    return OwnedJson(number ? json_integer(*number) : json_null());
}

OwnedJson Count(std::size_t count)
{
    return OwnedJson(json_integer(static_cast<json_int_t>(count)));
}

OwnedJson Truth(std::optional<bool> truth)
{
    return OwnedJson(truth ? json_boolean(*truth) : json_null());
}

OwnedJson Text(std::string_view text)
{
    return OwnedJson(text.empty() ? json_null() : json_stringn(text.data(), text.size()));
}

// Aborts without memory, as the standard containers do: output with a member left out would be wrong.
void Set(const OwnedJson &object, const char *name, OwnedJson value)
{
    if (json_object_set_new(object.get(), name, value.release()) != 0) {
        std::abort();
    }
}

// The list of `make(item)` for each item.
template <typename Item, typename Make>
OwnedJson List(const std::vector<Item> &items, Make make)
{
    OwnedJson list(json_array());
    for (const Item &item : items) {
        if (json_array_append_new(list.get(), make(item).release()) != 0) {
            std::abort();
        }
    }
    return list;
}

OwnedJson Chain(const std::vector<std::string> &chain)
{
    return List(chain, Text);
}

OwnedJson JsonOf(const Disk &disk)
{
    OwnedJson json(json_object());
    Set(json, "address", Text(disk.address));
    Set(json, "node", Text(disk.node));
    Set(json, "vendor", Text(disk.vendor));
    Set(json, "product", Text(disk.product));
    Set(json, "wwn", Text(disk.wwn));
    Set(json, "wwn_now", Text(disk.wwnNow));
    Set(json, "state", Text(kStateNames[static_cast<std::size_t>(disk.state)]));
    Set(json, "reason", Text(disk.reason));
    Set(json, "note", Text(READER_DoubtAbout(disk)));
    Set(json, "action", Text(kActionNames[static_cast<std::size_t>(disk.action)]));
    Set(json, "block", Text(disk.use ? disk.use->block : ""));
    Set(json, "used_by", disk.use ? List(disk.use->chains, Chain) : OwnedJson(json_null()));
    Set(json, "in_use", Truth(disk.use ? std::optional(disk.use->NeedsDisk()) : std::nullopt));
    return json;
}

OwnedJson JsonOf(const OtherProduct &other)
{
    OwnedJson json(json_object());
    Set(json, "vendor", Text(other.vendor));
    Set(json, "product", Text(other.product));
    Set(json, "disks", Count(other.disks));
    return json;
}

OwnedJson JsonOf(const Run &run)
{
    const auto queryToJson = [&run](const Unassigned &query) {
        OwnedJson json(json_object());
        Set(json, "message", Text(query.message));
        Set(json, "addresses", List(query.disks, [&run](std::size_t disk) { return Text(run.disks[disk].address); }));
        return json;
    };
    OwnedJson json(json_object());
    Set(json, "number", Count(run.number));
    Set(json, "whole", Truth(run.isWhole));
    Set(json, "start", Text(run.start));
    Set(json, "end", Text(run.end));
    Set(json, "seconds", Number(READER_Duration(run)));
    Set(json, "outcome", Text(kOutcomeNames[static_cast<std::size_t>(run.outcome)]));
    Set(json, "at_work", Truth(run.isAtWork));
    Set(json, "refusal", Text(run.refusal));
    Set(json, "list_loaded", Truth(run.listLoaded));
    Set(json, "checked", Truth(run.checked));
    Set(json, "asked", Truth(run.asked));
    Set(json, "answer", Text(!run.answer ? "" : *run.answer ? "yes" : "no"));
    Set(json, "disks_found", Count(run.disks.size()));
    Set(json, "disks_left_out", Count(run.leftOut.size()));
    Set(json, "disks_of_others", Count(run.disksOfOthers));
    Set(json, "others", List(run.others, [](const OtherProduct &other) { return JsonOf(other); }));
    Set(json, "sessions", Count(run.sessions));
    Set(json, "sessions_removed", List(run.sessionsRemoved, Text));
    Set(json, "disks", List(READER_Remarkable(run), [](const Disk &disk) { return JsonOf(disk); }));
    Set(json, "unassigned", List(run.unassigned, queryToJson));
    Set(json, "hosts_not_rescanned", List(run.hostsNotRescanned, Text));
    Set(json, "controllers_not_rescanned", List(run.controllersNotRescanned, Text));
    Set(json, "hosts_rescanned", Count(run.hostsRescanned));
    Set(json, "controllers_rescanned", Count(run.controllersRescanned));
    Set(json, "inventory_errors", List(run.inventoryErrors, Text));
    return json;
}

}  // namespace

void READER_BeginJson(std::FILE *out)
{
    (void)std::fprintf(out, "{\"version\":%d,\"runs\":[", kFormatVersion);
}

void READER_RunToJson(std::FILE *out, const Run &run, bool isFirst)
{
    (void)std::fputs(isFirst ? "" : ",", out);
    (void)json_dumpf(JsonOf(run).get(), out, JSON_COMPACT);  // the caller checks ferror
}

void READER_EndJson(std::FILE *out)
{
    (void)std::fputs("]}\n", out);
}
