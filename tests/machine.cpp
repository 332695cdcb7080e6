#include "machine.h"

#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace fs = std::filesystem;

namespace machine {

namespace {

std::string g_root;
dev_t g_device = 0;  // the file system of the machine; no other one changes
int g_diskCount = 0;

std::string Hex(std::uint64_t value, int digits)
{
    char text[20];
    (void)std::snprintf(text, sizeof text, "%0*llx", digits, static_cast<unsigned long long>(value));
    return text;
}

// Path of a file of the machine in this process. Throws if the path leads out of the machine's directories, even
// through a link: that file belongs to the real machine, and this process may be root.
fs::path Inside(const std::string &path)
{
    const fs::path file = g_root + path;
    const std::string root = fs::weakly_canonical(g_root.empty() ? "/" : g_root).string();
    const std::string parent = fs::weakly_canonical(file.parent_path()).string() + "/";
    for (const char *directory : kDirectories) {
        if (path.starts_with('/') && parent.starts_with((root == "/" ? "" : root) + directory + "/")) {
            return file;
        }
    }
    throw std::runtime_error("{" + path + "} is not inside the machine");
}

// Like Inside, but makes room for a new file: removes the old one and creates the directories.
fs::path Cleared(const std::string &path)
{
    const fs::path file = Inside(path);
    Remove(path);
    fs::create_directories(file.parent_path());
    return file;
}

// An entry of a LUN list. The first addressing level is the lowest 16 bits of the kernel's number and the first 2 bytes
// of the entry.
std::string LunEntry(std::uint64_t lun)
{
    std::string entry;
    for (int level = 0; level < 4; ++level) {
        entry += Hex(lun >> 16 * level & 0xffff, 4);
    }
    return Bytes(entry);
}

// Adds a LUN to the answer that all disks of the session share. Changes it in place, because a session may have
// thousands.
void ReportLun(const std::string &listFile, std::uint64_t lun)
{
    std::fstream file(g_root + listFile, std::ios::in | std::ios::out | std::ios::binary | std::ios::ate);
    const auto luns =
        (static_cast<std::uint64_t>(file.tellp()) - sizeof(std::uint32_t)) / 8;  // the header counts as one
    file << LunEntry(lun);
    file.seekp(sizeof(std::uint32_t));
    file << Bytes(Hex(8 * luns, 8));
}

// An answer in the format of sg_double.
std::string AnswerFile(const Answer &answer)
{
    std::string file;
    for (const int field : {answer.error, answer.status, answer.host, answer.driver}) {
        file += static_cast<char>(field);
    }
    return file + answer.data;
}

// A generic node with this minor number, in the format of sg_double.
void PutNode(const std::string &path, int minor)
{
    Put(path, std::string(static_cast<std::size_t>(minor), ' '));
    fs::permissions(g_root + path, fs::perms::owner_all | fs::perms::sticky_bit);
}

std::string AnswerPath(const std::string &node, Query query, int attempt)
{
    return "/dev/" + node + "." + Hex(query, 2) + (attempt == 0 ? "" : "." + std::to_string(attempt));
}

}  // namespace

void SetRoot(const std::string &root)
{
    g_root = root;
    fs::create_directories(root + "/opt");
    struct stat status = {};
    if (stat((root + "/opt").c_str(), &status) == 0) {
        g_device = status.st_dev;
    }
}

void MakeEmpty()
{
    g_diskCount = 0;
    for (const char *directory : kDirectories) {
        fs::create_directories(g_root + directory);
        for (const fs::directory_entry &entry : fs::directory_iterator(g_root + directory)) {
            Remove(entry.path().string().substr(g_root.size()));
        }
    }
    for (const char *directory : {"/opt/Veridane_NVMe/log", "/sys/class/scsi_disk", "/sys/bus", "/run"}) {
        fs::create_directories(g_root + directory);
    }
    Put(kConfig, "[vendors]\nvendor_id=ZENTRA, product_id=ARRAY9000\n");
}

void Put(const std::string &path, const std::string &content)
{
    std::ofstream(Cleared(path), std::ios::binary) << content;
}

void Link(const std::string &path, const std::string &target) { fs::create_symlink(target, Cleared(path)); }

void Remove(const std::string &path)
{
    struct stat status = {};
    const fs::path file = Inside(path);
    if (lstat(file.c_str(), &status) == 0 && status.st_dev == g_device) {
        fs::remove_all(file);
    }
}

bool IsThere(const std::string &path) { return fs::exists(fs::symlink_status(g_root + path)); }

std::string Content(const std::string &path)
{
    return (std::ostringstream() << std::ifstream(g_root + path, std::ios::binary).rdbuf()).str();
}

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
    std::istringstream numbers(hctl);
    std::string digits = "6a1b2c3d4e5f";
    for (const int width : {4, 4, 4, 8}) {
        std::uint64_t number = 0;
        numbers >> number;
        numbers.ignore();
        digits += Hex(number, width);
    }
    return digits;
}

std::string Bytes(const std::string &hex)
{
    std::string digits = hex, bytes;
    std::erase(digits, ' ');
    for (std::size_t at = 0; at + 1 < digits.size(); at += 2) {
        bytes += static_cast<char>(std::stoi(digits.substr(at, 2), nullptr, 16));
    }
    return bytes;
}

std::string LunList(const std::vector<std::uint64_t> &luns)
{
    std::string list = Bytes(Hex(8 * luns.size(), 8) + "00000000");
    for (const std::uint64_t lun : luns) {
        list += LunEntry(lun);
    }
    return list;
}

std::string NaaPage(const std::string &wwn)
{
    const std::string pageHeader = "00830014";  // of 20 bytes
    const std::string designator = "01030010";  // binary, logical unit, NAA, of 16 bytes
    return Bytes(pageHeader + designator + wwn);
}

void SetAnswer(const std::string &node, Query query, const Answer &answer, int attempt)
{
    Put(AnswerPath(node, query, attempt), AnswerFile(answer));
}

void AddDisk(const Disk &disk)
{
    const std::string directory = DiskDir(disk.hctl);
    const std::string session = disk.hctl.substr(0, disk.hctl.rfind(':'));
    const int number = g_diskCount++;
    const std::string node = "sg" + std::to_string(number);
    AddDevice("scsi_disk", directory + "/scsi_disk/" + disk.hctl);
    Put(directory + "/vendor", "ZENTRA  \n");
    Put(directory + "/model", "ARRAY9000       \n");
    Put(directory + "/wwid", "naa." + Wwn(disk.hctl) + "\n");
    Put(directory + "/delete", "");
    Link(directory + "/generic", "scsi_generic/" + node);
    PutNode("/dev/" + node, number);
    Link("/sys/dev/char/21:" + std::to_string(number) + "/device", "../../../" + disk.hctl);

    const std::string lunList = "sg.luns." + session;
    if (!fs::exists(g_root + "/dev/" + lunList)) {
        Put("/dev/" + lunList, AnswerFile({.data = LunList({})}));
    }
    if (disk.isReported) {
        ReportLun("/dev/" + lunList, std::stoull(disk.hctl.substr(session.size() + 1)));
    }
    if (disk.isDead) {
        SetAnswer(node, kReportLuns, {.error = ENODEV});
        SetAnswer(node, kInquiry, {.error = ENODEV});
        return;
    }
    Link(AnswerPath(node, kReportLuns, 0), lunList);
    SetAnswer(node, kInquiry, {.data = NaaPage(disk.now.empty() ? Wwn(disk.hctl) : disk.now)});
}

}  // namespace machine
