// A simulated machine: files below its /sys, /dev, /etc, /run and /opt that represent SCSI hosts, disks and NVMe
// controllers.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace machine {

inline const std::string kLog = "/opt/Veridane_NVMe/log/vd_rescan_log.txt";
inline const std::string kConfig = "/etc/vd_plus.conf";
// All directories of the machine.
inline constexpr const char *kDirectories[] = {"/sys", "/run", "/dev", "/etc", "/opt"};

inline const std::string kCommand = "/run/bin/vdRescan_plus";
inline const std::string kNvmeCalls = "/run/nvme.calls";  // one line for each call of the stand-in `nvme`
inline const std::string kWrites = "/run/writes";         // what was written into attributes; see sg_double.cpp
inline const std::string kFabrics = "/sys/devices/virtual/nvme-fabrics/ctl/";

// Makes the directory `root` the machine's "/". Files are created and removed only there, and only in the file system
// of its /opt. Call this first.
void SetRoot(const std::string &root);

// Removes all files of the machine, and creates the directories that every machine has and a supported-device list with
// ZENTRA ARRAY9000. The machine has no device.
void MakeEmpty();

// Files of the machine. Put and Link create missing directories and replace an existing file. A path outside the
// machine's directories throws a std::runtime_error.
void Put(const std::string &path, const std::string &content);
void Link(const std::string &path, const std::string &target);
void Remove(const std::string &path);
bool IsThere(const std::string &path);
std::string Content(const std::string &path);  // empty for a missing file

// A device of a class: its directory with the files that udev needs, and no attribute.
void AddDevice(const std::string &className, const std::string &sysPath);
void AddScsiHost(int number);  // with its `scan` attribute in HostDir
std::string HostDir(int number);

// Answer of a generic node to one SG_IO call: errno of the call, status of the device, the host adapter and the driver,
// and the transferred bytes.
struct Answer {
    int error = 0;
    int status = 0;
    int host = 0;
    int driver = 0;
    std::string data = {};
};

enum Query : unsigned int { kReportLuns = 0xa0, kInquiry = 0x12 };  // by their operation codes

// A disk. By default it is healthy: the target reports its LUN, and its page 0x83 has its WWN.
struct Disk {
    std::string hctl;
    std::string now = {};  // the WWN in its page 0x83 now; empty means Wwn(hctl)
    bool isReported = true;
    bool isDead = false;  // true: its generic node does not answer
};
// The generic node of the first disk is /dev/sg0, and so on.
void AddDisk(const Disk &disk);
std::string DiskDir(const std::string &hctl);  // the directory of its attributes
std::string Wwn(const std::string &hctl);      // 32 digits, different for each disk

// Replaces the answer of a generic node such as "sg0" to a query: in every attempt, or only in `attempt`, from 1.
void SetAnswer(const std::string &node, Query query, const Answer &answer, int attempt = 0);

// The bytes of a hexadecimal text, which may contain blanks.
std::string Bytes(const std::string &hex);

// Data of good answers: a list of LUNs, and a page 0x83 with a WWN.
std::string LunList(const std::vector<std::uint64_t> &luns);
std::string NaaPage(const std::string &wwn);

}  // namespace machine
