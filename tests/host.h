// A made-up host: a private mount namespace with its own /sys, /run, /opt, /dev and /etc, in which the unmodified
// command is run as a process or its operations are called directly.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace host {

inline const std::string kLog = "/opt/Veridane_NVMe/log/vd_rescan_log.txt";
inline const std::string kConfig = "/etc/vd_plus.conf";
inline const std::string kNvmeCalls = "/run/nvme.calls";  // one line for each call of the stand-in `nvme`
inline const std::string kNvmeFail = "/run/nvme.fail.";   // with a controller's name: its rescan fails
inline const std::string kFabrics = "/sys/devices/virtual/nvme-fabrics/ctl/";

// Enters the namespace; called once. HostTest does so itself, and its tests stand aside where it cannot.
void Enter();

// Empties the host: no device, no record, and a supported-device list with ZENTRA ARRAY9000.
void Reset();

// Files of the host. Missing directories are made, and what stands at the path is replaced.
void Put(const std::string &path, const std::string &content);
void Link(const std::string &path, const std::string &target);
void Remove(const std::string &path);
std::string Content(const std::string &path);  // empty for a missing file

// A device of a class: its directory with what udev needs, and no attribute.
void AddDevice(const std::string &className, const std::string &sysPath);
void AddScsiHost(int number);  // with its `scan` attribute in HostDir
std::string HostDir(int number);

// A disk that is healthy unless told otherwise: the target reports its LUN, and its page 0x83 holds its WWN.
struct Disk {
    std::string hctl;
    std::string now = {};  // the WWN that its page 0x83 holds now, where that is not Wwn(hctl)
    bool reported = true;  // false: the target does not report its LUN
    std::map<std::string, std::string> answers = {};  // of its generic node, in place of those: sg_double.cpp
};
void AddDisk(const Disk &disk);                // its generic node is /dev/sg0 for the first disk, and so on
std::string DiskDir(const std::string &hctl);  // the directory of its attributes
std::string Wwn(const std::string &hctl);      // 32 digits, others for each disk

// Answers of a generic node in hexadecimal digits: a list of LUNs, and no answer to any command.
std::string LunAnswer(const std::vector<std::uint64_t> &luns);
inline const std::map<std::string, std::string> kDead = {{"a0", "13000000"}, {"12", "13000000"}};

struct Result {
    int status;  // exit status; above 123 when the command was ended by its time limit or by a signal
    std::string out, err;
    std::string trace;   // what the run appended to the trace file
    std::string writes;  // "2:0:0:1/delete 1" or "host2/scan - - -", one line for each write, in order
};
// Runs the command. `args` and `environment` are words for the shell, such as "-m" and "PATH=/nowhere"; those of
// `environment` may end in a program that runs the command. More libraries go in front of kSgDouble in LD_PRELOAD.
Result RunCommand(const std::string &args = "", const std::string &input = "", const std::string &environment = "");
extern const std::string kSgDouble;

// "module function: message" of each record of the level in the trace.
std::string RecordsAt(const std::string &level, const std::string &trace = Content(kLog));

}  // namespace host

// A test on an empty made-up host, with the trace log set up in the test program too.
class HostTest : public testing::Test {
protected:
    void SetUp() override;
};
