#include "host.h"

#include <linux/close_range.h>
#include <sched.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <sstream>

#include "log_path.h"

namespace fs = std::filesystem;

namespace host {

const std::string kSgDouble = VD_SG_DOUBLE;

namespace {

bool g_entered = false;
dev_t g_device = 0;                                            // the one file system of all that is made up
std::map<std::string, std::vector<std::uint64_t>> g_sessions;  // LUNs that each target reports
int g_diskCount = 0;

bool EnterNamespace()
{
    const std::string uid = std::to_string(getuid()), gid = std::to_string(getgid());
    if (unshare(uid == "0" ? CLONE_NEWNS : CLONE_NEWUSER | CLONE_NEWNS) != 0) {
        return false;
    }
    if (uid != "0") {
        std::ofstream("/proc/self/setgroups") << "deny";
        std::ofstream("/proc/self/uid_map") << "0 " + uid + " 1";
        std::ofstream("/proc/self/gid_map") << "0 " + gid + " 1";
    }
    // "/" of a chroot may be no mount point. Then it must show that the parent does not see what is mounted here.
    const std::string script = "parent=" + std::to_string(getppid()) + R"sh(
        exec 2> /dev/null
        mount --make-rprivate / && private=yes
        for name in sys run dev etc opt; do mount --make-rprivate /$name; done
        set -e
        mount -t tmpfs -o mode=755 made_up_host /opt
        [ "$private" ] || { seen=$(stat -c %d /proc/$parent/root/opt) && [ "$seen" != "$(stat -c %d /opt)" ]; } ||
            { umount -l /opt; exit 1; }
        cd /opt
        mkdir -p sys run dev/.host etc opt
        mount --rbind /dev dev/.host
        for name in sys run dev etc opt; do mount --rbind $name /$name; done)sh";
    const bool isMade = std::system(script.c_str()) == 0;
    struct stat status = {};
    (void)stat("/opt", &status);
    g_device = status.st_dev;
    return isMade;
}

std::string Hex(std::uint64_t value, int digits)
{
    char text[20];
    (void)std::snprintf(text, sizeof text, "%0*llx", digits, static_cast<unsigned long long>(value));
    return text;
}

std::string Bytes(std::string hex)
{
    std::erase(hex, ' ');
    std::string bytes;
    for (std::size_t at = 0; at + 1 < hex.size(); at += 2) {
        bytes += static_cast<char>(std::stoi(hex.substr(at, 2), nullptr, 16));
    }
    return bytes;
}

}  // namespace

void Enter()
{
    g_entered = EnterNamespace();
    (void)close_range(3, ~0U, CLOSE_RANGE_CLOEXEC);  // `nvme` must inherit only what the command itself leaves open
    (void)setenv("PATH", ("/run/bin:" + std::string(std::getenv("PATH"))).c_str(), 1);
    (void)setenv("SYSTEMD_DEVICE_VERIFY_SYSFS", "0", 1);
}

void Reset()
{
    for (const char *directory : {"/sys", "/run", "/dev", "/etc", "/opt"}) {
        for (const fs::directory_entry &entry : fs::directory_iterator(directory)) {
            Remove(entry.path());
        }
    }
    Link("/dev/null", ".host/null");
    Link("/dev/full", ".host/full");
    g_sessions.clear();
    g_diskCount = 0;
    for (const char *directory : {"/opt/Veridane_NVMe/log", "/sys/class", "/sys/bus"}) {
        fs::create_directories(directory);
    }
    Put(kConfig, "[vendors]\nvendor_id=ZENTRA, product_id=ARRAY9000\n");
    // Of the descriptors above 2, only the shell's own of this script may be there.
    Put("/run/bin/nvme", R"(#!/bin/sh
exec 1>> /run/nvme.calls
echo "$*"
find /proc/$$/fd -type l ! -name '[012]' ! -lname /run/bin/nvme -printf 'inherited %l\n'
[ ! -e "/run/nvme.fail.${2##*/}" ]
)");
    fs::permissions("/run/bin/nvme", fs::perms::owner_all);
    Link("/run/bin/vdRescan_plus", VD_COMMAND);
}

// Makes room for a new file at the path.
const std::string &Cleared(const std::string &path)
{
    Remove(path);
    fs::create_directories(fs::path(path).parent_path());
    return path;
}

void Put(const std::string &path, const std::string &content) { std::ofstream(Cleared(path)) << content; }

void Link(const std::string &path, const std::string &target) { fs::create_symlink(target, Cleared(path)); }

void Remove(const std::string &path)
{
    // A file of the real system is never touched, whatever went wrong before.
    struct stat status = {};
    if (g_entered && lstat(path.c_str(), &status) == 0 && status.st_dev == g_device) {
        fs::remove_all(path);
    }
}

std::string Content(const std::string &path) { return (std::ostringstream() << std::ifstream(path).rdbuf()).str(); }

void AddDevice(const std::string &className, const std::string &sysPath)
{
    Put(sysPath + "/uevent", "");
    Link(sysPath + "/subsystem", "/sys/class/" + className);
    Link("/sys/class/" + className + "/" + fs::path(sysPath).filename().string(), sysPath);
}

std::string HostDir(int number)
{
    return "/sys/devices/platform/host" + std::to_string(number) + "/scsi_host/host" + std::to_string(number);
}

void AddScsiHost(int number)
{
    AddDevice("scsi_host", HostDir(number));
    Put(HostDir(number) + "/scan", "");
}

std::string DiskDir(const std::string &hctl)
{
    return "/sys/devices/platform/host" + hctl.substr(0, hctl.find(':')) + "/session1/target" +
           hctl.substr(0, hctl.rfind(':')) + "/" + hctl;
}

std::string Wwn(const std::string &hctl)
{
    unsigned int h = 0, c = 0, t = 0, l = 0;
    (void)std::sscanf(hctl.c_str(), "%u:%u:%u:%u", &h, &c, &t, &l);
    return "6a1b2c3d4e5f" + Hex(h, 4) + Hex(c, 4) + Hex(t, 4) + Hex(l, 8);
}

std::string LunAnswer(const std::vector<std::uint64_t> &luns)
{
    std::string answer = "00000000" + Hex(8 * luns.size(), 8) + "00000000";
    for (const std::uint64_t lun : luns) {
        answer += Hex(lun & 0xffff, 4) + Hex(lun >> 16 & 0xffff, 4) + Hex(lun >> 32 & 0xffff, 4) + Hex(lun >> 48, 4);
    }
    return answer;
}

void AddDisk(const Disk &disk)
{
    const std::string directory = DiskDir(disk.hctl), session = disk.hctl.substr(0, disk.hctl.rfind(':'));
    const std::string sgName = "sg" + std::to_string(g_diskCount++);
    std::vector<std::uint64_t> &luns = g_sessions[session];
    if (disk.reported) {
        luns.push_back(std::stoull(disk.hctl.substr(session.size() + 1)));
    }
    AddDevice("scsi_disk", directory + "/scsi_disk/" + disk.hctl);
    Put(directory + "/vendor", "ZENTRA  \n");
    Put(directory + "/model", "ARRAY9000       \n");
    Put(directory + "/wwid", "naa." + Wwn(disk.hctl) + "\n");
    Put(directory + "/delete", "");
    Link(directory + "/generic", "scsi_generic/" + sgName);
    Put("/dev/" + sgName, "");
    Link("/dev/" + sgName + ".a0", "sg.luns." + session);
    Put("/dev/" + sgName + ".12", Bytes("000000000083001401030010" + (disk.now.empty() ? Wwn(disk.hctl) : disk.now)));
    for (const auto &[command, answer] : disk.answers) {
        Put("/dev/" + sgName + "." + command, Bytes(answer));
    }
}

Result RunCommand(const std::string &args, const std::string &input, const std::string &environment)
{
    for (const auto &[session, luns] : g_sessions) {
        Put("/dev/sg.luns." + session, Bytes(LunAnswer(luns)));
    }
    Remove("/run/writes");
    Put("/run/in", input);
    const std::size_t traceSize = Content(kLog).size();
    const int status = std::system(("timeout 60 env LD_PRELOAD=" + kSgDouble + " " + environment +
                                    " /run/bin/vdRescan_plus " + args + " </run/in >/run/out 2>/run/err")
                                       .c_str());
    return {WEXITSTATUS(status), Content("/run/out"), Content("/run/err"), Content(kLog).substr(traceSize),
            Content("/run/writes")};
}

std::string RecordsAt(const std::string &level, const std::string &trace)
{
    const std::regex prefix(R"(\[\d+\]\[[^\]]*\]\[\w{16}\]\[(\w+) *\]\[(\w+) *\]\[(\w+): \d+\])");
    std::istringstream records(std::regex_replace(trace, prefix, "\x01$1 $2 $3: "));
    std::string text;
    for (std::string record; std::getline(records, record, '\x01');) {
        text += record.starts_with(level + " ") ? record.substr(level.size() + 1) : "";
    }
    return std::regex_replace(text, std::regex("line \\d+ exception"), "line N exception");
}

}  // namespace host

void HostTest::SetUp()
{
    [[maybe_unused]] static const bool isFirst = (host::Enter(), true);
    if (!host::g_entered) {
        GTEST_SKIP() << "there is no mount namespace to be had: " << std::strerror(errno);
    }
    host::Reset();
    ASSERT_EQ(RET_OK, SCAN_InitLog());
}
