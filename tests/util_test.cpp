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
    EXPECT_STREQ("12naa.3", cursor);
    EXPECT_STREQ("12naa.3", INTF_UTIL_StrSep(&cursor, ""));
    EXPECT_EQ(nullptr, cursor);

    char blanks[] = "a b\t ";
    INTF_UTIL_TrimTailSpace(blanks, 4);  // the blank at its end is not in the field
    EXPECT_STREQ("a b\t ", blanks);
    INTF_UTIL_TrimTailSpace(blanks, 9);
    EXPECT_STREQ("a b\t", blanks);

    EXPECT_EQ(1, INTF_UTIL_IsHexStr("0189afAF"));
    for (const char *digits : {"0g", "0G", "0/", "0:", "0@", "0`"}) {
        EXPECT_EQ(0, INTF_UTIL_IsHexStr(digits)) << digits;
    }

    const std::uint8_t bytes[] = {0x0a, 0xff};
    char hex[6] = "#####";
    EXPECT_EQ(RET_INVALID_PARAM, INTF_UTIL_BytesToHexStr(bytes, 2, hex, 4));
    EXPECT_EQ(RET_INVALID_PARAM, INTF_UTIL_BytesToHexStr(bytes, 0x80000000, hex, 4));
    EXPECT_STREQ("#####", hex);
    EXPECT_EQ(RET_OK, INTF_UTIL_BytesToHexStr(bytes, 2, hex, 5));
    EXPECT_STREQ("0aff", hex);
}

TEST_F(MachineTest, AttributesAreReadOnceAndWithinTheirBounds)
{
    const auto read = [](const std::string &directory, const char *file, int length) {
        char buffer[9] = {};
        const int count = INTF_UTIL_Read(directory.c_str(), file, buffer, length);
        return std::to_string(count) + " " + buffer;
    };
    const std::string d248 = "/sys/" + std::string(243, 'd');
    Put(d248 + "/12345", "1234567\n\n");
    EXPECT_EQ("8 1234567", read(d248, "12345", 8));
    EXPECT_EQ("7 1234567", read(d248, "12345", 7));
    EXPECT_EQ("-1 ", read(d248, "12345", -1));
    EXPECT_EQ("-1 ", read(d248, "123456", 8));
    EXPECT_EQ(-1, INTF_UTIL_Write(d248.c_str(), "123456", "1", 1));
    EXPECT_EQ("UDEV INTF_UTIL_Read: structure full name fail with dir{" + d248 +
                  "} file{123456}.\nUDEV INTF_UTIL_Write: structure full name fail with path{" + d248 +
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
    EXPECT_EQ(RET_OK, INTF_UTIL_UdevGetDevice("scsi_host", handler));
    EXPECT_EQ(RET_INVALID_PARAM, INTF_UTIL_UdevGetDevice("scsi_host", nullptr));
    AddScsiHost(1);
    AddScsiHost(2);
    EXPECT_EQ(RET_OK, INTF_UTIL_UdevGetDevice("scsi_host", handler));
    EXPECT_EQ(HostDir(1) + "\n" + HostDir(2) + " gone\n", handled);
    EXPECT_EQ(
        "UDEV INTF_UTIL_UdevGetDevice: invalid parameter.\n"
        "UDEV UTIL_UdevForEach: get device failed devPath:/sys/devices/platform/host2/scsi_host/host2.\n",
        RecordsAt("ERROR"));
}

}  // namespace
