#include <cctype>

#include "command.h"
#include "util_string.h"
#include "util_sysfs.h"
#include "util_udev.h"

using namespace machine;

namespace {

TEST(UtilString, KeepsToItsFieldAndItsCharacters)
{
    char text[] = "nanaa.12naa.3";
    char *cursor = text;
    EXPECT_STREQ("na", INTF_UTIL_StrSep(&cursor, "naa."));
    EXPECT_STREQ("12naa.3", INTF_UTIL_StrSep(&cursor, ""));
    EXPECT_EQ(nullptr, cursor);

    char blanks[] = "  ";
    INTF_UTIL_TrimTailSpace(blanks, sizeof blanks);
    EXPECT_STREQ("", blanks);

    for (int c = 1; c < 256; ++c) {
        const char digits[] = {'0', static_cast<char>(c), '\0'};
        EXPECT_EQ(std::isxdigit(c) != 0, INTF_UTIL_IsHexStr(digits) == 1) << c;
    }

    const std::uint8_t bytes[] = {0x0a, 0xff};
    char hex[5] = "####";
    EXPECT_EQ(RET_INVALID_PARAM, INTF_UTIL_BytesToHexStr(bytes, 2, hex, 4));
    EXPECT_EQ(RET_INVALID_PARAM, INTF_UTIL_BytesToHexStr(bytes, 0x80000000, hex, 5));
    EXPECT_STREQ("####", hex);
    EXPECT_EQ(RET_OK, INTF_UTIL_BytesToHexStr(bytes, 2, hex, 5));
    EXPECT_STREQ("0aff", hex);
}

// With a directory of 248 characters, a file name of 5 characters makes the longest possible path.
TEST_F(MachineTest, AttributesAreReadOnceAndWithinTheirBounds)
{
    const std::string directory = "/sys/" + std::string(243, 'd');
    Put(directory + "/12345", "1234567\n\n");
    char buffer[9] = {};
    EXPECT_EQ(8, INTF_UTIL_Read(directory.c_str(), "12345", buffer, 8));
    EXPECT_STREQ("1234567", buffer);
    EXPECT_EQ(7, INTF_UTIL_Read(directory.c_str(), "12345", buffer, 7));
    EXPECT_STREQ("1234567", buffer);
    Put(directory + "/1", "\n");
    EXPECT_EQ(1, INTF_UTIL_Read(directory.c_str(), "1", buffer, 8));
    EXPECT_STREQ("", buffer);
    EXPECT_EQ(-1, INTF_UTIL_Read(directory.c_str(), "12345", buffer, -1));
    EXPECT_EQ(-1, INTF_UTIL_Read(directory.c_str(), "123456", buffer, 8));
    EXPECT_EQ(-1, INTF_UTIL_Write(directory.c_str(), "123456", "1", 1));
    EXPECT_EQ("UDEV INTF_UTIL_Read: structure full name fail with dir{" + directory +
                  "} file{123456}.\nUDEV INTF_UTIL_Write: structure full name fail with path{" + directory +
                  "} file{123456}.\n",
              RecordsAt("ERROR"));
}

TEST_F(MachineTest, AVanishedDeviceStillReachesItsHandler)
{
    static std::string handled;
    handled.clear();
    const UdevDeviceHandler handler = [](const char *path, udev_device *device) {
        handled += std::string(path) + (device == nullptr ? " gone\n" : "\n");
        Remove(HostDir(2));
    };
    AddScsiHost(1);
    AddScsiHost(2);
    EXPECT_EQ(RET_OK, INTF_UTIL_UdevGetDevice("scsi_host", handler));
    EXPECT_EQ(HostDir(1) + "\n" + HostDir(2) + " gone\n", handled);
    EXPECT_EQ("UDEV UTIL_UdevForEach: get device failed devPath:/sys/devices/platform/host2/scsi_host/host2.\n",
              RecordsAt("ERROR"));
}

}  // namespace
