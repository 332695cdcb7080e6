#include "scan_sgio.h"

#include <fcntl.h>
#include <scsi/sg.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cstring>

#include "mpi_usr_if.h"
#include "safestr_format.h"
#include "safestr_memory.h"

namespace {

constexpr int kAttempts = 3;
constexpr unsigned int kTimeoutMs = 10000;
constexpr std::size_t kSenseSize = 32;
constexpr std::size_t kDescriptionSize = 256;  // bytes of a path or link in /sys/dev/char, the terminator included
constexpr std::size_t kAddressSize = 64;       // more than four numbers with colons need

// Reads the kernel's link from an open generic node to its device, such as "../../../2:0:0:1". Returns false if there
// is none.
bool ReadDescription(int fd, char (&link)[kDescriptionSize])
{
    char path[kDescriptionSize] = {};
    struct stat status = {};
    if (fstat(fd, &status) != 0 || !S_ISCHR(status.st_mode)) {
        return false;
    }
    (void)sprintf_s(path, TEXT_Limit(path), "/sys/dev/char/%u:%u/device", major(status.st_rdev),
                    minor(status.st_rdev));  // two numbers fit
    return readlink(path, link, TEXT_Limit(link)) > 0;
}

// While the node is open, the kernel gives its number to no other disk. So after this check, every answer comes from
// the disk that it found.
bool BelongsToAnother(int fd, const NodeOwner &owner)
{
    char link[kDescriptionSize] = {};
    if (!ReadDescription(fd, link)) {
        return false;
    }
    const char *slash = std::strrchr(link, '/');
    const char *address = slash == nullptr ? link : slash + 1;
    char own[kAddressSize] = {};
    if (owner.lun.has_value()) {
        (void)sprintf_s(own, TEXT_Limit(own), "%u:%u:%u:%u", owner.host, owner.channel, owner.target, *owner.lun);
        return std::strcmp(address, own) != 0;
    }
    (void)sprintf_s(own, TEXT_Limit(own), "%u:%u:%u:", owner.host, owner.channel, owner.target);  // any LUN may follow
    return std::strncmp(address, own, std::strlen(own)) != 0;
}

}  // namespace

int SCAN_OpenNode(const char *path, const NodeOwner &owner)
{
    const int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd >= 0 && BelongsToAnother(fd, owner)) {
        (void)close(fd);  // nothing was written
        return -1;
    }
    return fd;
}

SgResult SCAN_SendCommand(int fd, std::span<const std::uint8_t> command, std::span<std::uint8_t> buffer,
                          Response before)
{
    std::uint8_t sense[kSenseSize] = {};
    sg_io_hdr header;
    (void)memset_s(&header, sizeof header, 0, sizeof header);  // sizes are equal
    header.interface_id = 'S';
    header.dxfer_direction = SG_DXFER_FROM_DEV;
    header.cmd_len = static_cast<unsigned char>(command.size());
    header.mx_sb_len = sizeof sense;
    header.dxfer_len = static_cast<unsigned int>(buffer.size());
    header.dxferp = buffer.data();
    header.cmdp = const_cast<unsigned char *>(command.data());  // the driver only reads it
    header.sbp = sense;
    header.timeout = kTimeoutMs;
    SgResult result{};
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        if (before == Response::Zeroed) {
            (void)memset_s(buffer.data(), buffer.size(), 0, buffer.size());  // sizes are equal
        }
        result.ioctlResult = ioctl(fd, SG_IO, &header);
        result.status = header.status;
        result.hostStatus = header.host_status;
        result.driverStatus = header.driver_status;
        if (result.IsGood()) {
            break;
        }
    }
    return result;
}
