#include <functional>
#include <regex>

#include "host.h"
#include "udev_line.h"
#include "udev_product.h"

using namespace host;
using namespace std::string_literals;

namespace {

// Loads a list and shows it: a line for each entry, then the records.
std::string Load(const std::string &file)
{
    Put(kConfig, file);
    Remove(kLog);
    std::string text;
    EXPECT_EQ(1, UDEV_InitConfig());
    for (const ProductNode &node : LIST_Range<ProductNode>(g_productList)) {
        text += node.ruler_name + "|"s + node.vendor_id + "|" + node.product_id + "|" + node.driver + "\n";
    }
    UDEV_FreeProductList();
    return text + RecordsAt("ERROR");
}

TEST_F(HostTest, SupportedDevicesAreReadLineByLine)
{
    EXPECT_EQ("rule01|ZENTRA|ARRAY9000|zdrv\n|ZENTRA|ARRAY7000|\nrule03|NOVACORE|NC5000|\n",
              Load(R"(; arrays whose disks the rescan may remove
[vendors]
ruler_name="rule01", vendor_id="ZENTRA", product_id="ARRAY9000", driver="zdrv"
vendor_id = "ZENTRA" , product_id = "ARRAY7000" ;
ruler_name=rule03,vendor_id=NOVACORE,\
product_id=NC5000
)"));
    EXPECT_EQ("", Load("[Vendors]\nvendor_id=V\n"));
    EXPECT_EQ("", Load(""));
    // A product line that is filled up to 511 characters; an unknown key takes a value of any length.
    const std::string held = "vendor_id=V,x=" + std::string(497, 'y'), y63(63, 'y');
    const std::string tooLong = "UDEV UDEV_InitConfig: single line over maximum number of characters:" + held + "\n";
    const struct {
        std::string lines, list;
    } cases[] = {
        {held.substr(0, 510) + "\n", "|V||\n"},
        {held + "\nvendor_id=W\n", "|W||\n" + tooLong},
        {held + "y" + "vendor_id=TAIL," + std::string(73, 'y') + "\n", "|TAIL||\n" + tooLong},  // 600 characters
        {held.substr(0, 500) + "\\\n" + held.substr(500, 10) + "\n", "|V||\n"},
        {held.substr(0, 500) + "\\" + held.substr(500) + "\nvendor_id=W\nvendor_id=X\n", "|W||\n|X||\n" + tooLong},
        {"vendor_id=ZEN\\TRA\nX\n", "|ZENTRAX||\n"},
        {"vendor_id=V\nvendor_id=W", "|V||\n"},
        {"vendor_id=\"ZEN TRA\";\x80\xff\r\n", "|ZENTRA||\n"},
        {"vendor_id=V\0W,driver=d\n"s, "|V||\n"},
        {",vendor_id=V,,product_id=P,driver=d,ruler_name=r,\n", "r|V|P|d\n"},
        {"vendor_id=V,product_id=P,driver=d,ruler_name=r,x=y\n", "UDEV UDEV_DivisionString: more than buffer length."},
        {"vendor_id=V,driver=,product_id\n", "|V||\n"},
        {"vendor_id=V,=\n", "UDEV UDEV_DivisionString: sscanf_s failed."},
        {"driver=d,vendor_id=" + y63 + ",product_id=P\n", "|" + y63 + "|P|d\n"},
        {"driver=d,vendor_id=y" + y63 + ",product_id=P\n", "||P|d\n"},
        {"vendor_id=V=W\n", "|V||\n"},
        {"a remark\nVendor_id=V\n[vendors]\n[hosts]\n", "|||\n|||\n|||\n"}};
    for (const auto &c : cases) {
        EXPECT_EQ(c.list, Load("vendor_id=early\n\t[ vendors ] ;\n" + c.lines));
    }
}

TEST_F(HostTest, OnlyWholeNamesAreSupported)
{
    Put(kConfig, "[vendors]\nvendor_id=ZENTRA,product_id=ARRAY9000\nvendor_id=NOVACORE\n");
    ASSERT_EQ(1, UDEV_InitConfig());
    // Vendor and product; without a bar there is none.
    const auto answer = [](const std::string &query) {
        const std::size_t bar = query.find('|');
        const std::string vendor = query.substr(0, bar), product = query.substr(bar + 1);
        return UDEV_DeviceIsSupport(vendor.c_str(), bar == std::string::npos ? nullptr : product.c_str());
    };
    for (const char *query :
         {"ZENTRA|ARRAY9000", R"(ZENTRA|ARRAY9000\x20\x20)", "NOVACORE|", R"(NOVACORE|\x20)", "NOVACORE"}) {
        EXPECT_EQ(1, answer(query)) << query;
    }
    for (const std::string query :
         {"ZENTRA|ARRAY9000 ", R"(ZENTRA|ARRAY9000\x20a)", "ZENTRA|ARRAY900", "ZENTRA|ARRAY90000", "ZENTRA|", "ZENTRA",
          "zentra|ARRAY9000", "ZENTRA |ARRAY9000", "NOVACORE|NC5000", "|"}) {
        EXPECT_EQ(0, answer(query)) << query;
    }
    EXPECT_EQ(0, answer("ZENTRA|" + std::string(64, 'p')));
    UDEV_FreeProductList();
    EXPECT_EQ(0, UDEV_DeviceIsSupport("ZENTRA", "ARRAY9000"));
    EXPECT_EQ(
        "UDEV UDEV_MatchProductStr: sprintf_s failed.UDEV UDEV_MatchProductStr: sprintf_s failed."
        "UDEV UDEV_DeviceIsSupport: list is NULL.",
        RecordsAt("ERROR"));
}

TEST_F(HostTest, MissingArgumentsAreRefusedWithARecord)
{
    char text[9] = "a=b";
    std::int32_t index = 0;
    std::uint8_t flag = 0;
#define CALL(...) #__VA_ARGS__, [&] { return __VA_ARGS__; }
    const struct {
        std::string name;
        std::function<int()> call;
        std::string expression;
    } cases[] = {
        {CALL(UDEV_DeviceIsSupport(nullptr, nullptr)), "vendor != ((void *)0)"},
        {CALL(UDEV_MatchProductStr("V", "P", nullptr)), "productNode != 0"},
        {CALL(UDEV_ClearCharacters(text, 0)), "bufferLen != 0"},
        {CALL(UDEV_ReplaceCharacters(nullptr, 0)), "buffer != ((void *)0)"},
        {CALL(UDEV_InitProductNode("driver", nullptr, nullptr)), "keyValue != ((void *)0)"},
        {CALL(UDEV_DivisionString(text, 9, nullptr)), "node != ((void *)0)"},
        {CALL(UDEV_AnalyzeLine(text, 9, nullptr), 0), "vendorsUnit != ((void *)0)"},
        {CALL(UDEV_ClearTailSpace(nullptr, 9), 0), "buffer != ((void *)0)"},
        {CALL(UDEV_HandleSingleLine(text, 9, nullptr, nullptr, &flag), 0), "lineFlag != ((void *)0)"},
        {CALL(UDEV_HandleSingleLine(text, 9, &index, &flag, nullptr), 0), "vendorsUnit != ((void *)0)"},
    };
    for (const auto &c : cases) {
        Remove(kLog);
        EXPECT_EQ(0, c.call()) << c.name;
        const std::string function = c.name.substr(0, c.name.find('('));
        EXPECT_EQ("UDEV " + function + ": *** Assertion on file \"\" function \"" + function +
                      "\" line N exception \"" + c.expression + "\"\n",
                  std::regex_replace(RecordsAt("ERROR"), std::regex("line \\d+"), "line N"));
    }
}

}  // namespace
