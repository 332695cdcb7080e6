// One platform call fails, whichever it is and however it can: no healthy disk is deleted, the run ends with status 0,
// and every host and controller that the call did not itself concern is rescanned.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <map>
#include <set>
#include <sstream>

#include "host.h"

namespace {

constexpr int kShards = 8;

// Errors of the calls that fail in more than one way: 0 is a short transfer, or a program that ends with 1.
const std::map<std::string, std::vector<int>> kErrors = {{"open", {EIO, ENOENT, EMFILE, EINTR}},
                                                         {"read", {EIO, EINTR, 0}},
                                                         {"write", {EIO, ENODEV, EAGAIN, 0}},
                                                         {"ioctl", {EIO, ENODEV, ENOMEM, EINTR}},
                                                         {"fopen", {ENOENT, EMFILE}},
                                                         {"fcntl", {EAGAIN, EIO}},
                                                         {"readlink", {EIO, ENOENT}},
                                                         {"access", {EIO, ENOENT}},
                                                         {"system", {EAGAIN, 0}}};
const std::vector<int> kOnlyNoMemory = {ENOMEM};

const std::set<std::string> kStale = {"2:0:0:2", "2:0:0:3", "2:0:1:1", "2:0:1:2"};
const std::vector<std::string> kRescans = {"host2/scan - - -\n", "host3/scan - - -\n", "/dev/nvme1\n", "/dev/nvme2\n"};

class FaultTest : public HostTest, public testing::WithParamInterface<int> {};

// A host with disks of every kind: healthy, changed, removed, not connected, not supported; and a session in which only
// the second disk answers.
void MakeHost()
{
    host::Reset();
    host::AddScsiHost(2);
    host::AddScsiHost(3);
    host::AddDevice("nvme", host::kFabrics + "nvme1");
    host::AddDevice("nvme", host::kFabrics + "nvme2");
    host::AddDisk({.hctl = "2:0:0:1"});
    host::AddDisk({.hctl = "2:0:0:2", .now = host::Wwn("9:9:9:9")});
    host::AddDisk({.hctl = "2:0:0:3", .reported = false});
    host::AddDisk({.hctl = "2:0:1:1", .answers = host::kDead});
    host::AddDisk({.hctl = "2:0:1:2", .answers = host::kDead});
    host::AddDisk({.hctl = "3:0:0:1", .answers = {{"a0", "13000000"}}});
    host::AddDisk({.hctl = "3:0:0:2"});
    host::AddDisk({.hctl = "3:0:1:1"});
    host::AddDisk({.hctl = "4:0:0:1", .reported = false});
    host::Put(host::DiskDir("4:0:0:1") + "/vendor", "OTHERCO \n");
}

// What the failing call, a line "PHASE FUNCTION WHAT", takes away with it: the target it names, or those that it
// counts.
bool Concerns(const std::string &call, const std::string &rescan)
{
    const bool isHost = rescan.starts_with("host");
    const std::string target = isHost ? rescan.substr(0, 5) + "/scan" : rescan.substr(0, rescan.size() - 1);
    return call.find(target) != std::string::npos || call.starts_with(isHost ? "1 " : "2 ");
}

// Runs the command on that host with a fault in front of kSgDouble.
host::Result RunWith(const std::string &fault)
{
    MakeHost();
    return host::RunCommand("", "", "LD_PRELOAD='" VD_FAULT_DOUBLE " " + host::kSgDouble + "' VD_FAULT=" + fault);
}

TEST_P(FaultTest, DeletesNoHealthyDisk)
{
    (void)RunWith("0:0");
    std::istringstream calls(host::Content("/run/calls"));
    int number = 0, faults = 0;
    for (std::string call; std::getline(calls, call);) {
        if (++number % kShards != GetParam()) {
            continue;
        }
        const auto errors = kErrors.find(call.substr(2, call.find(' ', 2) - 2));
        for (const int error : errors == kErrors.end() ? kOnlyNoMemory : errors->second) {
            const std::string fault = std::to_string(number) + ":" + std::to_string(error);
            const testing::ScopedTrace trace(__FILE__, __LINE__, fault + " {" + call + "}");
            ++faults;
            const host::Result run = RunWith(fault);
            ASSERT_EQ(run.status, 0) << run.err;
            ASSERT_EQ(run.err, "");
            std::istringstream writes(run.writes);
            for (std::string write; std::getline(writes, write);) {
                const bool isStale = kStale.contains(write.substr(0, write.find('/')));
                ASSERT_TRUE(write.find("/delete") == std::string::npos || isStale) << write;
            }
            if (run.out.find("there is one other vdRescan_plus running") != std::string::npos) {
                ASSERT_NE(call.find("/run/vdRescan_plus.pid"), std::string::npos);
                ASSERT_EQ(run.writes, "");
                continue;
            }
            const std::string done = run.writes + host::Content(host::kNvmeCalls);
            for (const std::string &rescan : kRescans) {
                ASSERT_TRUE(done.find(rescan) != std::string::npos || Concerns(call, rescan)) << rescan;
            }
        }
        // Killed there, the command leaves the lock free.
        (void)RunWith(std::to_string(number) + ":-1");
        const int fd = open("/run/vdRescan_plus.pid", O_RDWR | O_CREAT, 0600);
        struct flock lock = {};
        lock.l_type = F_WRLCK;
        ASSERT_EQ(fcntl(fd, F_SETLK, &lock), 0) << call;
        (void)close(fd);
    }
    ASSERT_GT(number, 500);
    std::printf("calls %d, faults injected %d\n", number, faults);
}

INSTANTIATE_TEST_SUITE_P(Shard, FaultTest, testing::Range(0, kShards));

}  // namespace
