#include "command.h"

#include <linux/close_range.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>

#include "log_path.h"

namespace machine {

namespace {

bool g_entered = false;

std::string Setting(const char *name, const char *otherwise)
{
    const char *value = std::getenv(name);
    return value == nullptr ? otherwise : value;
}

// A command for another processor, with its own stand-in, is run by an emulator: "qemu-aarch64 -L SYSROOT".
const std::string kEmulator = Setting("VD_TEST_EMULATOR", "");
const std::string kProgram = Setting("VD_TEST_COMMAND", VD_COMMAND);

bool MakePrivate(const std::string &path)
{
    return mount(nullptr, path.c_str(), nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

bool Bind(const std::string &source, const std::string &target)
{
    std::filesystem::create_directories(target);
    std::filesystem::create_directories(source);
    return mount(source.c_str(), target.c_str(), nullptr, MS_REC | MS_BIND, nullptr) == 0;
}

// Mounts the directories of an empty machine. Nobody outside the namespace sees them.
bool MountMachine()
{
    const bool isPrivate = MakePrivate("/");
    for (const char *directory : kDirectories) {
        (void)MakePrivate(directory);  // fails unless it is a mount point
    }
    if (mount("made_up_machine", "/opt", "tmpfs", 0, "mode=755") != 0) {
        return false;
    }
    // In a chroot, "/" may not be a mount point. Then check that the parent does not see the mounts made here.
    const std::string parent = "/proc/" + std::to_string(getppid()) + "/root/opt";
    std::error_code error;
    if (!isPrivate && (std::filesystem::equivalent(parent, "/opt", error) || error)) {
        (void)umount2("/opt", MNT_DETACH);
        return false;
    }
    bool isMounted = Bind("/dev", "/opt/dev/.host");
    for (const std::string directory : kDirectories) {
        isMounted = isMounted && Bind("/opt" + directory, directory);
    }
    return isMounted;
}

bool EnterNamespace()
{
    const std::string uid = std::to_string(getuid());
    const std::string gid = std::to_string(getgid());
    if (unshare(uid == "0" ? CLONE_NEWNS : CLONE_NEWUSER | CLONE_NEWNS) != 0) {
        return false;
    }
    if (uid != "0") {
        std::ofstream("/proc/self/setgroups") << "deny";
        std::ofstream("/proc/self/uid_map") << "0 " + uid + " 1";
        std::ofstream("/proc/self/gid_map") << "0 " + gid + " 1";
    }
    return MountMachine();
}

}  // namespace

const std::string kSgDouble = Setting("VD_TEST_DOUBLE", VD_SG_DOUBLE);

void Enter()
{
    g_entered = EnterNamespace();
    if (g_entered) {
        SetRoot("");
    }
    (void)close_range(3, ~0U, CLOSE_RANGE_CLOEXEC);  // `nvme` must inherit only descriptors of the command
    (void)setenv("PATH", ("/run/bin:" + std::string(std::getenv("PATH"))).c_str(), 1);
    (void)setenv("SYSTEMD_DEVICE_VERIFY_SYSFS", "0", 1);
}

void StartOver()
{
    MakeEmpty();
    Link("/dev/null", ".host/null");
    Link("/dev/full", ".host/full");
    // 0, 1 and 2 must be open, and no other descriptor but the one through which the shell reads this script.
    Put("/run/bin/nvme", R"(#!/bin/sh
echo 'words of nvme'
echo 'words of nvme' >&2
exec 1>> /run/nvme.calls
echo "$*"
[ -s /run/out ] || echo 'nothing is printed yet'
[ -e /proc/$$/fd/0 ] || echo 'no standard input'
for fd in /proc/$$/fd/*; do
    case ${fd##*/} in [012]) continue ;; esac
    [ ! -e "$fd" ] || [ "$fd" -ef /run/bin/nvme ] || echo "inherited ${fd##*/}"
done
[ ! -e "/run/nvme.fail.${2##*/}" ]
)");
    // Without a file /run/lsblk, this machine has no block device.
    Put("/run/bin/lsblk", "#!/bin/sh\ncat /run/lsblk || echo '{\"blockdevices\": []}'\n");
    Put("/run/bin/dmsetup", "#!/bin/sh\ncat /run/dmsetup\n");
    for (const std::string program : {"nvme", "lsblk", "dmsetup"}) {
        std::filesystem::permissions("/run/bin/" + program, std::filesystem::perms::owner_all);
    }
    Link(kCommand, kProgram);
}

Result RunCommand(const std::string &args, const std::string &input, const std::string &environment)
{
    Remove(kWrites);
    Put("/run/in", input);
    const std::size_t traceSize = Content(kLog).size();
    const std::string preload = "LD_PRELOAD=" + kSgDouble + " ";
    const std::string command = kEmulator.empty()
                                    ? preload + environment + " " + kCommand
                                    : environment + " " + kEmulator + " -0 " + kCommand + " -E " + preload + kProgram;
    const int status = std::system((command + " " + args + " </run/in >/run/out 2>/run/err").c_str());
    return {status, Content("/run/out"), Content("/run/err"), Content(kLog).substr(traceSize), Content(kWrites)};
}

std::string RecordsAt(const std::string &level, const std::string &trace)
{
    static const std::regex prefix(R"(\[\d+\]\[[^\]]*\]\[\w{16}\]\[(\w+) *\]\[(\w+) *\]\[(\w+): \d+\])");
    std::istringstream records(std::regex_replace(trace, prefix, "\x01$1 $2 $3: "));
    std::string text;
    for (std::string record; std::getline(records, record, '\x01');) {
        if (record.starts_with(level + " ")) {
            text += record.substr(level.size() + 1) + (record.ends_with('\n') ? "" : "\n");
        }
    }
    static const std::regex line("line \\d+ exception");
    return std::regex_replace(text, line, "line N exception");
}

}  // namespace machine

void MachineTest::SetUp()
{
    [[maybe_unused]] static const bool isFirst = (machine::Enter(), true);
    if (!machine::g_entered) {
        GTEST_SKIP() << "there is no mount namespace to be had: " << std::strerror(errno);
    }
    machine::StartOver();
    ASSERT_EQ(RET_OK, SCAN_InitLog());
}
