#include "scan_wwn.h"

#include <cstdlib>

#include "mpi_owner.h"
#include "scan_print.h"
#include "scan_sgio.h"
#include "util_string.h"

namespace {

// SPC-5, INQUIRY command.
constexpr std::uint8_t kOpInquiry = 0x12;
constexpr std::uint8_t kEvpd = 0x01;
constexpr std::uint8_t kPageDeviceId = 0x83;
constexpr std::size_t kInquiryCommandSize = 6;
constexpr std::uint16_t kResponseSize = 1024;

// SPC-5, Device Identification VPD page.
constexpr std::uint32_t kPageHeaderSize = 4;
constexpr std::uint32_t kDescriptorHeaderSize = 4;
constexpr std::uint8_t kDesignatorLength = 16;  // NAA IEEE Registered Extended
constexpr std::uint8_t kTypeMask = 0x3F;        // ASSOCIATION and DESIGNATOR TYPE, without PIV and the reserved bit
constexpr std::uint8_t kTypeUnitNaa = 0x03;     // association 0, the logical unit; designator type 3, NAA

ResultCode SCAN_IusseInquiry0x83(int fd, std::uint8_t *buffer, std::uint16_t length)
{
    std::uint8_t command[kInquiryCommandSize] = {};
    command[0] = kOpInquiry;              // OPERATION CODE
    command[1] = kEvpd;                   // EVPD
    command[2] = kPageDeviceId;           // PAGE CODE
    SCAN_WriteBe16(command + 3, length);  // ALLOCATION LENGTH
    const SgResult result = SCAN_SendCommand(fd, command, {buffer, length}, Response::Zeroed);
    if (result.ioctlResult != 0) {
        SCAN_Record(LogLevel::Error, "inquiry 0x83 ioctl fail{%d}!\n", result.ioctlResult);
        return RET_CMD_FAIL;
    }
    if (!result.IsGood()) {
        SCAN_Record(LogLevel::Error, "inquiry 0x83 failed with errno{status:%d, host:%d, driver:%d}.\n", result.status,
                    result.hostStatus, result.driverStatus);
        return RET_CMD_FAIL;
    }
    return RET_OK;
}

}  // namespace

ResultCode SCAN_ParseDiskWwn(ScsiDisk &disk, const std::uint8_t *descriptor, std::uint32_t length)
{
    // Bytes after the end of the page must never make a disk look changed.
    if (length < kPageHeaderSize + kDescriptorHeaderSize + kDesignatorLength) {
        SCAN_Record(LogLevel::Error, "get disk wwn fail with len{%u}!\n", length);
        return RET_DATA_INVALID;
    }
    const unsigned int type = descriptor[1] & kTypeMask;
    if (type != kTypeUnitNaa || descriptor[3] != kDesignatorLength) {
        SCAN_Record(LogLevel::Error, "get disk wwn fail with type{0x%x}!\n", type);
        return RET_DATA_INVALID;
    }
    if (INTF_UTIL_BytesToHexStr(descriptor + kDescriptorHeaderSize, kDesignatorLength, disk.curWwn,
                                sizeof disk.curWwn) != RET_OK) {
        SCAN_Record(LogLevel::Error, "wwn transe string fail!\n");
        return RET_DATA_INVALID;
    }
    return RET_OK;
}

ResultCode SCAN_GetDiskWwn(ScsiDisk &disk)
{
    OwnedFd fd(SCAN_OpenNode(disk.sgName, {disk.host, disk.channel, disk.target, disk.lun}));
    if (!fd.IsOpen()) {
        SCAN_Record(LogLevel::Error, "open file{%s} fail!\n", disk.sgName);
        return RET_OPEN_FAIL;
    }
    const OwnedMemory<std::uint8_t> buffer(static_cast<std::uint8_t *>(std::malloc(kResponseSize)));
    if (buffer == nullptr) {
        fd.Close();
        SCAN_Record(LogLevel::Error, "malloc length{%u} buffer fail!\n", unsigned{kResponseSize});
        return RET_NO_MEMORY;
    }
    const ResultCode result = SCAN_IusseInquiry0x83(fd.Get(), buffer.get(), kResponseSize);
    if (result != RET_OK) {
        return result;
    }
    const std::uint32_t pageLength = SCAN_ReadBe16(buffer.get() + 2);
    return SCAN_ParseDiskWwn(disk, buffer.get() + kPageHeaderSize, pageLength + kPageHeaderSize);
}
