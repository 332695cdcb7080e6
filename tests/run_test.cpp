#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <regex>
#include <sstream>

#include "command.h"
#include "table.h"

using namespace machine;

namespace {

const std::string kScans =
    "start scan scsi host......\n    scan host2 success.\n    scan host3 success.\nend scan scsi host.\n"
    "start scan nvme ctrl......\n    scan nvme2 success.\nend scan nvme ctrl.\nvdRescan_plus end.\n";

using Lines = std::vector<std::string>;

Lines LinesOf(const std::string &text, const std::string &before = "")
{
    Lines lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(before + line);
    }
    return lines;
}

void AddTargets()
{
    StartOver();
    AddScsiHost(2);
    AddScsiHost(3);
    AddDevice("nvme", kFabrics + "nvme2");
}

// All matches of the pattern in the text, each formatted with `format`.
std::string Each(const std::string &text, const std::string &pattern, const char *format)
{
    std::string found;
    const std::regex regex(pattern);
    for (std::sregex_iterator at(text.begin(), text.end(), regex), end; at != end; ++at) {
        found += at->format(format);
    }
    return found;
}

// What a run that prints this must have written into attributes, and the words of its calls of `nvme`.
std::string WritesAndCalls(const std::string &printed)
{
    return Each(printed, "    delete (\\S+) success", "$1/delete 1\n") +
           Each(printed, "scan (host\\d+) success", "$1/scan - - -\n") +
           Each(printed, "scan (nvme\\d+) ", "ns-rescan /dev/$1\n");
}

// A run must print `report`, delete exactly the disks that it reports as deleted, and rescan every target. Returns its
// trace.
std::string CheckRun(const std::string &report, const std::string &args = "", const std::string &input = "")
{
    Remove(kNvmeCalls);
    const Result result = RunCommand(args, input);
    EXPECT_EQ("vdRescan_plus start...\n" + report + kScans, result.out);
    EXPECT_EQ(WritesAndCalls(report + kScans), result.writes + Content(kNvmeCalls));
    EXPECT_EQ(0, result.status);
    EXPECT_EQ("", result.err);
    return result.trace;
}

// A unified diff of two lists of lines. It uses GoogleTest's internal operation, so it looks like GoogleTest's own diff
// of texts.
std::string Difference(const Lines &expected, const Lines &found)
{
    return expected == found ? "" : testing::internal::edit_distance::CreateUnifiedDiff(expected, found);
}

// The lines of one word of the table, without the word.
std::string TextOf(const Lines &expected, const std::string &word)
{
    std::string text;
    for (const std::string &line : expected) {
        text += line.starts_with(word + " ") ? line.substr(word.size() + 1) + "\n" : "";
    }
    return text;
}

// Result of a run in the words of the table. Contains only what the table expects to compare.
Lines Outcome(const Result &result, const Lines &expected)
{
    Lines found;
    const auto add = [&found](const std::string &word, const std::string &text) {
        const Lines lines = LinesOf(text, word + " ");
        found.insert(found.end(), lines.begin(), lines.end());
    };
    static const std::regex usual("^vdRescan_plus start...\n((.*\n)*)" + kScans + "$");
    add("prints", std::regex_replace(result.out, usual, "$1"));
    const std::string deeds = result.writes + Content(kNvmeCalls);
    add("but does", deeds == WritesAndCalls(result.out) ? "" : deeds);
    add("error", RecordsAt("ERROR", result.trace));
    const std::string infos = "\n" + RecordsAt("INFO", result.trace);
    std::size_t at = 0;
    for (const std::string &line : expected) {
        const std::size_t next = line.starts_with("info ") ? infos.find("\n" + line.substr(5) + "\n", at) : infos.npos;
        if (next != std::string::npos) {
            found.push_back(line);
            at = next + 1;
        }
    }
    add("sends", TextOf(expected, "sends").empty() ? "" : Content("/dev/sg0.log"));
    return found;
}

std::vector<table::Case> ListedRuns()
{
    try {
        std::ifstream file(VD_RUNS);
        std::vector<table::Case> runs = table::Read(file, VD_RUNS);
        runs.erase(runs.begin());
        return runs;
    } catch (const std::runtime_error &error) {
        (void)std::fprintf(stderr, "%s\n", error.what());
        std::exit(1);
    }
}

class ListedRun : public MachineTest, public testing::WithParamInterface<table::Case> {};

TEST_P(ListedRun, ComesOutAsListed)
{
    AddTargets();
    for (const auto &step : GetParam().machine) {
        step();
    }
    const Result result = RunCommand();
    const Lines &expected = GetParam().expected;
    const std::regex operation("SCAN SCAN_Print(NoConnect|Removed|Remapped): ");
    const std::string recorded = std::regex_replace(RecordsAt("WARN", result.trace), operation, "");
    const std::string printed = TextOf(expected, "prints");
    // The report, up to the first deletion or rescan, must be recorded as it is printed.
    const std::string report = printed.substr(0, std::min(printed.find("delete all"), printed.find("vdRescan_plus")));
    std::string difference = Difference(expected, Outcome(result, expected));
    if (difference.empty()) {
        difference = Difference(LinesOf(report), LinesOf(recorded)) + result.err;
    }
    if (!difference.empty() || result.status != 0) {
        ADD_FAILURE_AT(VD_RUNS, GetParam().line) << difference << "\n" << GetParam().text;
    }
}

INSTANTIATE_TEST_SUITE_P(Runs, ListedRun, testing::ValuesIn(ListedRuns()),
                         [](const auto &run) { return run.param.name; });

// Each row is refused where it is read or when its machine is made. If it were not, it would do no harm.
TEST_F(MachineTest, ATableRefusesWhatItCannotDo)
{
    for (const Lines &rows :
         {Lines{"answer sg1 inquiry errno=EIO", "answer sg0 inquiry attempt=4", "answer sg0 inquiry luns=9..1"},
          Lines{"disk 2:0:0:1", "disk 2:0:0:4294967296", "disk 2:0:0:2\r", " disk 2:0:0:2", "disk\t2:0:0:2"},
          Lines{"file etc/foo y", "file /proc/x y", "file /sys/../proc/x y", "remove /etc", "remove /sys/nothing"},
          Lines{"link /sys/link", "device nvme /sys/a b", "file /sys/x $lowercase", "let A", "let TWICE b"}}) {
        for (const std::string &row : rows) {
            std::istringstream description("let TWICE a\ndisk 2:0:0:1\n" + row + "\n");
            const auto make = [&description] {
                const table::Case last = table::Read(description, "t").back();
                for (const auto &step : last.machine) {
                    step();
                }
            };
            EXPECT_THROW(make(), std::runtime_error) << row;
        }
    }
}

TEST_F(MachineTest, OnlyAYesDeletesInMutualMode)
{
    const std::string x255(255, 'x');
    const std::string x256(256, 'x');
    const struct {
        std::string input;
        std::string first;  // the part of it that the run reads as the first answer
        int retries;
        bool deletes;
    } cases[] = {
        {"yes\n", "yes\n", 0, true},
        {"y\n", "y\n", 0, true},
        {"YES\n", "YES\n", 0, true},
        {"Y\n", "Y\n", 0, true},
        {"Yes\ny\n", "Yes\n", 1, true},
        {"yes", "yes", 0, true},
        {x255 + "\nyes\n", x255 + "\n", 1, true},
        {x256 + "yes\n", x256, 1, true},
        {"no\n", "no\n", 0, false},
        {"n\nyes\n", "n\n", 0, false},
        {"NO\n", "NO\n", 0, false},
        {"N\n", "N\n", 0, false},
        {" yes\nyes \nyess\nn\n", " yes\n", 3, false},
        {"", "", 0, false},
        {x256, x256, 1, false},
    };
    for (const auto &c : cases) {
        const testing::ScopedTrace input(__FILE__, __LINE__, "input {" + c.input + "}");
        std::string retries;
        std::string report =
            "there are many scsi disk removed, include below 1 scsi disk:\n    2:0:0:3\n"
            "If you want delete all map view changed scsi disk, please input [yes], or input [no]:";
        for (int i = 0; i < c.retries; ++i) {
            const std::string again = "Error: Invalid input!\nRetry input [yes|no]: ";
            report += again;
            retries += "SCAN SCAN_ReadUserYesOrNo: " + again + "\n";
        }
        report += c.deletes ? "delete all map view changed scsi disk:\n    delete 2:0:0:3 success.\n" : "";
        AddTargets();
        AddDisk({.hctl = "2:0:0:3", .isReported = false});
        const std::string trace = CheckRun(report, c.deletes ? "-m" : "--mutual", c.input);
        const std::string infos = RecordsAt("INFO", trace);
        EXPECT_NE(std::string::npos, infos.find("SCAN SCAN_ReadUserYesOrNo: input {" + c.first + "}\n"));
        EXPECT_EQ(c.deletes, infos.find("SCAN_DeleteChangeDisk:     delete 2:0:0:3 success.\n") != std::string::npos);
        EXPECT_EQ(retries, RecordsAt("ERROR", trace));
    }
}

// Another program may make the terminal's input non-blocking.
TEST_F(MachineTest, HalfAnAnswerBeforeAReadErrorIsNo)
{
    AddTargets();
    AddDisk({.hctl = "2:0:0:3", .isReported = false});
    int ends[2];
    ASSERT_EQ(0, pipe2(ends, O_NONBLOCK));
    ASSERT_EQ(1, write(ends[1], "y", 1));
    const std::string input = "<&" + std::to_string(ends[0]);
    const Result result = RunCommand("", "", "sh -c 'exec \"$0\" -m " + input + "'");
    EXPECT_EQ("host2/scan - - -\nhost3/scan - - -\n", result.writes);
    (void)close(ends[0]);
    (void)close(ends[1]);
}

TEST_F(MachineTest, OptionsAreTakenWholeOrNotAtAll)
{
    AddTargets();
    AddDisk({.hctl = "2:0:0:3", .isReported = false});
    for (const char *args : {"-nc", "--nocheck", "-nc -m", "-m -nc", "--nocheck --mutual", "-m --nocheck"}) {
        CheckRun("", args);
    }
    for (const char *args :
         {"-x", "''", "-ncm", "--NOCHECK", "--mutual=1", "-nc -nc", "-m --mutual", "-nc x", "-nc -m -m"}) {
        const Result result = RunCommand(args);
        EXPECT_EQ(R"(vdRescan_plus start...
WARN: input param invalid.
USAGE: /run/bin/vdRescan_plus [-nc|--nocheck] [-m|--mutual]
Scan device command provided by veridane-nvme.
If no parameter, it will silently check and remove the stale devices, and then scan device. )"
                  R"(The stale devices contain those that have been removed, changed and unconnected.
    -nc|--nocheck:  only scan device, and don't check the stale devices.
    -m|--mutual: when the stale device is existence, an interaction is given and the customer confirms whether to remove.
)",
                  result.out);
        EXPECT_EQ("SCAN main: WARN: input param invalid.\n", RecordsAt("WARN", result.trace)) << args;
        EXPECT_TRUE(result.writes.empty() && result.status == 0) << args;
    }
}

// If every disk left a descriptor open, none would be left for later queries, and a healthy session would count as not
// connected.
TEST_F(MachineTest, ManyDisksNeedFewDescriptors)
{
    AddTargets();
    for (int lun = 0; lun < 40; ++lun) {
        AddDisk({.hctl = "2:0:0:" + std::to_string(lun)});
    }
    const Result result = RunCommand("", "", "sh -c 'ulimit -n 24; exec \"$0\"'");
    EXPECT_EQ("vdRescan_plus start...\n" + kScans, result.out);
    EXPECT_EQ("", RecordsAt("ERROR", result.trace));
}

TEST_F(MachineTest, OnlyRootRunsIt)
{
    if (std::system("unshare --user true 2> /run/err") != 0) {
        GTEST_SKIP() << "no user namespace to be another user in";
    }
    AddTargets();
    const Result result = RunCommand("-x", "", "unshare --user");
    EXPECT_EQ(
        "vdRescan_plus start...\nWARN: please exit and run as root!\n"
        "SCAN SCAN_Init: WARN: please exit and run as root!\n",
        result.out + RecordsAt("WARN", result.trace));
    EXPECT_NE(0, access("/run/vdRescan_plus.pid", F_OK));
}

TEST_F(MachineTest, OneRunAtATime)
{
    const std::string pidFile = "/run/vdRescan_plus.pid";
    AddTargets();
    // The shell prints its own process id before it becomes the command.
    Result result = RunCommand("", "", "sh -c 'echo $$; exec \"$0\"'");
    EXPECT_EQ(std::to_string(std::stoi(result.out)) + '\0', Content(pidFile));
    struct stat status = {};
    ASSERT_EQ(0, stat(pidFile.c_str(), &status));
    EXPECT_EQ(static_cast<mode_t>(S_IFREG | 0600), status.st_mode);
    for (const auto &[mask, mode] : {std::pair{"0", 0640U}, std::pair{"077", 0600U}}) {
        Remove(kLog);
        (void)RunCommand("", "", std::string("sh -c 'umask ") + mask + "; exec \"$0\" -nc'");
        ASSERT_EQ(0, stat(kLog.c_str(), &status));
        EXPECT_EQ(S_IFREG | mode, status.st_mode);
    }

    Put(pidFile, "a holder of the lock");
    const int fd = open(pidFile.c_str(), O_RDWR | O_CLOEXEC);
    struct flock lock = {};
    lock.l_type = F_RDLCK;  // conflicts only with an exclusive lock
    ASSERT_EQ(0, fcntl(fd, F_SETLK, &lock));
    result = RunCommand();
    EXPECT_EQ(
        "vdRescan_plus start...\n"
        "WARN: there is one other vdRescan_plus running, please stop and try again!\n",
        result.out);
    EXPECT_EQ(
        "SCAN SCAN_CheckOnlyOneRun: can't lock file{/run/vdRescan_plus.pid} with err{Resource temporarily "
        "unavailable}.\n",
        RecordsAt("ERROR", result.trace));
    EXPECT_EQ("", result.writes);
    EXPECT_EQ("a holder of the lock", Content(pidFile));
    (void)close(fd);
    CheckRun("");
    EXPECT_GT(10U, Content(pidFile).size());  // the longer text is gone
}

TEST_F(MachineTest, WithoutAnAudienceOrNvmeTheRunGoesOn)
{
    AddTargets();
    EXPECT_NE(std::string::npos, RunCommand("-nc", "", "PATH=/nowhere").out.find("    scan nvme2 fail.\n"));
    // Even if the caller ignores SIGCHLD, the run must get the exit status of `nvme`.
    EXPECT_EQ("vdRescan_plus start...\n" + kScans, RunCommand("-nc", "", "env --ignore-signal=CHLD").out);
    // With a limit of 512 bytes, the trace log is soon full.
    for (const std::string environment :
         {"sh -c 'ulimit -f 1; exec \"$0\"'", "sh -c 'exec \"$0\" <&- >&-'", "sh -c '(sleep 0.1; exec \"$0\") | :'"}) {
        AddTargets();
        AddDisk({.hctl = "2:0:0:3", .isReported = false});
        EXPECT_EQ("2:0:0:3/delete 1\nhost2/scan - - -\nhost3/scan - - -\n", RunCommand("", "", environment).writes);
        EXPECT_TRUE(Content(kNvmeCalls).starts_with("ns-rescan /dev/nvme2\n"));
        EXPECT_EQ("1- - -", Content(DiskDir("2:0:0:3") + "/delete") + Content(HostDir(2) + "/scan"));  // and no NUL
        EXPECT_GT(10U, Content("/run/vdRescan_plus.pid").size());  // no line of the output
    }
}

}  // namespace
