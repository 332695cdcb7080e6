// Makes only the platform calls that a run on the benchmark's host needs: no inventory, no decoding, and records of
// constant length. The benchmark compares the command's time with the time of this program.
#include <fcntl.h>
#include <libudev.h>
#include <scsi/sg.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "shape.h"

namespace {

constexpr char kRecord[] =
    "[12345][2026-01-01 00:00:00][0000534217000073][INFO][SCAN  ][SCAN_CreateScsiDisk: 115]create scsi "
    "disk{2:0:0:1234, "
    "ZENTRA, ARRAY9000, 6a1b2c3d4e5f60718293a4b5c6d7e8f9, /dev/sg1234} finish.\n";

struct Disk {
    std::string directory;
    std::string node;
    unsigned long lun;
};

std::vector<Disk> g_disks;

// A direct system call, like the C library's own writes: the double that records writes to attributes does not see it.
void WriteAll(int fd, const char *data, std::size_t size) { (void)syscall(SYS_write, fd, data, size); }

void Record()
{
    const int fd = open("/opt/Veridane_NVMe/log/vd_rescan_log.txt", O_WRONLY | O_APPEND | O_CREAT, 0666);
    WriteAll(fd, kRecord, sizeof kRecord - 1);
    (void)close(fd);
}

void Print()
{
    WriteAll(STDOUT_FILENO, "    delete 2:0:0:1234 success.\n", 31);
    Record();
}

void Put(const std::string &path, const char *text)
{
    const int fd = open(path.c_str(), O_WRONLY);
    [[maybe_unused]] const ssize_t written = write(fd, text, std::strlen(text));
    (void)close(fd);
}

void Send(const std::string &node, unsigned char operation, unsigned char size, void *data, unsigned int length)
{
    unsigned char command[12] = {operation};
    unsigned char sense[32];
    sg_io_hdr header = {};
    header.interface_id = 'S';
    header.dxfer_direction = SG_DXFER_FROM_DEV;
    header.cmd_len = size;
    header.mx_sb_len = sizeof sense;
    header.dxfer_len = length;
    header.dxferp = data;
    header.cmdp = command;
    header.sbp = sense;
    const int fd = open(node.c_str(), O_RDONLY);
    (void)ioctl(fd, SG_IO, &header);
    (void)close(fd);
}

template <typename Handler>
void Walk(udev *context, const char *subsystem, Handler handler)
{
    udev_enumerate *enumeration = udev_enumerate_new(context);
    (void)udev_enumerate_add_match_subsystem(enumeration, subsystem);
    (void)udev_enumerate_scan_devices(enumeration);
    udev_list_entry *entry = nullptr;
    udev_list_entry_foreach(entry, udev_enumerate_get_list_entry(enumeration))
    {
        udev_device *device = udev_device_new_from_syspath(context, udev_list_entry_get_name(entry));
        handler(std::string(udev_list_entry_get_name(entry)));
        (void)udev_device_unref(device);
    }
    (void)udev_enumerate_unref(enumeration);
}

void ReadDisk(const std::string &path)
{
    Disk disk{path.substr(0, path.find("/scsi_disk/")), "",
              std::strtoul(path.c_str() + path.rfind(':') + 1, nullptr, 10)};
    char buffer[256];
    for (const char *attribute : {"/vendor", "/model", "/wwid"}) {
        const int fd = open((disk.directory + attribute).c_str(), O_RDONLY);
        (void)!read(fd, buffer, sizeof buffer);
        (void)close(fd);
    }
    const ssize_t length = readlink((disk.directory + "/generic").c_str(), buffer, sizeof buffer);
    const std::string link(buffer, static_cast<std::size_t>(length));
    disk.node = "/dev/" + link.substr(link.rfind('/') + 1);
    (void)access(disk.node.c_str(), R_OK);
    Record();
    g_disks.push_back(disk);
}

// Returns the index after the last disk of the session that begins at `from`.
std::size_t EndOfSession(std::size_t from)
{
    const auto sessionOf = [](const Disk &disk) { return disk.directory.substr(0, disk.directory.rfind(':')); };
    std::size_t end = from + 1;
    while (end < g_disks.size() && sessionOf(g_disks[end]) == sessionOf(g_disks[from])) {
        ++end;
    }
    return end;
}

// Queries the LUN list, again if it does not fit into the first buffer, and the name of every disk that is in it.
void AskSession(std::size_t from, std::size_t end)
{
    static char answer[1 << 18];
    const auto listSize = static_cast<unsigned int>(8 * (end - from) + 8);
    Send(g_disks[from].node, 0xA0, 12, answer, 4096);
    if (listSize > 4096) {
        Send(g_disks[from].node, 0xA0, 12, answer, listSize);
    }
    for (std::size_t records = 0; records <= (end - from) / 25; ++records) {
        Record();  // its LUNs, about 25 to a record
    }
    for (std::size_t i = from; i < end; ++i) {
        if (!IsRemoved(g_disks[i].lun)) {
            Send(g_disks[i].node, 0x12, 6, answer, 1024);
        }
    }
}

// Each stale disk takes a line in the list and one for its deletion.
void DeleteStaleDisks()
{
    for (const Disk &disk : g_disks) {
        if (IsRemoved(disk.lun) || IsChanged(disk.lun)) {
            Print();
            Put(disk.directory + "/delete", "1");
            Print();
        }
    }
}

}  // namespace

int main()
{
    udev *context = udev_new();
    std::vector<std::string> hosts;
    Print();
    Walk(context, "scsi_host", [&hosts](const std::string &path) {
        hosts.push_back(path);
        Record();
    });
    Walk(context, "nvme", [](const std::string & /*path*/) {});
    Walk(context, "scsi_disk", ReadDisk);
    (void)udev_unref(context);
    std::size_t end = 0;
    for (std::size_t from = 0; from < g_disks.size(); from = end) {
        end = EndOfSession(from);
        Record();  // the session
        AskSession(from, end);
    }
    DeleteStaleDisks();
    for (const std::string &host : hosts) {
        Print();
        Put(host + "/scan", "- - -");
        Print();
    }
    Print();
    return 0;
}
