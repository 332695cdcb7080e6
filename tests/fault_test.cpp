// One platform call fails, whichever it is and however it can: no healthy disk is deleted, the run ends with status 0,
// and every host and controller that the call did not itself concern is rescanned.
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <map>
#include <set>
#include <sstream>

#include "command.h"
#include "fault_order.h"

using namespace machine;

namespace {

constexpr int kShards = 4;

// Errors of the calls that fail in more than one way.
const std::map<std::string, std::vector<int>> kErrors = {{"open", {EIO, ENOENT, EMFILE, EINTR}},
                                                         {"read", {EIO, EINTR, kShortTransfer}},
                                                         {"write", {EIO, ENODEV, EAGAIN, kShortTransfer}},
                                                         {"ioctl", {EIO, ENODEV, ENOMEM, EINTR}},
                                                         {"fopen", {ENOENT, EMFILE}},
                                                         {"fcntl", {EAGAIN, EIO}},
                                                         {"readlink", {EIO, ENOENT}},
                                                         {"access", {EIO, ENOENT}},
                                                         {"system", {EAGAIN, kShortTransfer}}};
const std::vector<int> kOnlyNoMemory = {ENOMEM};

const std::string kPidFile = "/run/vdRescan_plus.pid";
const std::set<std::string> kStale = {"2:0:0:2", "2:0:0:3", "2:0:1:1", "2:0:1:2"};
const std::vector<std::string> kRescans = {"host2/scan - - -\n", "host3/scan - - -\n", "/dev/nvme1 ", "/dev/nvme2 "};

// All ERROR records that these faults lead to: operation and message, without what stands in braces and without paths.
const std::set<std::string> kErrorRecords = {
    "SCAN_CheckOnlyOneRun: can't lock file{} with err{}.",
    "SCAN_CheckOnlyOneRun: can't open file{} with err{}.",
    "SCAN_CheckOnlyOneRun: write fail in file{} with err{}.",
    "SCAN_CreateNvmeCtrl: malloc nvme ctrl fail.",
    "SCAN_CreateScsiDisk: malloc scsi disk fail by path{}.",
    "SCAN_CreateScsiHost: malloc scsi host by num{} fail.",
    "SCAN_DeleteChangeDisk:     delete 2:0:0:2 fail.",
    "SCAN_DeleteChangeDisk:     delete 2:0:0:3 fail.",
    "SCAN_DeleteChangeDisk:     delete 2:0:1:1 fail.",
    "SCAN_DeleteChangeDisk:     delete 2:0:1:2 fail.",
    "SCAN_GetAllScanTargets: ERROR: get nvme ctrl fail by udev.",
    "SCAN_GetAllScanTargets: ERROR: get scsi host fail by udev.",
    "SCAN_GetAllScsiDisk: ERROR: get scsi disk fail by udev.",
    "SCAN_GetDiskWwn: malloc length{} buffer fail!",
    "SCAN_GetDiskWwn: open file{} fail!",
    "SCAN_GetScsiDiskSgName: full name{} read link fail.",
    "SCAN_GetScsiDiskSgName: sg{} check read authority fail.",
    "SCAN_GetScsiDiskWwid: scsi disk get wwid fail by path{}.",
    "SCAN_Init: init vd config fail!",
    "SCAN_InitScsiDisk: scsi disk get product fail by path{}.",
    "SCAN_InitScsiDisk: scsi disk get vendor fail by path{}.",
    "SCAN_IssueReportLun: iusse report lun ioctl fail{}!",
    "SCAN_IusseInquiry0x83: inquiry 0x83 ioctl fail{}!",
    "SCAN_ParseReportLunids: malloc length{} buffer fail!",
    "SCAN_ReportLun: malloc length{} buffer fail!",
    "SCAN_ReportLun: open file{} fail!",
    "SCAN_ScanNvmeCtrl: fail.",
    "SCAN_ScanScsiHost: fail.",
    "SCAN_SessionLookupCreate: scsi session malloc fail by sg{}.",
    "INTF_UTIL_Read: open file{} failed!",
    "INTF_UTIL_Read: read fail in file{} with ret{}.",
    "INTF_UTIL_UdevGetDevice: create new udev is fail.",
    "INTF_UTIL_UdevGetDevice: udev enumerate add match subsystem{} fail with ret{}.",
    "INTF_UTIL_UdevGetDevice: udev enumerate iterator is NULL.",
    "INTF_UTIL_UdevGetDevice: udev enumerate scan fail with ret{}.",
    "INTF_UTIL_Write: open file{} failed!",
    "INTF_UTIL_Write: write fail in file{} with ret{}.",
    "UDEV_DeviceIsSupport: list is NULL.",
    "UDEV_InitConfig: open file failed.",
    "UDEV_AllocProductNode: malloc failed",
    "UTIL_UdevForEach: get device failed devPath:",
    "UTIL_UdevForEach: get device path failed."};

// A machine with disks of every kind: healthy, changed, removed, not connected, not supported; and a session in which
// only the second disk answers.
void MakeMachine()
{
    AddScsiHost(2);
    AddScsiHost(3);
    AddDevice("nvme", kFabrics + "nvme1");
    AddDevice("nvme", kFabrics + "nvme2");
    AddDisk({.hctl = "2:0:0:1"});
    AddDisk({.hctl = "2:0:0:2", .now = Wwn("9:9:9:9")});
    AddDisk({.hctl = "2:0:0:3", .isReported = false});
    AddDisk({.hctl = "2:0:1:1", .isDead = true});
    AddDisk({.hctl = "2:0:1:2", .isDead = true});
    AddDisk({.hctl = "3:0:0:1"});
    SetAnswer("sg5", kReportLuns, {.error = ENODEV});
    AddDisk({.hctl = "3:0:0:2"});
    AddDisk({.hctl = "3:0:1:1"});
    AddDisk({.hctl = "4:0:0:1", .isReported = false});
    Put(DiskDir("4:0:0:1") + "/vendor", "OTHERCO \n");
}

// The command, started once with fault_double in front of kSgDouble, which forks it for each run.
class Command {
public:
    Command()
    {
        Put("/run/out", "");
        Put("/run/err", "");
        int sockets[2] = {};
        EXPECT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets));
        socket_ = sockets[0];
        if (fork() == 0) {
            // Appended to, so that an output that is emptied between two runs begins anew.
            (void)dup2(open("/run/out", O_WRONLY | O_APPEND), STDOUT_FILENO);
            (void)dup2(open("/run/err", O_WRONLY | O_APPEND), STDERR_FILENO);
            (void)setenv("LD_PRELOAD", (VD_FAULT_DOUBLE " " + kSgDouble).c_str(), 1);
            (void)setenv("VD_FAULT_SOCKET", std::to_string(dup(sockets[1])).c_str(), 1);
            (void)execl(kCommand.c_str(), kCommand.c_str(), nullptr);
            _exit(127);
        }
        (void)close(sockets[1]);
    }
    Command(const Command &) = delete;
    Command &operator=(const Command &) = delete;
    ~Command()
    {
        (void)close(socket_);  // which ends it
        (void)wait(nullptr);
    }

    // One run, on a machine on which nobody ran it before. Returns its wait status.
    int Run(FaultOrder order)
    {
        for (const std::string &left : {kWrites, kNvmeCalls, kLog, kPidFile}) {
            Remove(left);
        }
        EXPECT_EQ(0, truncate("/run/out", 0) + truncate("/run/err", 0));
        int status = -1;
        EXPECT_EQ(static_cast<ssize_t>(sizeof order), write(socket_, &order, sizeof order));
        EXPECT_EQ(static_cast<ssize_t>(sizeof status), read(socket_, &status, sizeof status));
        return status;
    }

private:
    int socket_ = -1;
};

// What the failing call, a line "CONTEXTS FUNCTION WHAT", takes away with it: the target it names, or those that it
// counts.
bool Concerns(const std::string &call, const std::string &rescan)
{
    const bool isHost = rescan.starts_with("host");
    const std::string target = isHost ? rescan.substr(0, 5) + "/scan" : rescan.substr(0, rescan.size() - 1);
    return call.find(target) != std::string::npos || call.starts_with(isHost ? "1 " : "2 ");
}

void ExpectOnlyStaleDeleted()
{
    std::istringstream writes(Content(kWrites));
    for (std::string write; std::getline(writes, write);) {
        const bool isStale = kStale.contains(write.substr(0, write.find('/')));
        EXPECT_TRUE(isStale || write.find("/delete") == std::string::npos) << write;
    }
}

// The records of a run, as kErrorRecords has them. (A regular expression would take longer than the run.)
void ExpectKnownErrors()
{
    const std::string trace = Content(kLog);
    const std::string level = "[ERROR][SCAN  ][";  // as long as that of UDEV
    for (std::size_t at = trace.find("[ERROR]["); at != std::string::npos; at = trace.find("[ERROR][", at + 1)) {
        const std::size_t name = at + level.size();
        std::string message;
        bool isInBraces = false;
        for (std::size_t i = trace.find(']', name) + 1; i < trace.size() && trace[i] != '\n' && trace[i] != '['; ++i) {
            isInBraces = isInBraces && trace[i] != '}';
            if (!isInBraces) {
                message += trace[i];
            }
            isInBraces = isInBraces || trace[i] == '{';
        }
        message.resize(std::min(message.find('/'), message.size()));
        const std::string record = trace.substr(name, trace.find(':', name) - name) + ": " + message;
        EXPECT_TRUE(kErrorRecords.contains(record)) << record;
    }
}

void ExpectLockFree()
{
    const int fd = open(kPidFile.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    EXPECT_EQ(0, fcntl(fd, F_SETLK, &lock));
    (void)close(fd);
}

void ExpectRescans(const std::string &call)
{
    if (Content("/run/out").find("there is one other vdRescan_plus running") != std::string::npos) {
        EXPECT_NE(std::string::npos, call.find(kPidFile));
        EXPECT_EQ("", Content(kWrites));
        return;
    }
    const std::string done = Content(kWrites) + Content(kNvmeCalls);
    for (const std::string &rescan : kRescans) {
        EXPECT_TRUE(done.find(rescan) != std::string::npos || Concerns(call, rescan)) << rescan;
    }
}

class FaultTest : public MachineTest, public testing::WithParamInterface<int> {};

TEST_P(FaultTest, DeletesNoHealthyDisk)
{
    MakeMachine();
    Command command;
    ASSERT_EQ(0, command.Run({.call = 0, .error = 0}));
    std::istringstream calls(Content("/run/calls"));
    int number = 0;
    int faults = 0;
    int kills = 0;
    for (std::string call; std::getline(calls, call) && !HasFailure();) {
        if (++number % kShards != GetParam()) {
            continue;
        }
        const testing::ScopedTrace trace(__FILE__, __LINE__, "call " + std::to_string(number) + " {" + call + "}");
        const auto errors = kErrors.find(call.substr(2, call.find(' ', 2) - 2));
        for (const int error : errors == kErrors.end() ? kOnlyNoMemory : errors->second) {
            ++faults;
            EXPECT_EQ(0, command.Run({number, error})) << "errno " << error;
            EXPECT_EQ("", Content("/run/err"));
            ExpectOnlyStaleDeleted();
            ExpectRescans(call);
            ExpectKnownErrors();
        }
        ++kills;
        EXPECT_TRUE(WIFSIGNALED(command.Run({number, kKill})));
        ExpectOnlyStaleDeleted();
        ExpectLockFree();
    }
    EXPECT_GT(number, 500);
    std::printf("calls %d, faults injected %d, kills %d\n", number, faults, kills);
}

INSTANTIATE_TEST_SUITE_P(Shard, FaultTest, testing::Range(0, kShards));

}  // namespace
