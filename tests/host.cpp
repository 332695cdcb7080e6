#include "host.h"

#include <linux/close_range.h>
#include <sched.h>
#include <sys/mount.h>
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

std::string g_refusal = "the namespace was not entered";
dev_t g_device = 0;                                            // the one file system of all that is made up
std::map<std::string, std::vector<std::uint64_t>> g_sessions;  // LUNs that each target reports
int g_diskCount = 0;

std::string Failed(const std::string &what) { return what + ": " + std::strerror(errno); }

// Returns why the namespace cannot be entered, or an empty text.
std::string EnterNamespace()
{
    const std::string uid = std::to_string(getuid()), gid = std::to_string(getgid());
    if (unshare(uid == "0" ? CLONE_NEWNS : CLONE_NEWUSER | CLONE_NEWNS) != 0) {
        return Failed("mount namespace");
    }
    if (uid != "0") {
        std::ofstream("/proc/self/setgroups") << "deny";
        std::ofstream("/proc/self/uid_map") << "0 " + uid + " 1";
        std::ofstream("/proc/self/gid_map") << "0 " + gid + " 1";
    }
    struct stat status = {};
    const bool isPrivate = mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    for (const char *name : {"/sys", "/run", "/dev", "/etc", "/opt"}) {
        (void)mount("none", name, nullptr, MS_REC | MS_PRIVATE, nullptr);  // fails where it is no mount point
    }
    if (mount("made_up_host", "/opt", "tmpfs", 0, "mode=755") != 0 || stat("/opt", &status) != 0) {
        return Failed("mount");
    }
    // "/" of a chroot may be no mount point. Then it must show that the parent does not see what is mounted here.
    const std::string parents = "/proc/" + std::to_string(getppid()) + "/root/opt";
    struct stat seen = {};
    if (!isPrivate && (stat(parents.c_str(), &seen) != 0 || seen.st_dev == status.st_dev)) {
        (void)umount2("/opt", MNT_DETACH);
        return "mounts would show outside";
    }
    for (const std::string name : {"/sys", "/run", "/dev", "/etc", "/opt"}) {
        const std::string made = "/opt" + name, real = made + "/.host";
        fs::create_directories(real);
        // The rest of the system needs what stands in these two: it stays, as links.
        if (name == "/dev" || name == "/etc") {
            if (mount(name.c_str(), real.c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0) {
                return Failed(real);
            }
            for (const fs::directory_entry &entry : fs::directory_iterator(real)) {
                const std::string file = entry.path().filename();
                if (!file.starts_with("sg") && file != "vd_plus.conf") {
                    fs::create_symlink(".host/" + file, made + "/" + file);
                }
            }
        }
        if (mount(made.c_str(), name.c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0) {
            return Failed(name);
        }
    }
    g_device = status.st_dev;
    return "";
}

std::string Hex(std::uint64_t value, int digits)
{
    char text[20];
    (void)std::snprintf(text, sizeof text, "%0*llx", digits, static_cast<unsigned long long>(value));
    return text;
}

}  // namespace

void Enter()
{
    g_refusal = EnterNamespace();
    (void)close_range(3, ~0U, CLOSE_RANGE_CLOEXEC);  // `nvme` must inherit only what the command itself leaves open
    (void)setenv("PATH", ("/run/bin:" + std::string(std::getenv("PATH"))).c_str(), 1);
    (void)setenv("SYSTEMD_DEVICE_VERIFY_SYSFS", "0", 1);
}

void Reset()
{
    for (const char *directory : {"/sys", "/run", "/dev", "/etc", "/opt"}) {
        for (const fs::directory_entry &entry : fs::directory_iterator(directory)) {
            if (!entry.is_symlink() || !fs::read_symlink(entry).string().starts_with(".host/")) {
                Remove(entry.path());
            }
        }
    }
    g_sessions.clear();
    g_diskCount = 0;
    for (const char *directory : {"/opt/Veridane_NVMe/log", "/sys/class", "/sys/bus"}) {
        fs::create_directories(directory);
    }
    Put(kConfig, "[vendors]\nvendor_id=ZENTRA, product_id=ARRAY9000\n");
    // Of the descriptors above 2, only the shell's own of this script may be there.
    Put("/run/bin/nvme",
        "#!/bin/sh\nexec 1>> " + kNvmeCalls + "\necho \"$*\"\n" +
            "find /proc/$$/fd -type l ! -name '[012]' ! -lname /run/bin/nvme -printf 'inherited %l\\n'\n"
            "[ ! -e \"" +
            kNvmeFail + "${2##*/}\" ]\n");
    fs::permissions("/run/bin/nvme", fs::perms::owner_all);
    Link("/run/bin/vdRescan_plus", VD_COMMAND);
}

void Put(const std::string &path, const std::string &content)
{
    Remove(path);
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream(path) << content;
}

void Link(const std::string &path, const std::string &target)
{
    Remove(path);
    fs::create_directories(fs::path(path).parent_path());
    fs::create_symlink(target, path);
}

void Remove(const std::string &path)
{
    // A file of the real system is never touched, whatever went wrong before.
    struct stat status = {};
    if (g_refusal.empty() && lstat(path.c_str(), &status) == 0 && status.st_dev == g_device) {
        fs::remove_all(path);
    }
}

std::string Content(const std::string &path)
{
    std::ostringstream content;
    content << std::ifstream(path).rdbuf();
    return content.str();
}

void AddDevice(const std::string &className, const std::string &sysPath)
{
    Put(sysPath + "/uevent", "");
    Link(sysPath + "/subsystem", "/sys/class/" + className);
    Link("/sys/class/" + className + "/" + fs::path(sysPath).filename().string(), sysPath);
}

std::string HostDir(int number)
{
    const std::string name = "host" + std::to_string(number);
    return "/sys/devices/platform/" + name + "/scsi_host/" + name;
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

std::string LunRule(const std::vector<std::uint64_t> &luns)
{
    std::string rule = "a0 * data " + Hex(8 * luns.size(), 8) + "00000000";
    for (const std::uint64_t lun : luns) {
        rule += Hex(lun & 0xffff, 4) + Hex(lun >> 16 & 0xffff, 4) + Hex(lun >> 32 & 0xffff, 4) + Hex(lun >> 48, 4);
    }
    return rule + "\n";
}

std::string PageRule(const std::string &wwn) { return "12 * data 0083001401030010" + wwn + "\n"; }

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
    const std::string page = PageRule(disk.now.empty() ? Wwn(disk.hctl) : disk.now);
    Put("/dev/" + sgName, disk.rules.empty() ? page + "see /dev/sg.luns." + session + "\n" : disk.rules);
}

Result RunCommand(const std::string &args, const std::string &input, const std::string &environment)
{
    for (const auto &[session, luns] : g_sessions) {
        Put("/dev/sg.luns." + session, LunRule(luns));
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
    static const std::regex kPrefix(R"(\[\d+\]\[[^\]]*\]\[\w{16}\]\[(\w+) *\]\[(\w+) *\]\[(\w+): \d+\])");
    std::string text;
    for (std::sregex_iterator at(trace.begin(), trace.end(), kPrefix), end; at != end;) {
        const std::smatch match = *at++;
        if (match.str(1) == level) {
            text += match.str(2) + " " + match.str(3) + ": ";
            text += at == end ? match.suffix().str() : at->prefix().str();
        }
    }
    return text;
}

}  // namespace host

void HostTest::SetUp()
{
    if (!host::g_refusal.empty()) {
        GTEST_SKIP() << host::g_refusal;
    }
    host::Reset();
    ASSERT_EQ(RET_OK, SCAN_InitLog());
}
