#include "reader_users.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <map>
#include <set>

#include "reader_owned_json.h"
#include "reader_text.h"

namespace {

constexpr const char *kListDevices =
    "lsblk --json --all --output NAME,MAJ:MIN,HCTL,TYPE,STATE,MOUNTPOINTS 2> /dev/null";
constexpr const char *kListPaths = "PATH=$PATH:/usr/sbin:/sbin dmsetup status --target multipath 2> /dev/null";

// What a command prints; nothing if it fails.
std::optional<std::string> OutputOf(const char *command)
{
    (void)std::signal(SIGCHLD, SIG_DFL);     // a caller may ignore it, and pclose would then find no status
    std::FILE *pipe = popen(command, "re");  // NOLINT(cert-env33-c): the commands are the two constants above
    if (pipe == nullptr) {
        return std::nullopt;
    }
    std::string output;
    std::array<char, 4096> buffer;
    for (std::size_t size = 1; size > 0;) {
        size = std::fread(buffer.data(), 1, buffer.size(), pipe);
        output.append(buffer.data(), size);
    }
    return pclose(pipe) == 0 ? std::optional(output) : std::nullopt;
}

// The devices of this host, as a forest: what sits on a device is its child. A map with two paths is the child of both.
struct Devices {
    OwnedJson list;
    std::map<std::string_view, std::vector<const json_t *>> pathsOf;  // disks of each multipath map, by its name
    std::optional<std::set<std::string>> working;  // MAJ:MIN of the paths that no map has failed; nothing if unknown
};

std::string_view Field(const json_t *device, const char *name)
{
    const char *text = json_string_value(json_object_get(device, name));
    return text == nullptr ? std::string_view() : text;
}

std::vector<const json_t *> List(const json_t *device, const char *name)
{
    std::vector<const json_t *> items;
    std::size_t i = 0;
    const json_t *item = nullptr;
    json_array_foreach(json_object_get(device, name), i, item)
    {
        items.push_back(item);
    }
    return items;
}

bool IsMap(const json_t *device)
{
    return Field(device, "type") == "mpath";
}

// The paths that the table status of the kernel's multipath targets shows as "MAJ:MIN A"; an F marks a failed path. The
// groups of a map have an A, too, after their number.
std::optional<std::set<std::string>> WorkingPaths()
{
    const std::optional<std::string> status = OutputOf(kListPaths);
    if (!status) {
        return std::nullopt;
    }
    std::set<std::string> working;
    constexpr std::string_view kWorks = " A ";
    for (std::size_t end = status->find(kWorks); end != std::string::npos; end = status->find(kWorks, end + 1)) {
        working.insert(status->substr(0, end).substr(status->rfind(' ', end - 1) + 1));
    }
    return working;
}

bool ReadDevices(Devices &devices)
{
    const std::optional<std::string> text = OutputOf(kListDevices);
    std::string shown;  // JSON is UTF-8, but lsblk prints names of directories as they are
    READER_AppendShown(shown, text.value_or(""));
    devices.list.reset(json_loads(shown.c_str(), 0, nullptr));
    if (!json_is_array(json_object_get(devices.list.get(), "blockdevices"))) {
        return false;
    }
    for (const json_t *disk : List(devices.list.get(), "blockdevices")) {
        for (const json_t *child : List(disk, "children")) {
            if (IsMap(child)) {
                devices.pathsOf[Field(child, "name")].push_back(disk);
            }
        }
    }
    if (!devices.pathsOf.empty()) {
        devices.working = WorkingPaths();
    }
    return true;
}

// Addresses of the disks that the run certainly found healthy.
std::set<std::string_view> HealthyIn(const Run &run)
{
    std::set<std::string_view> healthy;
    if (!run.isWhole || (run.outcome != Outcome::Complete && !run.asked)) {
        return healthy;  // records of stale disks may be missing
    }
    for (const Disk &disk : run.disks) {
        if (disk.state == DiskCondition::Healthy) {
            healthy.insert(disk.address);
        }
    }
    for (const Unassigned &query : run.unassigned) {
        for (const std::size_t candidate : query.disks) {
            healthy.erase(run.disks[candidate].address);
        }
        if (query.disks.empty()) {
            healthy.clear();
        }
    }
    return healthy;
}

struct Host {
    Devices devices;
    std::set<std::string_view> healthy;
};

// The number of paths of the map, other than through this disk, that work: the run found the disk healthy, the kernel
// has it running, and the map has not failed the path.
std::size_t OtherPaths(const Host &host, std::string_view map, const json_t *disk)
{
    const auto &paths = host.devices.pathsOf.at(map);
    return static_cast<std::size_t>(std::count_if(paths.begin(), paths.end(), [&host, disk](const json_t *path) {
        return path != disk && host.healthy.contains(Field(path, "hctl")) && Field(path, "state") == "running" &&
               host.devices.working->contains(std::string(Field(path, "maj:min")));
    }));
}

// Adds a chain of names for each thing that sits at the top of the device, such as "vg0-data", "/srv/data". A partition
// with nothing on it is no use.
void AddChains(const json_t *device, const std::vector<std::string> &below, Use &use)
{
    const std::size_t before = use.chains.size();
    const auto above = [&below](std::string_view name) {
        std::vector<std::string> chain = below;
        chain.push_back(READER_Shown(name));
        return chain;
    };
    for (const json_t *mount : List(device, "mountpoints")) {
        if (json_is_string(mount)) {  // null without a mount
            use.chains.push_back(above(json_string_value(mount)));
        }
    }
    for (const json_t *child : List(device, "children")) {
        AddChains(child, above(Field(child, "name")), use);
    }
    if (use.chains.size() == before && !below.empty() && Field(device, "type") != "part") {
        use.chains.push_back(below);
    }
}

// Adds to the name of each map in the chains what the disk is to it.
void MarkMaps(const Host &host, const json_t *disk, Use &use)
{
    for (const json_t *child : List(disk, "children")) {
        if (!IsMap(child)) {
            continue;
        }
        const std::string_view name = Field(child, "name");
        const std::size_t others = host.devices.working ? OtherPaths(host, name, disk) : 0;
        std::string mark = ", its last path";
        if (!host.devices.working) {
            mark = ", paths unknown";
        } else if (others > 0) {
            mark = ", 1 of " + READER_Count(others + 1, "path");
        }
        for (std::vector<std::string> &chain : use.chains) {
            if (chain.front() == name) {
                chain.front() += mark;
                use.keepsPath += others > 0 ? 1 : 0;
            }
        }
    }
}

Use UseOf(const Host &host, const json_t *disk)
{
    Use use;
    use.block = Field(disk, "name");
    AddChains(disk, {}, use);
    MarkMaps(host, disk, use);
    return use;
}

bool IsInQuestion(const Disk &disk)
{
    return disk.IsStale() && disk.action != DiskAction::Deleted;
}

}  // namespace

void READER_FindUsers(Run &run)
{
    if (std::none_of(run.disks.begin(), run.disks.end(), IsInQuestion)) {
        return;
    }
    Host host = {{}, HealthyIn(run)};
    run.areUsersUnknown = !ReadDevices(host.devices);
    std::map<std::string_view, const json_t *> deviceOf;  // by address
    for (const json_t *device : List(host.devices.list.get(), "blockdevices")) {
        deviceOf.emplace(Field(device, "hctl"), device);
    }
    for (Disk &disk : run.disks) {
        const auto found = deviceOf.find(disk.address);
        if (IsInQuestion(disk) && found != deviceOf.end()) {
            disk.use = UseOf(host, found->second);
        }
    }
}
