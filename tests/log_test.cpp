#include "log_syslog.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <ctime>
#include <regex>

#include "host.h"
#include "udev_line.h"
#include "util_sysfs.h"

using namespace host;

namespace {

TEST_F(HostTest, RecordsOfBothModulesShareOneFormatAndOneSequence)
{
    Remove(kConfig);
    char times[2][40];
    std::string trace;
    for (char(&time)[40] : times) {
        const std::time_t now = std::time(nullptr);
        (void)std::strftime(time, sizeof time, "[1][%Y-%m-%d %H:%M:%S]", std::localtime(&now));
        trace = trace.empty() ? RunCommand().trace : trace;
    }
    EXPECT_TRUE(times[0] <= trace.substr(0, 24) && trace.substr(0, 24) <= times[1]) << trace;
    // The second message has no line end, which leaves the third record on its line.
    EXPECT_TRUE(std::regex_search(
        trace,
        std::regex(
            R"(^.{24}\[000053421700[0-9a-f]{4}\]\[INFO\]\[SCAN  \]\[SCAN_Init: \d+\]vdRescan_plus start\.\.\.\n)"
            R"(\[2\].{21}\[000053421600[0-9a-f]{4}\]\[ERROR\]\[UDEV  \]\[UDEV_InitConfig: \d+\]open file failed\.)"
            R"(\[3\].{21}\[000053421700[0-9a-f]{4}\]\[ERROR\]\[SCAN  \]\[SCAN_Init: \d+\]init vd config fail!\n\[4\])")));
    const std::regex record(R"(\[(\d+)\].{21}\[\w{12}(\w{4})\]\[\w+\]\[\w+  \]\[\w+: (\d+)\])");
    int sequence = 0;
    for (std::sregex_iterator at(trace.begin(), trace.end(), record), end; at != end; ++at) {
        EXPECT_EQ(++sequence, std::stoi(at->str(1)));
        EXPECT_EQ(std::stoi(at->str(2), nullptr, 16), std::stoi(at->str(3))) << at->str();
    }
    EXPECT_EQ(8, sequence);
    EXPECT_EQ("[1][", RunCommand().trace.substr(0, 4));  // appended, and counted from 1 again
}

TEST_F(HostTest, WithoutItsDirectoryTheTraceIsLostAndNothingElse)
{
    AddDisk({.hctl = "2:0:0:1", .reported = false});
    const std::string out = RunCommand().out;
    Remove("/opt/Veridane_NVMe");
    const Result result = RunCommand();
    EXPECT_EQ(out, result.out);
    EXPECT_EQ("2:0:0:1/delete 1\n", result.writes);
    EXPECT_EQ("", Content(kLog));
}

TEST_F(HostTest, SyslogTakesTheMessagesOfUtilitiesInPlaceOfTheTrace)
{
    Remove("/dev/log");
    const int daemon = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    const sockaddr_un address = {AF_UNIX, "/dev/log"};
    ASSERT_EQ(0, bind(daemon, reinterpret_cast<const sockaddr *>(&address), sizeof address));
    char buffer[9] = {};
    LOG_SetSyslog();
    EXPECT_EQ(-1, INTF_UTIL_Read("/nowhere", "vendor", buffer, 8));
    EXPECT_EQ(-1, INTF_UTIL_Write(std::string(975, 'd').c_str(), "scan", "- - -", 5));  // a text of 1024 characters
    EXPECT_EQ(0, UDEV_ClearCharacters(nullptr, 9));
    LOG_ClearSyslog();
    EXPECT_EQ(-1, INTF_UTIL_Read("/nowhere", "model", buffer, 8));
    std::string received;
    char text[2048];
    for (ssize_t size; (size = recv(daemon, text, sizeof text, 0)) > 0;) {
        received += std::regex_replace(std::string(text, static_cast<std::size_t>(size)), std::regex("<(6|14)>.{16}"),
                                       "info ") +
                    "|";
    }
    (void)close(daemon);
    const std::string prefix = "info vdudev[" + std::to_string(getpid()) + "]: ";
    EXPECT_EQ(prefix + "open file{/nowhere/vendor} failed!\n|" + prefix + "vsnprintf failed.|", received);
    EXPECT_EQ(
        "UDEV UDEV_ClearCharacters: *** Assertion on file \"\" function \"UDEV_ClearCharacters\" line N exception "
        "\"buffer != ((void *)0)\"\nUDEV INTF_UTIL_Read: open file{/nowhere/model} failed!\n",
        std::regex_replace(RecordsAt("ERROR"), std::regex("line \\d+"), "line N"));
}

}  // namespace
