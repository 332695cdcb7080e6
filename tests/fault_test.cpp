// Each run has one fault: a platform call fails, in every realistic way, or other disks replace some just before the
// call. Then no healthy disk is deleted, no memory leaks, the run ends with status 0, and every host and controller is
// rescanned, except the object of the call.
#include <fnmatch.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <set>
#include <sstream>

#include "command.h"
#include "fault_order.h"

using namespace machine;

namespace {

// Errors of the calls that fail in more than one way.
const std::map<std::string, std::vector<int>> kErrors = {{"open", {EIO, ENOENT, EMFILE, EINTR, kTakeOver}},
                                                         {"read", {EIO, EINTR, kShort, kTakeOver}},
                                                         {"write", {EIO, ENODEV, EAGAIN, kShort, kTakeOver}},
                                                         {"ioctl", {EIO, ENODEV, ENOMEM, EINTR, kTakeOver}},
                                                         {"fopen", {ENOENT, EMFILE}},
                                                         {"fcntl", {EAGAIN, EIO}},
                                                         {"stat", {EIO, ENOENT, kTakeOver}},
                                                         {"fstat", {EIO, kTakeOver}},
                                                         {"readlink", {EIO, ENOENT, kTakeOver}},
                                                         {"access", {EIO, ENOENT, kTakeOver}},
                                                         {"system", {EAGAIN, kShort}}};

const std::set<std::string> kStale = {"2:0:0:2", "2:0:0:3", "2:0:1:1", "2:0:1:2"};
const std::string kNewcomer = "/sys/devices/newcomer/2:0:0:2";
const std::vector<std::string> kRescans = {"host2/scan", "host3/scan", "/dev/nvme1", "/dev/nvme2"};

// All ERROR records of these faults, as shell patterns, and operations whose records other tests check.
const std::set<std::string> kErrorRecords = {
    "SCAN_CheckOnlyOneRun: can't open file{/run/vdRescan_plus.pid} with err{*}.",
    "SCAN_CheckOnlyOneRun: can't lock file{/run/vdRescan_plus.pid} with err{*}.",
    "SCAN_CheckOnlyOneRun: write fail in file{/run/vdRescan_plus.pid} with err{*}.",
    "SCAN_CreateNvmeCtrl: malloc nvme ctrl fail.",
    "SCAN_CreateScsiDisk: malloc scsi disk fail by path{*}.",
    "SCAN_CreateScsiHost: malloc scsi host by num{*} fail.",
    "SCAN_GetAllScanTargets: ERROR: get nvme ctrl fail by udev.",
    "SCAN_GetAllScanTargets: ERROR: get scsi host fail by udev.",
    "SCAN_GetAllScsiDisk: ERROR: get scsi disk fail by udev.",
    "SCAN_GetDiskWwn: malloc length{*} buffer fail!",
    "SCAN_GetDiskWwn: open file{*} fail!",
    "SCAN_GetScsiDiskSgName: full name{*} read link fail.",
    "SCAN_GetScsiDiskSgName: sg{*} check read authority fail.",
    "SCAN_GetScsiDiskWwid: scsi disk get wwid fail by path{*}.",
    "SCAN_InitScsiDisk: scsi disk get product fail by path{*}.",
    "SCAN_InitScsiDisk: scsi disk get vendor fail by path{*}.",
    "SCAN_ParseReportLunids: malloc length{*} buffer fail!",
    "SCAN_ReportLun: malloc length{*} buffer fail!",
    "SCAN_ReportLun: open file{*} fail!",
    "SCAN_SessionLookupCreate: scsi session malloc fail by sg{*}.",
    "INTF_UTIL_Read: open file{*} failed!",
    "INTF_UTIL_Read: read fail in file{*} with ret{*}.",
    "INTF_UTIL_UdevGetDevice: create new udev is fail.",
    "INTF_UTIL_UdevGetDevice: udev enumerate add match subsystem{*} fail with ret{*}.",
    "INTF_UTIL_UdevGetDevice: udev enumerate iterator is NULL.",
    "INTF_UTIL_UdevGetDevice: udev enumerate scan fail with ret{*}.",
    "UDEV_AllocProductNode: malloc failed",
    "UTIL_UdevForEach: get device failed devPath:*.",
    "UTIL_UdevForEach: get device path failed."};
const std::set<std::string> kHeldElsewhere = {
    "SCAN_DeleteChangeDisk", "SCAN_Init",       "SCAN_IssueReportLun",  "SCAN_IusseInquiry0x83", "SCAN_ScanNvmeCtrl",
    "SCAN_ScanScsiHost",     "INTF_UTIL_Write", "UDEV_DeviceIsSupport", "UDEV_InitConfig"};

// A machine with disks of every kind: healthy, changed, removed, not connected, not supported. In one session, only the
// second disk answers, and a disk of another target takes over its node.
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
    AddDisk({.hctl = "3:0:0:4"});
    SetAnswer("sg5", kReportLuns, {.error = ENODEV});
    AddDisk({.hctl = "3:0:0:5"});
    AddDisk({.hctl = "3:0:1:1"});
    AddDisk({.hctl = "4:0:0:1", .isReported = false});
    Put(DiskDir("4:0:0:1") + "/vendor", "OTHERCO \n");
    // 2:0:0:2 when the kernel finds it again with its new name.
    const auto options = std::filesystem::copy_options::recursive | std::filesystem::copy_options::copy_symlinks;
    std::filesystem::create_directory("/sys/devices/newcomer");
    std::filesystem::copy(DiskDir("2:0:0:2"), kNewcomer, options);
    Put(kNewcomer + "/wwid", "naa." + Wwn("9:9:9:9") + "\n");
}

// The command, started once. fault_double, loaded before kSgDouble, forks it for each run.
class Command {
public:
    Command()
    {
        EXPECT_EQ(0, mkfifo("/run/results", 0600));
        // fault_double counts leaks in much less time than a sanitizer takes to look for them.
        const std::string command =
            "ASAN_OPTIONS=detect_leaks=0 LD_PRELOAD='" VD_FAULT_DOUBLE " " + kSgDouble + "' " + kCommand;
        // Append, so the output starts at offset 0 after each truncation.
        orders_.reset(popen((command + " >>/run/out 2>/run/err 3>/run/results").c_str(), "w"));
        results_.open("/run/results");
    }

    // One run.
    FaultResult Run(FaultOrder order)
    {
        Remove(kWrites);
        Remove(kLog);
        EXPECT_EQ(0, truncate("/run/out", 0));
        FaultResult result = {-1, -1};
        EXPECT_EQ(1U, std::fwrite(&order, sizeof order, 1, orders_.get()));
        EXPECT_EQ(0, std::fflush(orders_.get()));
        results_.read(reinterpret_cast<char *>(&result), sizeof result);
        return result;
    }

private:
    std::unique_ptr<FILE, int (*)(FILE *)> orders_{nullptr, pclose};  // pclose waits for the command
    std::ifstream results_;
};

void ExpectOnlyStaleDeleted()
{
    std::istringstream writes(Content(kWrites));
    for (std::string write; std::getline(writes, write);) {
        const bool isStale = kStale.contains(write.substr(0, write.find('/')));
        EXPECT_TRUE(isStale || write.find("/delete") == std::string::npos) << write;
    }
}

// Adds the known records of the trace to `seen`. An unknown ERROR record is a failure.
void ExpectKnownErrors(std::set<std::string> &seen)
{
    std::istringstream trace(Content(kLog));
    for (std::string skipped; std::getline(trace, skipped, '[');) {
        if (skipped != "ERROR]") {
            continue;
        }
        std::string operation;
        std::string message;
        std::getline(trace, skipped, '[');  // module
        std::getline(trace, operation, ':');
        std::getline(trace, skipped, ']');  // line
        std::getline(trace, message, '[');
        const std::string record = operation + ": " + message.substr(0, message.find('\n'));
        const auto pattern = std::find_if(kErrorRecords.begin(), kErrorRecords.end(), [&record](const auto &known) {
            return fnmatch(known.c_str(), record.c_str(), 0) == 0;
        });
        if (pattern != kErrorRecords.end()) {
            seen.insert(*pattern);
        } else {
            EXPECT_TRUE(kHeldElsewhere.contains(operation)) << record;
        }
    }
}

// A rescan may be missing only if the failing call, a line "CONTEXTS FUNCTION WHAT", names its target or belongs to the
// listing of all such targets.
void ExpectRescans(const std::string &call)
{
    const std::string done = Content(kWrites) + Content("/run/out");
    if (done.find("there is one other vdRescan_plus running") != std::string::npos) {
        EXPECT_NE(std::string::npos, call.find("/run/vdRescan_plus.pid"));
        EXPECT_EQ("", Content(kWrites));
        return;
    }
    for (const std::string &rescan : kRescans) {
        const bool isConcerned =
            call.find(rescan) != std::string::npos || call.starts_with(rescan.starts_with("host") ? "1 " : "2 ");
        EXPECT_TRUE(isConcerned || done.find(rescan) != std::string::npos) << rescan;
    }
}

// The calls of a run without a failure.
std::vector<std::string> Calls(Command &command)
{
    EXPECT_EQ(0, command.Run({.call = 0, .error = 0}).status);
    std::vector<std::string> calls;
    std::istringstream list(Content("/run/calls"));
    for (std::string call; std::getline(list, call);) {
        calls.push_back(call);
    }
    EXPECT_LT(500U, calls.size());
    return calls;
}

class FaultTest : public MachineTest {};

TEST_F(FaultTest, ACallThatFailsDeletesNoHealthyDisk)
{
    MakeMachine();
    Command command;
    const int kept = command.Run({.call = INT_MAX, .error = 0}).leaked;  // by the C library
    int number = 0;
    int faults = 0;
    bool hasMalloc = false;
    std::set<std::string> seen;
    for (const std::string &call : Calls(command)) {
        ++number;
        hasMalloc = hasMalloc || call.find(" malloc ") != std::string::npos;
        const testing::ScopedTrace trace(__FILE__, __LINE__, "call " + std::to_string(number) + " {" + call + "}");
        const auto errors = kErrors.find(call.substr(2, call.find(' ', 2) - 2));
        for (const int error : errors == kErrors.end() ? std::vector{ENOMEM} : errors->second) {
            ++faults;
            const FaultResult result = command.Run({number, error});
            EXPECT_EQ(0, result.status) << "errno " << error;
            EXPECT_GE(kept, result.leaked) << "errno " << error;
            if (error == kTakeOver) {
                FAULT_TakeOver();  // undo
            }
            EXPECT_EQ("", Content(kNewcomer + "/delete")) << "errno " << error;
            EXPECT_EQ("", Content("/run/err"));
            ExpectOnlyStaleDeleted();
            ExpectRescans(call);
            ExpectKnownErrors(seen);
        }
        ASSERT_FALSE(HasFailure());
    }
    // The sanitizers have their own malloc, which cannot fail here.
    EXPECT_TRUE(seen == kErrorRecords || !hasMalloc) << testing::PrintToString(seen);
    std::printf("calls %d, faults injected %d\n", number, faults);
}

TEST_F(FaultTest, ARunThatIsKilledDeletesNoHealthyDisk)
{
    MakeMachine();
    Command command;
    int kills = 0;
    for (const std::string &call : Calls(command)) {
        ++kills;
        EXPECT_TRUE(WIFSIGNALED(command.Run({kills, kKill}).status)) << call;
        ExpectOnlyStaleDeleted();
        ASSERT_FALSE(HasFailure());
    }
    std::printf("kills %d\n", kills);
}

}  // namespace
