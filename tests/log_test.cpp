#include "log_syslog.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <ctime>
#include <regex>

#include "command.h"
#include "udev_line.h"
#include "util_sysfs.h"

using namespace machine;

namespace {

// The record id repeats the line number in hexadecimal.
TEST_F(MachineTest, RecordsOfBothModulesShareOneFormatAndOneSequence)
{
    AddDisk({.hctl = "2:0:0:1", .isReported = false});
    Remove(kConfig);  // so no disk is looked at
    const std::time_t before = std::time(nullptr);
    const std::string trace = RunCommand().trace;
    const std::regex varying(
        R"(\[\d{4}(?:-\d\d){2} \d\d(?::\d\d){2}\]\[(\w{12})([0-9a-f]{4})(\]\[\w+\]\[\w+  \]\[\w+: )(\d+))");
    // The second message has no newline, so the third record continues on its line.
    EXPECT_EQ(R"([1][TIME][000053421700][INFO][SCAN  ][SCAN_Init: LINE]vdRescan_plus start...
[2][TIME][000053421600][ERROR][UDEV  ][UDEV_InitConfig: LINE]open file failed.[3][TIME][000053421700][ERROR][SCAN  ][SCAN_Init: LINE]init vd config fail!
[4][TIME][000053421700][INFO][SCAN  ][SCAN_ScanAllScsiHost: LINE]start scan scsi host......
[5][TIME][000053421700][INFO][SCAN  ][SCAN_ScanAllScsiHost: LINE]end scan scsi host.
[6][TIME][000053421700][INFO][SCAN  ][SCAN_ScanAllNvmeCtrl: LINE]start scan nvme ctrl......
[7][TIME][000053421700][INFO][SCAN  ][SCAN_ScanAllNvmeCtrl: LINE]end scan nvme ctrl.
[8][TIME][000053421700][INFO][SCAN  ][main: LINE]vdRescan_plus end.
)",
              std::regex_replace(trace, varying, "[TIME][$1$3LINE"));
    for (std::sregex_iterator at(trace.begin(), trace.end(), varying), end; at != end; ++at) {
        EXPECT_EQ(std::stoi(at->str(2), nullptr, 16), std::stoi(at->str(4))) << at->str();
    }
    std::tm time = {};
    time.tm_isdst = -1;
    EXPECT_NE(nullptr, strptime(trace.c_str(), "[1][%Y-%m-%d %H:%M:%S]", &time));
    EXPECT_LE(before, std::mktime(&time));
    EXPECT_GE(std::time(nullptr), std::mktime(&time));
    EXPECT_EQ("[1][", RunCommand().trace.substr(0, 4));  // appends, and counts from 1 again
}

TEST_F(MachineTest, ARecordThatIsLostTakesNoNumber)
{
    Remove("/opt/Veridane_NVMe/log");
    LOG_Print(ModuleId::Scan, LogLevel::Info, "lost\n");
    Put(kLog, "");
    LOG_Print(ModuleId::Scan, LogLevel::Info, "kept\n");
    EXPECT_EQ("[1][", Content(kLog).substr(0, 4));
}

// Calls of write(2) by this process so far.
long Writes()
{
    const std::string io = Content("/proc/self/io");
    const std::size_t at = io.find("syscw: ");
    return at == std::string::npos ? -1 : std::stol(io.substr(at + 7));
}

// If written in pieces, a record could contain one of another process.
TEST_F(MachineTest, ARecordIsOneWriteWhateverItsLength)
{
    if (Writes() < 0) {
        GTEST_SKIP() << "this kernel does not count writes";
    }
    for (const std::size_t length : {10U, 15000U, 17000U, 131000U}) {
        const std::string word(length, 'w');
        const long before = Writes();
        LOG_WriteRecord(ModuleId::Scan, LogLevel::Info, word.substr(0, 200).c_str(), 1, "%s\n", word.c_str());
        EXPECT_EQ(1, Writes() - before) << length;
        EXPECT_TRUE(Content(kLog).ends_with(word + "\n")) << length;
    }
}

TEST_F(MachineTest, SyslogTakesTheMessagesOfUtilitiesInPlaceOfTheTrace)
{
    const int daemon = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    const sockaddr_un address = {AF_UNIX, "/dev/log"};
    ASSERT_EQ(0, bind(daemon, reinterpret_cast<const sockaddr *>(&address), sizeof address));
    LOG_SetSyslog();
    EXPECT_EQ(-1, INTF_UTIL_Write("/nowhere", "scan", "- - -", 5));
    EXPECT_EQ(-1, INTF_UTIL_Write(std::string(975, 'd').c_str(), "scan", "- - -", 5));  // a text of 1024 characters
    EXPECT_EQ(0, UDEV_ClearCharacters(nullptr, 9));
    LOG_ClearSyslog();
    EXPECT_EQ(-1, INTF_UTIL_Write("/nowhere", "delete", "1", 1));
    std::string received;
    char text[2048];
    for (ssize_t size; (size = recv(daemon, text, sizeof text, 0)) > 0;) {
        received += std::string(text, static_cast<std::size_t>(size)) + "|";
    }
    (void)close(daemon);
    const std::string prefix = "info vdudev[" + std::to_string(getpid()) + "]: ";
    EXPECT_EQ(prefix + "open file{/nowhere/scan} failed!\n|" + prefix + "vsnprintf failed.|",
              std::regex_replace(received, std::regex("<(6|14)>.{16}"), "info "));
    EXPECT_EQ(
        "UDEV UDEV_ClearCharacters: *** Assertion on file \"\" function \"UDEV_ClearCharacters\" line N exception "
        "\"buffer != ((void *)0)\"\nUDEV INTF_UTIL_Write: open file{/nowhere/delete} failed!\n",
        RecordsAt("ERROR"));
}

}  // namespace
