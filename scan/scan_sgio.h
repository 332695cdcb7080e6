// The only interface to the Linux SCSI generic driver (SCSI Generic HOWTO, SG_IO ioctl).
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

// Result of a command's last attempt. An answer is good only if `ioctlResult` and all three status fields are 0: an
// error of the transport makes it as unusable as an error of the device.
struct SgResult {
    int ioctlResult;
    int status;        // SCSI status byte of the device
    int hostStatus;    // status of the host adapter
    int driverStatus;  // status of the kernel's SCSI layer

    [[nodiscard]] bool IsGood() const
    {
        return ioctlResult == 0 && status == 0 && hostStatus == 0 && driverStatus == 0;
    }
};

// Content of the response buffer before an attempt.
enum class Response {
    AsGiven,  // the bytes of the caller or of a failed attempt
    Zeroed,   // zero bytes, so that no byte of a failed attempt looks like an answer
};

// Sends the command block `command` through the open generic node `fd` and reads the answer into `buffer`. Makes up to
// three attempts of at most 10 seconds each, until one is good. Bytes that the device does not send keep the content
// that `before` describes.
[[nodiscard]] SgResult SCAN_SendCommand(int fd, std::span<const std::uint8_t> command, std::span<std::uint8_t> buffer,
                                        Response before);

// The required owner of a generic node: the disk h:c:t:l or, without a LUN, any disk of the session h:c:t.
struct NodeOwner {
    std::uint32_t host;
    std::uint32_t channel;
    std::uint32_t target;
    std::optional<std::uint32_t> lun;
};

// Opens the generic node `path`, not null, for commands to `owner`. Returns -1 if the node cannot be opened or belongs
// to another disk: the link /sys/dev/char/MAJOR:MINOR/device ends in the h:c:t:l of the node's disk. While a run waits
// for a silent disk, a name such as /dev/sg1 can pass to another disk. Accepts a node without such a link.
[[nodiscard]] int SCAN_OpenNode(const char *path, const NodeOwner &owner);

// Big-endian fields of SCSI command blocks and answers (command tables of SPC-5).
[[nodiscard]] constexpr std::uint16_t SCAN_ReadBe16(const std::uint8_t *bytes)
{
    return static_cast<std::uint16_t>(bytes[0] << 8 | bytes[1]);
}

[[nodiscard]] constexpr std::uint32_t SCAN_ReadBe32(const std::uint8_t *bytes)
{
    return static_cast<std::uint32_t>(SCAN_ReadBe16(bytes)) << 16 | SCAN_ReadBe16(bytes + 2);
}

constexpr void SCAN_WriteBe16(std::uint8_t *bytes, std::uint16_t value)
{
    bytes[0] = static_cast<std::uint8_t>(value >> 8);
    bytes[1] = static_cast<std::uint8_t>(value);
}

constexpr void SCAN_WriteBe32(std::uint8_t *bytes, std::uint32_t value)
{
    SCAN_WriteBe16(bytes, static_cast<std::uint16_t>(value >> 16));
    SCAN_WriteBe16(bytes + 2, static_cast<std::uint16_t>(value));
}
