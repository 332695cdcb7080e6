#include "command.h"
#include "udev_product.h"
#include "udev_reader.h"
#include "udev_settings.h"

using namespace machine;
using namespace std::string_literals;

namespace {

const std::string kSettings = "/etc/vdLinux.conf";

// Loads a list. Returns a line for each entry, then the ERROR records.
std::string Load(const std::string &file)
{
    Put(kConfig, file);
    Remove(kLog);
    std::string text;
    EXPECT_EQ(1, UDEV_InitConfig());
    for (const ProductNode &node : Products()) {
        text += node.ruler_name + "|"s + node.vendor_id + "|" + node.product_id + "|" + node.driver + "\n";
    }
    UDEV_FreeProductList();
    return text + RecordsAt("ERROR");
}

TEST_F(MachineTest, SupportedDevicesAreReadLineByLine)
{
    EXPECT_EQ("", Load("[Vendors]\nvendor_id=V\n") + Load(""));
    // A product line of 511 characters: the value of an unknown key may have any length.
    const std::string held = "vendor_id=V,x=" + std::string(497, 'y');
    const std::string y63(63, 'y');
    const std::string tooLong = "UDEV UDEV_InitConfig: single line over maximum number of characters:" + held + "\n";
    const struct {
        std::string lines;
        std::string list;
    } cases[] = {
        {held.substr(0, 510) + "\n", "|V||\n"},
        {held + "\nvendor_id=W\n", "|W||\n" + tooLong},
        {held + "y" + "vendor_id=TAIL," + std::string(73, 'y') + "\n", "|TAIL||\n" + tooLong},  // 600 characters
        {held.substr(0, 500) + "\\\n" + held.substr(500, 10) + "\n", "|V||\n"},
        {held.substr(0, 500) + "\\" + held.substr(500) + "\nvendor_id=W\nvendor_id=X\n", "|W||\n|X||\n" + tooLong},
        {"vendor_id=ZEN\\TRA\nX\nvendor_id=V\nvendor_id=W", "|ZENTRAX||\n|V||\n"},
        {" vendor_id = \"ZEN TRA\"; \x80\xff\r\nvendor_id=V\0W,driver=d\n"s, "|ZENTRA||\n|V||\n"},
        {",vendor_id=V,,product_id=P,driver=d,ruler_name=r,\n", "r|V|P|d\n"},
        {"vendor_id=V,product_id=P,driver=d,ruler_name=r,x=y\n",
         "UDEV UDEV_DivisionString: more than buffer length.\n"},
        {"vendor_id=V,driver=,product_id\nvendor_id=V=W\n", "|V||\n|V||\n"},
        {"vendor_id=V,=\n", "UDEV UDEV_DivisionString: sscanf_s failed.\n"},
        {"driver=d,vendor_id=" + y63 + ",product_id=P\n", "|" + y63 + "|P|d\n"},
        {"driver=d,vendor_id=y" + y63 + ",product_id=P\n", "||P|d\n"},
        {"a remark\nVendor_id=V\n[vendors]\n[hosts]\n", "|||\n|||\n|||\n"}};
    for (const auto &c : cases) {
        EXPECT_EQ(c.list, Load("vendor_id=early\n\t[ vendors ] ;\n" + c.lines));
    }
}

TEST_F(MachineTest, OnlyWholeNamesAreSupported)
{
    Put(kConfig, "[vendors]\nvendor_id=ZENTRA,product_id=ARRAY9000\nvendor_id=NOVACORE\n");
    ASSERT_EQ(1, UDEV_InitConfig());
    // Supported pairs, one line each.
    std::string supported;
    for (const std::string product : {R"(ARRAY9000)", R"(ARRAY9000\x20\x20)", "ARRAY9000 ", R"(ARRAY9000\x20a)",
                                      "ARRAY900", "ARRAY90000", "", R"(\x20)", "NC5000"}) {
        for (const char *vendor : {"ZENTRA", "zentra", "ZENTRA ", "NOVACORE", ""}) {
            supported += UDEV_DeviceIsSupport(vendor, product.c_str()) == 1 ? vendor + "|"s + product + "\n" : "";
        }
    }
    EXPECT_EQ("ZENTRA|ARRAY9000\nZENTRA|ARRAY9000\\x20\\x20\nNOVACORE|\nNOVACORE|\\x20\n", supported);
    EXPECT_EQ(1, UDEV_DeviceIsSupport("NOVACORE", nullptr));
    EXPECT_EQ(0, UDEV_DeviceIsSupport("ZENTRA", nullptr));
    EXPECT_EQ(0, UDEV_DeviceIsSupport("ZENTRA", std::string(64, 'p').c_str()));
    UDEV_FreeProductList();
    EXPECT_EQ(0, UDEV_DeviceIsSupport("ZENTRA", "ARRAY9000"));
    EXPECT_EQ(
        "UDEV UDEV_MatchProductStr: sprintf_s failed.\n"
        "UDEV UDEV_MatchProductStr: sprintf_s failed.\n"
        "UDEV UDEV_DeviceIsSupport: list is NULL.\n",
        RecordsAt("ERROR"));
}

// Loads a settings file and returns the four values.
std::string LoadSettings(const std::string &file)
{
    Put(kSettings, file);
    EXPECT_EQ(RET_OK, UDEV_InitVdLinuxConfig());
    std::string values;
    for (const char *name : {"dev_loss_tmo", "fast_io_fail_tmo", "recovery_tmo", "scsi_timeout"}) {
        char value[4];
        EXPECT_EQ(RET_OK, UDEV_GetVdLinuxCfgValue(name, value, sizeof value));
        values += value + " "s;
    }
    return values;
}

TEST_F(MachineTest, SettingsKeepToTheirRanges)
{
    EXPECT_EQ("5 4 5 30 ", LoadSettings(""));
    const std::string line510 = "dev_loss_tmo=7" + std::string(496, 'x');
    EXPECT_EQ("7 4 5 30 ", LoadSettings("\n ;\n" + line510 + "\n" + line510 + "yz\nscsi_timeout=7"));
    EXPECT_EQ("UDEV INTF_UTIL_ReadFileHandleByLine: line over max number{512} of char:" + line510 + "y\n",
              RecordsAt("ERROR"));
    EXPECT_EQ("600 599 600 600 ",
              LoadSettings("dev_loss_tmo=600\nfast_io_fail_tmo=599\nrecovery_tmo=600\nscsi_timeout=600\n"));
    EXPECT_EQ("1 0 0 1 ", LoadSettings("dev_loss_tmo = 1;\nfast_io_fail_tmo=\"0\"\nrecovery_tmo=0\nscsi_timeout=1\n"));
    for (const char *line : {"dev_loss_tmo=0\n", "dev_loss_tmo=601\n", "dev_loss_tmo=4294967298\n",
                             "fast_io_fail_tmo=-1\n", "fast_io_fail_tmo=600\n", "recovery_tmo=-1\n",
                             "recovery_tmo=601\n", "scsi_timeout=0\n", "scsi_timeout=601\n"}) {
        EXPECT_EQ("1 0 0 1 ", LoadSettings(line)) << line;
    }
}

TEST_F(MachineTest, WhatFailsWithTheSettingsIsRecorded)
{
    char two[2];
    const FileLineHandler refuse = [](char * /*line*/, std::int32_t /*length*/, void * /*userArg*/) {
        return RET_FAIL;
    };
    EXPECT_EQ(RET_LINE_HANDLER_FAIL, INTF_UTIL_ReadFileHandleByLine(kConfig.c_str(), nullptr, refuse));
    Put(kSettings + "/file", "");  // a directory opens for reading, but not for writing
    EXPECT_EQ(RET_FAIL, UDEV_InitVdLinuxConfig());
    (void)LoadSettings("scsi_timeout=30\nDEV_LOSS_TMO=5\nscsi_timeout=601\nscsi_timeout=\\\n31\n");
    EXPECT_EQ(RET_FAIL, UDEV_GetVdLinuxCfgValue("scsi_timeout", two, sizeof two));
    EXPECT_EQ(RET_NOT_FOUND, UDEV_GetVdLinuxCfgValue("SCSI_TIMEOUT", two, sizeof two));
    EXPECT_EQ(
        "UDEV UDEV_HandVdLinuxCfgReadLine: update attr{DEV_LOSS_TMO} to value{5} fail with ret{1056}.\n"
        "UDEV UDEV_HandVdLinuxCfgReadLine: update attr{scsi_timeout} to value{601} fail with ret{1030}.\n"
        "UDEV INTF_UTIL_ReadFileHandleByLine: can't open /etc/vdLinux.conf: Is a directory\n"
        "UDEV UDEV_InitVdLinuxConfig: init vdLinux config fail with ret{1030}.\n"
        "UDEV UDEV_UpdateVdLinuxCfg: get atrr{DEV_LOSS_TMO} value{5} is not find.\n"
        "UDEV UDEV_UpdateVdLinuxCfg: get atrr{scsi_timeout} value{601} is out range{1, 600}.\n"
        "UDEV UDEV_HandVdLinuxCfgReadLine: sscanf_s {scsi_timeout \\31} failed.\n"
        "UDEV UDEV_GetVdLinuxCfgValue: sprintf_s attr{scsi_timeout} value{30} fail.\n"
        "UDEV UDEV_GetVdLinuxCfgValue: get atrr{SCSI_TIMEOUT} value is not find.\n",
        RecordsAt("WARN") + RecordsAt("ERROR"));
}

}  // namespace
