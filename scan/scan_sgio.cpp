#include "scan_sgio.h"

#include <fcntl.h>
#include <scsi/sg.h>
#include <sys/ioctl.h>

#include "safestr_memory.h"

namespace {

constexpr int kAttempts = 3;
constexpr unsigned int kTimeoutMs = 10000;
constexpr std::size_t kSenseSize = 32;

}  // namespace

int SCAN_OpenNode(const char *path)
{
    return open(path, O_RDONLY | O_CLOEXEC);
}

SgResult SCAN_SendCommand(int fd, std::span<const std::uint8_t> command, std::span<std::uint8_t> response)
{
    std::uint8_t sense[kSenseSize] = {};
    sg_io_hdr header;
    (void)memset_s(&header, sizeof header, 0, sizeof header);  // sizes are equal
    header.interface_id = 'S';
    header.dxfer_direction = SG_DXFER_FROM_DEV;
    header.cmd_len = static_cast<unsigned char>(command.size());
    header.mx_sb_len = sizeof sense;
    header.dxfer_len = static_cast<unsigned int>(response.size());
    header.dxferp = response.data();
    header.cmdp = const_cast<unsigned char *>(command.data());  // the driver only reads it
    header.sbp = sense;
    header.timeout = kTimeoutMs;
    SgResult result{};
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        // What a failed attempt left in the buffer must not stand in for what a later one does not send.
        (void)memset_s(response.data(), response.size(), 0, response.size());  // sizes are equal
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
