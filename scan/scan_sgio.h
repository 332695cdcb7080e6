// The one door to the Linux SCSI generic driver (SCSI Generic HOWTO, SG_IO ioctl).
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

// What the last attempt of a command left behind. The transport's part counts as much as the device's: only where
// `ioctlResult` and all three status fields are 0 is there an answer to believe.
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

// What a response buffer holds before an attempt.
enum class Response {
    AsGiven,  // what the caller or a failed attempt left there
    Zeroed,   // zero bytes, so that what a failed attempt left there never counts as sent
};

// Sends the command block `command` through the open generic node `fd` and reads its answer into `buffer`. The command
// is tried up to three times, each for at most 10 seconds, until an attempt is good. What the device does not send
// reads as it was `before`.
[[nodiscard]] SgResult SCAN_SendCommand(int fd, std::span<const std::uint8_t> command, std::span<std::uint8_t> buffer,
                                        Response before);

// Whom a generic node must belong to: the disk h:c:t:l or, without a LUN, any disk of the session h:c:t.
struct NodeOwner {
    std::uint32_t host;
    std::uint32_t channel;
    std::uint32_t target;
    std::optional<std::uint32_t> lun;
};

// Opens the generic node `path`, not null, for commands to `owner`. -1 when it cannot be opened, or when the kernel
// describes it as another disk's (the link /sys/dev/char/MAJOR:MINOR/device, whose last part is h:c:t:l): /dev/sg1 is
// only a name, and passes to another disk while a run waits for a silent one. A node that the kernel does not describe
// is taken as it is.
[[nodiscard]] int SCAN_OpenNode(const char *path, const NodeOwner &owner);

// Big-endian fields of SCSI command blocks and answers, as the command tables of SPC-5 have them.
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
