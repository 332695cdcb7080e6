#include "command.h"

#include <linux/close_range.h>
#include <sched.h>
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
    // In a chroot, "/" may not be a mount point. Then check that the parent does not see the mounts made here.
    const std::string script = "parent=" + std::to_string(getppid()) + R"sh(
        exec 2> /dev/null
        mount --make-rprivate / && private=yes
        for name in sys run dev etc opt; do mount --make-rprivate /$name; done
        set -e
        mount -t tmpfs -o mode=755 made_up_machine /opt
        [ "$private" ] || { seen=$(stat -c %d /proc/$parent/root/opt) && [ "$seen" != "$(stat -c %d /opt)" ]; } ||
            { umount -l /opt; exit 1; }
        cd /opt
        mkdir -p sys run dev/.host etc opt
        mount --rbind /dev dev/.host
        for name in sys run dev etc opt; do mount --rbind $name /$name; done)sh";
    return std::system(script.c_str()) == 0;
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
find /proc/$$/fd -type l ! -name '[012]' ! -lname /run/bin/nvme -printf 'inherited %l\n'
[ ! -e "/run/nvme.fail.${2##*/}" ]
)");
    std::filesystem::permissions("/run/bin/nvme", std::filesystem::perms::owner_all);
    Link(kCommand, kProgram);
}

Result RunCommand(const std::string &args, const std::string &input, const std::string &environment)
{
    Remove(kWrites);
    Put("/run/in", input);
    const std::size_t traceSize = Content(kLog).size();
    const std::string preload = "LD_PRELOAD=" + kSgDouble + " ";
    const std::string limit = "timeout 600 env ";  // against hanging: a run takes milliseconds
    const std::string command =
        kEmulator.empty() ? limit + preload + environment + " " + kCommand
                          : limit + environment + " " + kEmulator + " -0 " + kCommand + " -E " + preload + kProgram;
    const int status = std::system((command + " " + args + " </run/in >/run/out 2>/run/err").c_str());
    return {WEXITSTATUS(status), Content("/run/out"), Content("/run/err"), Content(kLog).substr(traceSize),
            Content(kWrites)};
}

std::string RecordsAt(const std::string &level, const std::string &trace)
{
    const std::regex prefix(R"(\[\d+\]\[[^\]]*\]\[\w{16}\]\[(\w+) *\]\[(\w+) *\]\[(\w+): \d+\])");
    std::istringstream records(std::regex_replace(trace, prefix, "\x01$1 $2 $3: "));
    std::string text;
    for (std::string record; std::getline(records, record, '\x01');) {
        if (record.starts_with(level + " ")) {
            text += record.substr(level.size() + 1) + (record.ends_with('\n') ? "" : "\n");
        }
    }
    return std::regex_replace(text, std::regex("line \\d+ exception"), "line N exception");
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
