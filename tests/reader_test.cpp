// What vdRescan_log says of a log: of one that the command has just written, and of ones that are made up.
#include <fcntl.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <regex>

#include "command.h"
#include "reader_run.h"

using namespace machine;

namespace {

// What the program prints for the machine's log, with T for times and N for durations, and its exit status.
std::string Read(const std::string &args)
{
    const int status = std::system((VD_READER " " + args + " > /run/out 2>&1").c_str());
    const std::string out =
        std::regex_replace(Content("/run/out"), std::regex(R"(\d{4}(-\d\d){2} \d\d(:\d\d){2})"), "T");
    return std::regex_replace(out, std::regex("T, [0-9]+ seconds?:"), "T, N seconds:") +
           std::to_string(WEXITSTATUS(status));
}

// A log with these records: number, level, function and message. A line that ends with `\` goes on in the next.
std::string Log(const std::string &records)
{
    const std::regex record(R"((\d+) ([A-Z]+) (\w+) (.*))");
    const std::string header = "[$1][2001-11-22 21:32:21][0000534217000001][$2][SCAN  ][$3: 1]$4";
    return std::regex_replace(std::regex_replace(records, record, header), std::regex(R"(\\\n)"), "");
}

const std::time_t kLogTime = READER_Seconds("2001-11-22 21:32:21").value();

TEST_F(MachineTest, ReaderTellsWhatARunDid)
{
    AddScsiHost(2);
    AddScsiHost(3);
    Remove(HostDir(3) + "/scan");
    AddDevice("nvme", kFabrics + "nvme1");
    AddDisk({.hctl = "2:0:0:1"});
    AddDisk({.hctl = "2:0:0:2", .now = std::string(32, 'e')});
    AddDisk({.hctl = "2:0:0:3", .isReported = false});
    AddDisk({.hctl = "3:0:0:1", .isDead = true});
    AddDisk({.hctl = "3:0:0:2"});
    Remove(DiskDir("3:0:0:2") + "/generic");
    Link(DiskDir("2:0:0:3") + "/delete", "/dev/full");
    RunCommand();
    EXPECT_EQ(R"(Run 1 of T, N seconds: complete.
The supported-device list was loaded. 4 disks found in 2 sessions, 1 left out, 0 not in the list.

ADDRESS  NODE      VENDOR  PRODUCT    STATE          ACTION   WWN
2:0:0:2  /dev/sg1  ZENTRA  ARRAY9000  changed        deleted  6a1b2c3d4e5f00020000000000000002 -> eeeeeeeeeeeeeeeeeeeeeeeeeeeeeeee
2:0:0:3  /dev/sg2  ZENTRA  ARRAY9000  removed        failed   6a1b2c3d4e5f00020000000000000003
3:0:0:1  /dev/sg3  ZENTRA  ARRAY9000  not connected  deleted  6a1b2c3d4e5f00030000000000000001
    iusse report lun ioctl fail{-1}!; inquiry 0x83 ioctl fail{-1}!
3:0:0:2  ?         ?       ?          left out       none     ?
    full name{/sys/devices/platform/host3/session1/target3:0:0/3:0:0:2/generic} read link fail.

Not rescanned: host3
Rescanned: 1 host, 1 controller.
0)",
              Read(""));
    EXPECT_EQ(
        "VDRESCAN CRITICAL - run 1 of T: deletion failed: 2:0:0:3; left out: 3:0:0:2; not rescanned: host3; "
        "deleted: 2:0:0:2 3:0:0:1 | disks=4 stale=3 deleted=2 failed=1 not_questioned=1 failed_queries=0\n2",
        Read("--check"));
}

// The log is what a run in the lab has written.
TEST(ReaderTest, TellsTheStoryOfTheLab)
{
    const std::string tests = std::filesystem::path(VD_RUNS).parent_path().string();
    const std::string reader = VD_READER " " + tests + "/fuzz/corpus/fuzz_reader/story ";
    for (const std::string form : {"view", "check", "json"}) {
        const std::string option = form == "view" ? "" : "--" + form;
        const std::string command = reader + option + " | diff " + tests + "/story." + form + " -";
        EXPECT_EQ(0, std::system(command.c_str())) << command;
    }
}

TEST_F(MachineTest, ReaderMakesTheMostOfALog)
{
    const std::string start = "1 INFO SCAN_Init vdRescan_plus start...\n", end = "3 INFO main vdRescan_plus end.\n";
    const std::string disk =
        "2 INFO SCAN_CreateScsiDisk create scsi disk{2:0:0:1, ZENTRA, ARRAY9000, a1, /dev/sg1} finish.\n";
    const std::string notRoot = start + "2 WARN SCAN_Init WARN: please exit and run as root!\n";
    const std::string check = "VDRESCAN WARNING - run 1 of T: ",
                      zeros = " stale=0 deleted=0 failed=0 not_questioned=0 failed_queries=0\n";
    const std::string filed = "create scsi disk{2:0:0:3, ZENTRA, ARRAY9000, A6, /dev/sg3} finish.\n";
    const std::string none = " | disks=0" + zeros, one = " | disks=1" + zeros;
    const struct {
        std::string records, args, expected;
    } cases[] = {
        // Two runs that expect the same numbers, and messages with other line ends than one at their end.
        {start + start +
             R"(2 INFO SCAN_CreateScsiDisk create scsi disk{2:0:0:3, ZENTRA, ARRAY9000, a3, /dev/sg3} finish.
2 ERROR SCAN_CheckOnlyOneRun can't lock file{/run/vdRescan_plus.pid} with err{Permission denied}.
3 WARN SCAN_Init WARN: there is one other vdRescan_plus running, please stop and try again!
3 WARN SCAN_PrintRemoved     2:0:0:3
4 INFO SCAN_DeleteChangeMap please input [yes], or input [no]:\
5 INFO SCAN_ReadUserYesOrNo input {no
}
6 INFO SCAN_ScanAllScsiHost start scan scsi host......
7 INFO main vdRescan_plus end.
)",
         "--check",
         "VDRESCAN WARNING - run 2 of T: stale and left in place: 2:0:0:3 | disks=1 stale=1 deleted=0 failed=0 "
         "not_questioned=0 failed_queries=0\n1"},
        // A run that is stopped, one that lacks a record, and one that lacks its beginning.
        {start + "2 INFO SCAN_ScanScsiHost     scan host3 \\\n" + start +
             "5 INFO main vdRescan_plus end.\n4 INFO main vdRescan_plus end.\n",
         "--all",
         R"(   1  T  not ended              1 not rescanned
   2  T  complete               records are missing
   3  T  complete               records are missing
0)"},
        // Queries that failed, of which the order does not tell the disk of each.
        {start + disk + R"(3 INFO SCAN_CreateScsiDisk create scsi disk{2:0:0:2, ZENTRA, ARRAY9000, a2, /dev/sg2} finish.
4 INFO SCAN_CreateScsiDisk create scsi disk{2:0:0:3, ZENTRA, ARRAY9000, a3, /dev/sg3} finish.
5 INFO SCAN_CreateScsiDisk create scsi disk{2:0:0:4, ZENTRA, ARRAY9000, a4, /dev/sg4} finish.
6 ERROR SCAN_IssueReportLun iusse report lun ioctl fail{-1}!
7 INFO SCAN_PrintLunIds session{2:0:0} report lun cnt{4}.
8 ERROR SCAN_IusseInquiry0x83 inquiry 0x83 ioctl fail{-1}!
9 ERROR SCAN_GetDiskWwn open file{/dev/sg3} fail!
)",
         "", R"(Run 1 of T, N seconds: not ended.
It was stopped, or is still at work.
The supported-device list was loaded. 4 disks found in 1 session, 0 left out, 0 not in the list.

ADDRESS  NODE      VENDOR  PRODUCT    STATE           ACTION  WWN
2:0:0:1  /dev/sg1  ZENTRA  ARRAY9000  not questioned  none    a1
    iusse report lun ioctl fail{-1}!
2:0:0:3  /dev/sg3  ZENTRA  ARRAY9000  not questioned  none    a3
    open file{/dev/sg3} fail!

A query failed, on one of these disks: inquiry 0x83 ioctl fail{-1}!
    2:0:0:1 2:0:0:2
Rescanned: 0 hosts, 0 controllers.
0)"},
        {start + disk + end + notRoot + notRoot, "--check",
         check + "1 disk checked; run 3 of T: refused: not root" + one + "1"},
        {start + disk + end, "--check --max-age 1",
         "VDRESCAN UNKNOWN - run 1 of T: 1 disk checked; that is too long ago" + one + "3"},
        {start + "2 ERROR SCAN_Init init vd config fail!\n" + end, "--check --max-age 1",
         check + "the supported-device list was not loaded; that is too long ago" + none + "1"},
        {start + "2 INFO main vdRescan_plus end.\n", "--check",
         "VDRESCAN OK - run 1 of T: no disk was looked at: --nocheck, or there is no SCSI disk" + none + "0"},
        {start + "2 INFO main vdRescan_plus end.\n", "--check --must-look",
         check + "no disk was looked at: --nocheck, or there is no SCSI disk" + none + "1"},
        {start + "2 INFO SCAN_InitScsiDisk scsi disk{2:0:0:1} isn't support with vendor{V} product{P}.\n" + end,
         "--check", check + "no supported disk found" + none + "1"},
        // The log was rotated while the run waited for the answer.
        {R"(5 INFO SCAN_ReadUserYesOrNo input {yes
}
6 INFO SCAN_DeleteChangeDisk     delete 2:0:0:2 success.
7 INFO main vdRescan_plus end.
)",
         "", R"(Run 1 of T, N seconds: complete.
Records of it are missing, so this may not be all.
At least 1 disk found in 1 session, 0 left out, 0 not in the list.
The operator was asked and said yes.

ADDRESS  NODE  VENDOR  PRODUCT  STATE    ACTION   WWN
2:0:0:2  ?     ?       ?        unknown  deleted  ?

Rescanned: 0 hosts, 0 controllers.
0)"},
        // The record of the deletion is missing: nobody knows that the answer was no.
        {start + disk + "3 WARN SCAN_PrintRemoved     2:0:0:1\n4 INFO SCAN_DeleteChangeMap please input:\\\n" +
             "7 INFO SCAN_ScanAllScsiHost start scan scsi host......\n8 INFO main vdRescan_plus end.\n",
         "--check",
         check + "records are missing; stale, deletion not recorded: 2:0:0:1 | "
                 "disks=1 stale=1 deleted=0 failed=0 not_questioned=0 failed_queries=0\n1"},
        // Changes that are none, an array that reports no LUN, and arrays that are not in the list.
        {start + disk + "3 INFO SCAN_CreateScsiDisk " + filed + "4 INFO SCAN_CreateScsiDisk " +
             std::regex_replace(filed, std::regex("2:0:0:3"), "3:0:0:4") +
             R"(5 INFO SCAN_InitScsiDisk scsi disk{4:0:0:1} isn't support with vendor{OTHERCO} product{BOX 100}.
6 INFO SCAN_InitScsiDisk scsi disk{4:0:0:2} isn't support with vendor{OTHERCO} product{BOX 100}.
7 WARN SCAN_PrintRemoved     3:0:0:4
8 WARN SCAN_PrintRemapped     2:0:0:1 [a1 -> 00]
9 WARN SCAN_PrintRemapped     2:0:0:3 [A6 -> a6]
)",
         "", R"(Run 1 of T, N seconds: not ended.
It was stopped, or is still at work.
The supported-device list was loaded. 3 disks found in 2 sessions, 0 left out, 2 not in the list.

ADDRESS  NODE      VENDOR  PRODUCT    STATE    ACTION  WWN
2:0:0:1  /dev/sg1  ZENTRA  ARRAY9000  changed  none    a1 -> 00
    the new name is all zeros: the answer holds no name
2:0:0:3  /dev/sg3  ZENTRA  ARRAY9000  changed  none    A6 -> a6
    the names differ only in case: the disk is the same
3:0:0:4  /dev/sg3  ZENTRA  ARRAY9000  removed  none    A6

Not in the list: OTHERCO BOX 100: 2
Every disk of session 3:0:0 is removed; an array that is starting reports no LUN.
Rescanned: 0 hosts, 0 controllers.
0)"},
        {start + disk + end, "--check --since 1006464742",
         "VDRESCAN UNKNOWN - no run began since T; the last one is run 1 of T\n3"},
        {start + disk + end, "--check --since 1006464741", "VDRESCAN OK - run 1 of T: 1 disk checked" + one + "0"},
        {start, "--check", "VDRESCAN CRITICAL - run 1 of T: did not end" + none + "2"},
        {start, "--run 2", "vdRescan_log: /opt/Veridane_NVMe/log/vd_rescan_log.txt does not hold this run\n1"},
        {"", "--check /nowhere", "VDRESCAN UNKNOWN - /nowhere: No such file or directory\n3"},
    };
    for (const auto &c : cases) {
        Put(kLog, "[2][\xff" + std::string(3, '\0') + "][00005342" + Log(c.records) + "[4][2001-11-22 21:");
        EXPECT_EQ(c.expected, Read(c.args)) << c.records;
    }
}

// Who holds the lock is at work, and is judged when it has ended; the copy that it refuses does not hide it.
TEST_F(MachineTest, ReaderKnowsTheRunAtWork)
{
    const std::string atWork =
        "1 INFO SCAN_Init vdRescan_plus start...\n2 INFO SCAN_CreateScsiHost create scsi host{2} finish.\n";
    const std::string refused =
        "1 INFO SCAN_Init vdRescan_plus start...\n"
        "2 WARN SCAN_Init WARN: there is one other vdRescan_plus running, please stop and try again!\n";
    const std::string complete = "1 INFO SCAN_Init vdRescan_plus start...\n2 INFO main vdRescan_plus end.\n";
    const std::string numbers = " | disks=0 stale=0 deleted=0 failed=0 not_questioned=0 failed_queries=0\n";
    const std::string looked = ": no disk was looked at: --nocheck, or there is no SCSI disk";
    Put("/run/vdRescan_plus.pid", "1");
    const int fd = open("/run/vdRescan_plus.pid", O_RDWR | O_CLOEXEC);
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    ASSERT_EQ(0, fcntl(fd, F_SETLK, &lock));
    const auto lockAt = [fd](std::time_t second) {
        const timespec times[] = {{second, 0}, {second, 0}};
        EXPECT_EQ(0, futimens(fd, times));
    };
    lockAt(kLogTime);
    Put(kLog, Log(complete + atWork + refused));
    EXPECT_EQ("VDRESCAN WARNING - run 1 of T" + looked +
                  "; run 3 of T: refused: another copy; run 2 is at work since T" + numbers + "1",
              Read("--check"));
    EXPECT_NE(std::string::npos, Read("").find("not ended.\nIt is still at work.\n"));
    Put(kLog, Log(atWork));
    EXPECT_EQ("VDRESCAN UNKNOWN - no run to judge; run 1 is at work since T\n3", Read("--check"));
    // It was killed before the lock was taken again, by a run that cannot write the log.
    lockAt(kLogTime + 1);
    EXPECT_EQ(
        "VDRESCAN CRITICAL - run 1 of T: did not end; a run that is not in the log is at work since T" + numbers + "2",
        Read("--check"));
    Put(kLog, std::regex_replace(Log(complete), std::regex("2001"), "2099"));
    EXPECT_NE(std::string::npos,
              Read("--check --max-age 1").find("VDRESCAN UNKNOWN - run 1 of T" + looked + "; that is later than now"));
    Put(kLog, Log(atWork));
    (void)close(fd);  // gives the lock back
    EXPECT_NE(std::string::npos, Read("").find("not ended.\nIt was stopped.\n"));
}

// Local times, with and without summer time, and in the hour that the clock goes through twice.
TEST(ReaderTest, TakesTheFirstOfTwoEqualTimes)
{
    ASSERT_EQ(0, setenv("TZ", "Europe/Berlin", 1));
    EXPECT_EQ(1792888200, READER_Seconds("2026-10-25 02:30:00"));
    EXPECT_EQ(1792893600, READER_Seconds("2026-10-25 03:00:00"));
    EXPECT_EQ(1782900000, READER_Seconds("2026-07-01 12:00:00"));
    ASSERT_EQ(0, unsetenv("TZ"));
    EXPECT_EQ(std::nullopt, READER_Seconds("2026-10-25"));
}

TEST_F(MachineTest, ReaderNamesWrongArguments)
{
    const struct {
        const char *args, *expected;
    } cases[] = {
        {"--check --since 12x", "VDRESCAN UNKNOWN - --since needs a number of seconds: 12x\n3"},
        {"--check --max-age 0", "VDRESCAN UNKNOWN - --max-age needs a number of hours: 0\n3"},
        {"--check --ignore 1:2:3", "VDRESCAN UNKNOWN - --ignore needs an address like 2:0:0:1: 1:2:3\n3"},
        {"--json --check", "VDRESCAN UNKNOWN - --check and --json exclude each other\n3"},
        {"--all --run 1", "vdRescan_log: --all and --run exclude each other\n2"},
        {"--must-look", "vdRescan_log: --must-look needs --check\n2"},
        {"--alle", "vdRescan_log: unknown option: --alle\n2"},
        {"--run", "vdRescan_log: no argument after --run\n2"},
        {"a b", "vdRescan_log: more than one file: b\n2"},
    };
    for (const auto &c : cases) {
        const std::string said = Read(c.args);
        EXPECT_EQ(c.expected, said.substr(said.rfind('\n', said.size() - 3) + 1)) << said;
    }
}

// A known disk that is not questioned makes no report fail; a stale one always does.
TEST_F(MachineTest, ReaderIgnoresNoStaleDisk)
{
    AddDisk({.hctl = "2:0:0:0"});
    AddDisk({.hctl = "2:0:0:1"});
    SetAnswer("sg0", kInquiry, {.data = Bytes("00830004 02000000")});
    RunCommand();
    const std::string numbers = " | disks=2 stale=0 deleted=0 failed=0 not_questioned=0 failed_queries=1\n";
    EXPECT_EQ("VDRESCAN WARNING - run 1 of T: queries failed on unknown disks: 1" + numbers + "1",
              Read("--check --ignore 2:0:0:0"));
    EXPECT_EQ("VDRESCAN OK - run 1 of T: 2 disks found; not checked and ignored: 2:0:0:0 2:0:0:1" + numbers + "0",
              Read("--check --ignore 2:0:0:1 --ignore 2:0:0:0"));
    Remove(kLog);
    AddDisk({.hctl = "2:0:0:2", .isReported = false});
    RunCommand("-m", "no\n");
    EXPECT_EQ("VDRESCAN WARNING - run 1 of T: stale and left in place: 2:0:0:2",
              Read("--check --ignore 2:0:0:0 --ignore 2:0:0:1 --ignore 2:0:0:2").substr(0, 63));
}

// What one record makes of a run that has found a disk and is good otherwise.
TEST_F(MachineTest, ReaderJudgesWhatARecordTells)
{
    const struct {
        std::string record, expected;
    } cases[] = {
        {"INFO SCAN_InitScsiDisk scsi disk{2:0:0:9} isn't support with vendor{V} product{P}.",
         "OK - run 1 of T: 1 disk checked | disks=1 stale=0 deleted=0 failed=0 not_questioned=0 failed_queries=0\n0"},
        {"ERROR SCAN_DeleteChangeDisk     delete 2:0:0:1 fail.",
         "CRITICAL - run 1 of T: deletion failed: 2:0:0:1 | disks=1 stale=1 deleted=0 failed=1 not_questioned=0 "
         "failed_queries=0\n2"},
        {"ERROR SCAN_InitScsiDisk scsi disk get vendor fail by path{/sys/2:0:0:9}.",
         "WARNING - run 1 of T: left out: 2:0:0:9 | disks=1 stale=0 deleted=0 failed=0 not_questioned=1 "
         "failed_queries=0\n1"},
        {"ERROR SCAN_ParseDiskWwn get disk wwn fail with len{8}!",
         "WARNING - run 1 of T: queries failed on unknown disks: 1 | "
         "disks=1 stale=0 deleted=0 failed=0 not_questioned=0 failed_queries=1\n1"},
        {"ERROR SCAN_GetAllScanTargets ERROR: get nvme ctrl fail by udev.",
         "WARNING - run 1 of T: not listed: ERROR: get nvme ctrl fail by udev. | "
         "disks=1 stale=0 deleted=0 failed=0 not_questioned=0 failed_queries=0\n1"},
        {"INFO SCAN_ScanNvmeCtrl     scan nvme1 ",
         "WARNING - run 1 of T: not rescanned: nvme1 | disks=1 stale=0 deleted=0 failed=0 not_questioned=0 "
         "failed_queries=0\n1"},
    };
    for (const auto &c : cases) {
        Put(kLog,
            Log("1 INFO SCAN_Init vdRescan_plus start...\n"
                "2 INFO SCAN_CreateScsiDisk create scsi disk{2:0:0:1, ZENTRA, ARRAY9000, a1, /dev/sg1} finish.\n3 " +
                c.record + "\n4 INFO main vdRescan_plus end.\n"));
        EXPECT_EQ("VDRESCAN " + c.expected, Read("--check"));
    }
}

}  // namespace
