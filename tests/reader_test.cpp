// Output of vdRescan_log for the logs in logs.txt, for a log that the command has just written, and for one from the
// lab.
#include <fcntl.h>
#include <sys/stat.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <regex>
#include <stdexcept>

#include "command.h"
#include "reader_event.h"
#include "reader_time.h"

using namespace machine;

namespace {

const std::filesystem::path kTests = std::filesystem::path(VD_RUNS).parent_path();
const std::string kUsualTime = "2001-11-22 21:32:21";

// Output of the program for the machine's log and these arguments, without usage text. T replaces times, N durations.
// The last line is the exit status.
std::string Read(const std::string &args)
{
    const int status = std::system((VD_READER " " + args + " > /run/out 2>&1").c_str());
    std::string out = Content("/run/out");
    static const std::regex time(R"(\d{4}(-\d\d){2} \d\d(:\d\d){2})");
    static const std::regex duration("T, [0-9]+ seconds?:");
    static const std::regex seconds(R"("seconds":\d+)");
    out = std::regex_replace(out, time, "T");
    out = std::regex_replace(out, duration, "T, N seconds:");
    out = std::regex_replace(out, seconds, R"("seconds":N)");
    return out + "status " + std::to_string(WEXITSTATUS(status)) + "\n";
}

// A log, and the output of the commands that read it.
struct ListedLog {
    std::string name;
    std::string records;
    struct Command {
        int line;
        std::string args;
        std::string expected;
    };
    std::vector<Command> commands;
};

void PrintTo(const ListedLog &log, std::ostream *out) { *out << log.name; }

// A line such as "2 INFO main vdRescan_plus end." as a record.
std::string RecordOf(const std::string &line, const std::string &time)
{
    static const std::regex record(R"((\d+) ([A-Z]+) (\w+) (.*))");
    static const std::regex newline(R"(\\n)");
    std::smatch part;
    if (!std::regex_match(line, part, record)) {
        throw std::runtime_error("logs.txt: {" + line + "} is not understood");
    }
    std::string message = std::regex_replace(part.str(4), newline, "\n");
    const bool isOpen = message.ends_with("\\c");
    message = isOpen ? message.substr(0, message.size() - 2) : message + "\n";
    return "[" + part.str(1) + "][" + time + "][0000534217000001][" + part.str(2) + "][SCAN  ][" + part.str(3) +
           ": 1]" + message;
}

std::vector<ListedLog> ListedLogs()
{
    std::ifstream file(kTests / "logs.txt");
    std::vector<ListedLog> logs;
    std::string time;
    bool isOutput = false;  // of a command
    std::string line;
    for (int number = 1; std::getline(file, line); ++number) {
        if (isOutput) {
            logs.back().commands.back().expected += line + "\n";
            isOutput = !line.starts_with("status ");
        } else if (line.starts_with("log ")) {
            time = kUsualTime;
            logs.push_back({std::regex_replace(line.substr(4), std::regex("[^0-9A-Za-z]"), "_"), "", {}});
        } else if (line.starts_with("$ vdRescan_log")) {
            logs.back().commands.push_back({number, line.substr(14), ""});
            isOutput = true;
        } else if (line.starts_with("at ")) {
            time = line.substr(3);
        } else if (!line.empty() && line[0] != '#') {
            logs.back().records += RecordOf(line, time);
        }
    }
    return logs;
}

class ListedLogTest : public MachineTest, public testing::WithParamInterface<ListedLog> {};

TEST_P(ListedLogTest, IsReadAsListed)
{
    const std::string garbage = "[2][\xff" + std::string(3, '\0') + "][00005342";
    Put(kLog, garbage + GetParam().records + "[4][2001-11-22 21:32:21][0000534217000001][INF");
    for (const auto &command : GetParam().commands) {
        EXPECT_EQ(command.expected, Read(command.args))
            << "logs.txt:" << command.line << ": vdRescan_log" << command.args;
    }
}

INSTANTIATE_TEST_SUITE_P(Logs, ListedLogTest, testing::ValuesIn(ListedLogs()),
                         [](const auto &log) { return log.param.name; });

TEST_F(MachineTest, ReaderReportsWhatARunDid)
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
The supported-device list was loaded. 4 supported disks found in 2 sessions, 1 left out, 0 others not in the list.

ADDRESS  NODE      VENDOR  PRODUCT    STATE          ACTION   WWN
2:0:0:2  /dev/sg1  ZENTRA  ARRAY9000  changed        deleted  6a1b2c3d4e5f00020000000000000002 -> eeeeeeeeeeeeeeeeeeeeeeeeeeeeeeee
2:0:0:3  /dev/sg2  ZENTRA  ARRAY9000  removed        failed   6a1b2c3d4e5f00020000000000000003
3:0:0:1  /dev/sg3  ZENTRA  ARRAY9000  not connected  deleted  6a1b2c3d4e5f00030000000000000001
    iusse report lun ioctl fail{-1}!; inquiry 0x83 ioctl fail{-1}!
3:0:0:2  ?         ?       ?          left out       none     ?
    full name{/sys/devices/platform/host3/session1/target3:0:0/3:0:0:2/generic} read link fail.

Not rescanned: host3
Rescanned: 1 host, 1 controller.
status 0
)",
              Read(""));
    EXPECT_EQ(
        "VDRESCAN CRITICAL - run 1 of T: deletion failed: 2:0:0:3; left out: 3:0:0:2; not rescanned: host3; deleted: "
        "2:0:0:2 3:0:0:1 | disks=4 stale=3 deleted=2 failed=1 not_questioned=1 failed_queries=0\nstatus 2\n",
        Read("--check"));
}

// A device as lsblk prints it.
std::string Device(const std::string &name, const std::string &hctl, const std::string &type,
                   const std::string &mounts = "null", const std::string &children = "")
{
    return R"({"name":")" + name + R"(","maj:min":"8:)" + std::to_string(name.back()) + R"(","hctl":")" + hctl +
           R"(","type":")" + type + R"(","state":"running","mountpoints":[)" + mounts + R"(],"children":[)" + children +
           "]}";
}

// The map mpathb has lost the path sdf, and sdg is left out: sde is its last path.
TEST_F(MachineTest, ReaderShowsWhoUsesStaleDisks)
{
    AddScsiHost(2);
    const std::string other(32, 'e');
    AddDisk({.hctl = "2:0:0:1", .isReported = false});
    AddDisk({.hctl = "2:0:0:2"});
    AddDisk({.hctl = "2:0:0:3", .isReported = false});
    AddDisk({.hctl = "2:0:0:4"});
    AddDisk({.hctl = "2:0:0:5"});
    Remove("/dev/sg4");
    AddDisk({.hctl = "2:0:0:6", .now = other});
    AddDisk({.hctl = "2:0:0:7", .isReported = false});
    AddDisk({.hctl = "2:0:0:8", .isReported = false});
    const std::string mapA = Device("mpatha", "", "mpath", R"("/srv/a")");
    const std::string swap = Device("vg0-swap", "", "lvm", R"("[SWAP]")");
    const std::string mapB = Device("mpathb", "", "mpath", "null", swap + "," + Device("vg0-free", "", "lvm"));
    const std::string part =
        Device("sdh1", "", "part", R"("/srv/data","/srv/copy")") + "," + Device("sdh2", "", "part");
    Put("/run/lsblk",
        R"({"blockdevices":[)" + Device("sdb", "2:0:0:1", "disk", "null", mapA) + "," +
            Device("sdc", "2:0:0:2", "disk", "null", mapA) + "," + Device("sde", "2:0:0:3", "disk", "null", mapB) +
            "," + Device("sdf", "2:0:0:4", "disk", "null", mapB) + "," +
            Device("sdg", "2:0:0:5", "disk", "null", mapB) + "," + Device("sdh", "2:0:0:6", "disk", "null", part) +
            "," + Device("sdi", "2:0:0:7", "disk") + "]}");
    Put("/run/dmsetup",
        "mpatha: 0 8 multipath 2 0 0 0 1 1 A 0 2 0 8:98 A 0 8:99 A 0\n"
        "mpathb: 0 8 multipath 2 0 0 0 1 1 A 0 3 0 8:101 A 0 8:102 F 1 8:103 A 0\n");
    RunCommand("--mutual");
    EXPECT_EQ(R"(Run 1 of T, N seconds: complete.
The supported-device list was loaded. 7 supported disks found in 1 session, 1 left out, 0 others not in the list.
The operator was asked and said no.

ADDRESS  NODE      VENDOR  PRODUCT    STATE     ACTION  WWN
2:0:0:6  /dev/sg5  ZENTRA  ARRAY9000  changed   kept    6a1b2c3d4e5f00020000000000000006 -> eeeeeeeeeeeeeeeeeeeeeeeeeeeeeeee
    What uses it reads and writes another volume now.
    sdh > sdh1 > /srv/data
    sdh > sdh1 > /srv/copy
2:0:0:1  /dev/sg0  ZENTRA  ARRAY9000  removed   kept    6a1b2c3d4e5f00020000000000000001
    sdb > mpatha, 1 of 2 paths > /srv/a
2:0:0:3  /dev/sg2  ZENTRA  ARRAY9000  removed   kept    6a1b2c3d4e5f00020000000000000003
    sde > mpathb, its last path > vg0-swap > [SWAP]
    sde > mpathb, its last path > vg0-free
2:0:0:7  /dev/sg6  ZENTRA  ARRAY9000  removed   kept    6a1b2c3d4e5f00020000000000000007
    sdi > -
2:0:0:8  /dev/sg7  ZENTRA  ARRAY9000  removed   kept    6a1b2c3d4e5f00020000000000000008
?        /dev/sg4  ?       ?          left out  none    ?
    sg{/dev/sg4} check read authority fail.

Rescanned: 1 host, 0 controllers.
status 0
)",
              Read(""));
    EXPECT_EQ(0U, Read("--check").find(
                      "VDRESCAN CRITICAL - run 1 of T: changed and in use: 2:0:0:6 (/srv/data and 1 more); "));
    EXPECT_NE(std::string::npos,
              Read("--json").find(R"("block":"sdb","used_by":[["mpatha, 1 of 2 paths","/srv/a"]],"in_use":false)"));
    Remove("/run/dmsetup");
    EXPECT_NE(std::string::npos, Read("").find("sdb > mpatha, paths unknown > /srv/a\n"));
    EXPECT_NE(std::string::npos,
              Read("--json").find(R"("used_by":[["mpatha, paths unknown","/srv/a"]],"in_use":true)"));
    EXPECT_NE(std::string::npos,
              Read("--json " + std::string(kLog)).find(R"("block":null,"used_by":null,"in_use":null)"));
    Put("/run/lsblk", "no data");
    EXPECT_NE(std::string::npos, Read("").find("\nNot known: who uses the stale disks"));
    EXPECT_NE(std::string::npos, Read("--check").find("CRITICAL - run 1 of T: changed, and it is not known who uses"));
    EXPECT_NE(std::string::npos,
              Read("--check").find(" CRITICAL - run 1 of T: changed, and it is not known who uses them: 2:0:0:6;"));
}

TEST_F(MachineTest, ReaderCountsHours)
{
    for (const int minutes : {30, 90}) {
        const std::string time = READER_LocalTime(std::time(nullptr) - 60LL * minutes);
        Put(kLog, RecordOf("1 INFO SCAN_Init vdRescan_plus start...", time) +
                      RecordOf("2 INFO main vdRescan_plus end.", time));
        EXPECT_EQ(minutes > 60, Read("--check --max-age 1").find("too long ago") != std::string::npos) << minutes;
    }
}

// A run in the lab has written this log.
TEST(ReaderTest, ReportsTheStoryOfTheLab)
{
    const std::string story = (kTests / "story").string();
    const std::map<std::string, std::string> forms = {
        {"view", ""},
        {"check", " --check"},
        {"json", R"( --json | sed -E 's/([[{,])(["{])/\1\n\2/g')"}};  // a field a line
    for (const auto &[form, option] : forms) {
        const std::string command = VD_READER " " + story + "/log" + option + " | diff " + story + "/" + form + " -";
        EXPECT_EQ(0, std::system(command.c_str())) << command;
    }
}

// The log has more garbage and more runs than the reader can hold at once. At its end, records of two runs alternate.
// No record is lost.
TEST_F(MachineTest, ReaderKeepsRunsWholeInLongLogs)
{
    const std::string start = RecordOf("1 INFO SCAN_Init vdRescan_plus start...", kUsualTime);
    const std::string end = RecordOf("3 INFO main vdRescan_plus end.", kUsualTime);
    const std::string longRun =
        start + RecordOf("2 INFO main x\\c", kUsualTime) + std::string(120 << 10, 'x') + "\n" + end;
    std::string log(300 << 10, 'x');
    for (int run = 0; run < 560; ++run) {
        log += longRun;
    }
    Put(kLog, log + start + start + RecordOf("2 INFO SCAN_CreateScsiHost create scsi host{2} finish.", kUsualTime) +
                  RecordOf("2 WARN SCAN_Init WARN: there is one other vdRescan_plus running", kUsualTime) + end);
    const std::string all = Read("--all");
    EXPECT_EQ(562 + 1, std::count(all.begin(), all.end(), '\n'));
    EXPECT_EQ(std::string::npos, all.find("missing"));
}

// Takes the lock of a run. Closing the descriptor releases it.
int TakeLock()
{
    Put("/run/vdRescan_plus.pid", "1");
    const int fd = open("/run/vdRescan_plus.pid", O_RDWR | O_CLOEXEC);
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    EXPECT_EQ(0, fcntl(fd, F_SETLK, &lock));
    return fd;
}

// The run that holds the lock is at work, so it is not judged yet. A second copy, which is refused, does not hide it.
TEST_F(MachineTest, ReaderKnowsTheRunAtWork)
{
    const std::string start = RecordOf("1 INFO SCAN_Init vdRescan_plus start...", kUsualTime);
    const std::string complete = start + RecordOf("2 INFO main vdRescan_plus end.", kUsualTime);
    const std::string atWork = start + RecordOf("2 INFO SCAN_CreateScsiHost create scsi host{2} finish.", kUsualTime);
    const std::string refused =
        start + RecordOf("2 WARN SCAN_Init WARN: there is one other vdRescan_plus running", kUsualTime);
    const std::string numbers = " | disks=0 stale=0 deleted=0 failed=0 not_questioned=0 failed_queries=0\n";

    const int fd = TakeLock();
    const auto lockAt = [fd](std::time_t second) {
        const timespec times[] = {{second, 0}, {second, 0}};
        EXPECT_EQ(0, futimens(fd, times));
    };
    const std::time_t usualTime = READER_Seconds(kUsualTime).value();
    lockAt(usualTime);
    Put(kLog, complete + atWork + refused);
    EXPECT_EQ(
        "VDRESCAN WARNING - run 1 of T: no disk was looked at: --nocheck, or there is no SCSI disk; "
        "run 3 of T: refused: another copy; run 2 is at work since T" +
            numbers + "status 1\n",
        Read("--check"));
    EXPECT_NE(std::string::npos, Read("").find("not ended.\nIt is at work.\n"));
    Put(kLog, atWork);
    EXPECT_EQ("VDRESCAN UNKNOWN - no run to judge; run 1 is at work since T\nstatus 3\n", Read("--check"));
    // Run 1 was killed. Later another run, which cannot write the log, took the lock.
    lockAt(usualTime + 1);
    EXPECT_EQ("VDRESCAN CRITICAL - run 1 of T: no end is recorded; a run is at work since T" + numbers + "status 2\n",
              Read("--check"));
    (void)close(fd);  // releases the lock
    EXPECT_NE(std::string::npos, Read("").find("not ended.\nIt was stopped, or the log"));
}

// Waits until the follower has printed so many lines.
void WaitForLines(long count)
{
    for (std::string out; std::count(out.begin(), out.end(), '\n') < count; out = Content("/run/followed")) {
        usleep(20000);
    }
}

// It waits for the INQUIRY of 3:0:0:2, then for the REPORT LUNS of the last session. Then it deletes a disk.
TEST_F(MachineTest, ReaderFollowsTheRunAtWork)
{
    const int lock = TakeLock();
    struct stat file = {};
    ASSERT_EQ(0, fstat(lock, &file));
    const std::string time = READER_LocalTime(file.st_mtime);  // std::time may still be in the second before
    int number = 0;
    const auto record = [&](const std::string &text) { return RecordOf(std::to_string(++number) + " " + text, time); };
    std::string log = record("INFO SCAN_Init vdRescan_plus start...");
    for (const std::string disk : {"2:0:0:1", "2:0:0:2", "3:0:0:1", "3:0:0:2", "4:0:0:1", "4:0:0:2"}) {
        const std::string node = "/dev/sg" + std::to_string(number);
        Put(node, "");
        log += record("INFO SCAN_CreateScsiDisk create scsi disk{" + disk + ", ZENTRA, ARRAY9000, a1, " + node +
                      "} finish.");
    }
    log += record("INFO SCAN_PrintLunIds session{2:0:0} has luns:");
    log += record("ERROR SCAN_IssueReportLun iusse report lun ioctl fail{-1}!");
    log += record("ERROR SCAN_IssueReportLun iusse report lun ioctl fail{-1}!");
    Put(kLog, log);
    Put("/sys/class/scsi_generic/sg4/device/state", "running\n");
    const int node = open("/dev/sg4", O_RDONLY | O_CLOEXEC);
    (void)std::system("rm -f /run/followed; (" VD_READER " --follow > /run/followed; echo $? > /run/status) &");
    WaitForLines(1);
    const int next = open("/dev/sg6", O_RDONLY | O_CLOEXEC);
    (void)dup2(next, node);
    (void)close(next);
    WaitForLines(2);
    log = record("WARN SCAN_PrintRemoved     2:0:0:2");
    log += record("INFO SCAN_DeleteChangeDisk     delete 2:0:0:2 success.");
    std::ofstream(kLog, std::ios::app) << log;
    WaitForLines(3);
    (void)close(node);
    WaitForLines(4);
    log = record("INFO SCAN_DeleteChangeDisk     delete 3:0:0:1 fail.");
    std::ofstream(kLog, std::ios::app) << log + record("INFO main vdRescan_plus end.");
    (void)close(lock);
    while (Content("/run/status").empty()) {
        usleep(20000);
    }
    const std::string followed = Content("/run/followed");
    const std::string lines = followed.substr(0, followed.find("Run 1 of"));
    EXPECT_EQ(
        R"(run 1, T: session 2 of 3, 3:0:0:2 (/dev/sg4, running) silent for N s; 3 of 6 disks; at most 0:02:30 more
run 1, T: session 3 of 3, 4:0:0:2 (/dev/sg6, ?) silent for N s; 4 of 6 disks; at most 0:01:30 more
2:0:0:2: deleted
run 1, T: deletes, 1 of 1 disk
3:0:0:1: failed
)",
        std::regex_replace(std::regex_replace(lines, std::regex("1, [0-9:]+:"), "1, T:"), std::regex("[0-9]+ s;"),
                           "N s;"));
    EXPECT_NE(std::string::npos, followed.find(": complete.\n"));
    EXPECT_EQ("0\n", Content("/run/status"));
}

// A definition starts at the left margin, and so does the brace that ends it.
std::string BodyOf(const std::string &function, const std::string &sources)
{
    const std::string call = function + "(";
    for (std::size_t at = sources.find(call); at != std::string::npos; at = sources.find(call, at + 1)) {
        const std::size_t open = sources.find("\n{", at);
        const bool isIndented = sources[sources.rfind('\n', at) + 1] == ' ';
        if (!isIndented && sources.find(';', at) > open) {
            return sources.substr(open, sources.find("\n}\n", open) - open);
        }
    }
    return "";
}

// If scan/ alone renames a record function or a message, the reader no longer recognises it.
TEST(ReaderTest, KnowsTheMessagesOfTheCommand)
{
    std::string sources;
    for (const auto &entry : std::filesystem::directory_iterator(kTests.parent_path() / "scan")) {
        if (entry.path().extension() == ".cpp") {
            sources += Content(entry.path().string());
        }
    }
    for (const EventRow &row : READER_EventRows()) {
        EXPECT_NE(std::string::npos, BodyOf(std::string(row.function), sources).find("\"" + std::string(row.beginning)))
            << row.function << ": " << row.beginning;
    }
}

// Local times, with and without summer time, and in the hour that occurs twice.
TEST(ReaderTest, TakesTheFirstOfTwoEqualTimes)
{
    ASSERT_EQ(0, setenv("TZ", "Europe/Berlin", 1));
    EXPECT_EQ(1796122800, READER_Seconds("2026-12-01 12:00:00"));
    EXPECT_EQ(1792888200, READER_Seconds("2026-10-25 02:30:00"));  // mktime alone now takes the second
    EXPECT_EQ(1792893600, READER_Seconds("2026-10-25 03:00:00"));
    EXPECT_EQ(1782900000, READER_Seconds("2026-07-01 12:00:00"));
    ASSERT_EQ(0, unsetenv("TZ"));
    EXPECT_EQ(std::nullopt, READER_Seconds("2026-10-25"));
}

}  // namespace
