#include <libudev.h>

#include "host.h"
#include "util_string.h"
#include "util_sysfs.h"
#include "util_udev.h"

using namespace host;

namespace {

TEST(UtilString, IsCutAtTheFirstWholeSeparator)
{
    const struct {
        const char *text, *separator, *head, *rest;
    } cases[] = {{"naa.12naa.3", "naa.", "", "12naa.3"},  {"nanaa.1", "naa.", "na", "1"}, {"naa.", "naa.", "", ""},
                 {"t10.ATA", "naa.", "t10.ATA", nullptr}, {"na", "naa.", "na", nullptr},  {"naa", "", "naa", nullptr}};
    for (const auto &c : cases) {
        std::string text = c.text;
        char *cursor = text.data();
        EXPECT_STREQ(c.head, INTF_UTIL_StrSep(&cursor, c.separator)) << c.text;
        EXPECT_STREQ(c.rest, cursor) << c.text;
    }
}

TEST(UtilString, KeepsToItsFieldAndItsCharacters)
{
    const auto trim = [](std::string text, int fieldSize) {
        INTF_UTIL_TrimTailSpace(text.data(), fieldSize);
        return std::string(text.c_str());
    };
    EXPECT_EQ("ZEN TRA", trim("ZEN TRA ", 9));
    EXPECT_EQ("", trim("    ", 9));
    EXPECT_EQ("ab\t", trim("ab\t ", 9));
    EXPECT_EQ("ab  ", trim("ab  ", 3));
    EXPECT_EQ(1, INTF_UTIL_IsHexStr("0189afAF"));
    for (const char *text : {"0g", "0G", "0/", "0:", "0@", "0`"}) {
        EXPECT_EQ(0, INTF_UTIL_IsHexStr(text)) << text;
    }
    const std::uint8_t bytes[] = {0x0a, 0xff};
    char hex[6] = "#####";
    EXPECT_EQ(RET_INVALID_PARAM, INTF_UTIL_BytesToHexStr(bytes, 2, hex, 4));
    EXPECT_EQ(RET_INVALID_PARAM, INTF_UTIL_BytesToHexStr(bytes, 0x80000000, hex, 4));
    EXPECT_STREQ("#####", hex);
    EXPECT_EQ(RET_OK, INTF_UTIL_BytesToHexStr(bytes, 2, hex, 5));
    EXPECT_STREQ("0aff", hex);
}

TEST_F(HostTest, AttributesAreReadOnceAndNeverCreated)
{
    char buffer[9];
    const auto read = [&buffer](const std::string &content, int length) {
        Put("/sys/vendor", content);
        (void)std::fill_n(buffer, sizeof buffer, '\0');
        const int count = INTF_UTIL_Read("/sys", "vendor", buffer, length);
        return std::to_string(count) + " " + buffer;
    };
    EXPECT_EQ("8 12345678", read("12345678\n", 8));
    EXPECT_EQ("8 1234567", read("1234567\n", 8));
    EXPECT_EQ("3 1\r", read("1\r\n", 8));
    EXPECT_EQ("4 12\n", read("12\n\n", 8));
    EXPECT_EQ("0 ", read("", 8));
    EXPECT_EQ("-1 ", read("1", -1));
    const std::string d248 = "/sys/" + std::string(243, 'd');
    Put(d248 + "/12345", "x");
    Link("/sys/scan", "/dev/full");
    EXPECT_EQ(1, INTF_UTIL_Read(d248.c_str(), "12345", buffer, 8));
    EXPECT_EQ(-1, INTF_UTIL_Read(d248.c_str(), "123456", buffer, 8));
    EXPECT_EQ(-1, INTF_UTIL_Write(d248.c_str(), "123456", "1", 1));
    EXPECT_EQ(-1, INTF_UTIL_Write("/sys", "delete", "1", 1));
    EXPECT_EQ(-1, INTF_UTIL_Write("/sys", "scan", "- - -", 5));
    EXPECT_EQ("UDEV INTF_UTIL_Read: structure full name fail with dir{" + d248 +
                  "} file{123456}.\n"
                  "UDEV INTF_UTIL_Write: structure full name fail with path{" +
                  d248 +
                  "} file{123456}.\n"
                  "UDEV INTF_UTIL_Write: open file{/sys/delete} failed!\n"
                  "UDEV INTF_UTIL_Write: write fail in file{/sys/scan} with ret{-1}.\n",
              RecordsAt("ERROR"));
}

TEST_F(HostTest, AVanishedDeviceStillReachesItsHandler)
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
