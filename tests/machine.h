// A made-up machine: the files below its /sys, /dev, /etc, /run and /opt that make SCSI hosts, disks and NVMe
// controllers.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace machine {

inline const std::string kLog = "/opt/Veridane_NVMe/log/vd_rescan_log.txt";
inline const std::string kConfig = "/etc/vd_plus.conf";
inline const std::string kCommand = "/run/bin/vdRescan_plus";
inline const std::string kNvmeCalls = "/run/nvme.calls";  // one line for each call of the stand-in `nvme`
inline const std::string kWrites = "/run/writes";         // what was written into attributes: sg_double.cpp
inline const std::string kFabrics = "/sys/devices/virtual/nvme-fabrics/ctl/";

// Takes the directory `root` for the machine's "/": its files are made, and ever removed, only there and only in the
// file system that holds its /opt. Called first.
void SetRoot(const std::string &root);

// Removes what stands on the machine, and makes the directories that every machine has and a supported-device list with
// ZENTRA ARRAY9000. There is no device.
void MakeEmpty();

// Files of the machine. Missing directories are made, and what is at the path is replaced. A path outside the
// directories of the machine throws a std::runtime_error.
void Put(const std::string &path, const std::string &content);
void Link(const std::string &path, const std::string &target);
void Remove(const std::string &path);
bool IsThere(const std::string &path);
std::string Content(const std::string &path);  // empty for a missing file

// A device of a class: its directory with what udev needs, and no attribute.
void AddDevice(const std::string &className, const std::string &sysPath);
void AddScsiHost(int number);  // with its `scan` attribute in HostDir
std::string HostDir(int number);

// What a generic node gives for one SG_IO call: the errno of the call, the status of the device, the host adapter and
// the driver, and the bytes that are transferred.
struct Answer {
    int error = 0;
    int status = 0;
    int host = 0;
    int driver = 0;
    std::string data = {};
};

enum Query : unsigned int { kReportLuns = 0xa0, kInquiry = 0x12 };  // by their operation codes

// A disk that is healthy unless told otherwise: the target reports its LUN, and its page 0x83 holds its WWN.
struct Disk {
    std::string hctl;
    std::string now = {};  // the WWN that its page 0x83 holds now, where that is not Wwn(hctl)
    bool isReported = true;
    bool isDead = false;  // true: its generic node answers nothing
};
// Its generic node is /dev/sg0 for the first disk, and so on.
void AddDisk(const Disk &disk);
std::string DiskDir(const std::string &hctl);  // the directory of its attributes
std::string Wwn(const std::string &hctl);      // 32 digits, others for each disk

// Replaces what a generic node such as "sg0" answers to a query: always, or at one attempt, counted from 1.
void SetAnswer(const std::string &node, Query query, const Answer &answer, int attempt = 0);

// The bytes of hexadecimal text, in which blanks may stand.
std::string Bytes(const std::string &hex);

// Data of good answers: a list of LUNs, and a page 0x83 that holds a WWN.
std::string LunList(const std::vector<std::uint64_t> &luns);
std::string NaaPage(const std::string &wwn);

}  // namespace machine
