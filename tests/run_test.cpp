#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <functional>
#include <map>
#include <numeric>
#include <regex>
#include <sstream>

#include "host.h"

using namespace host;

namespace {

const std::string kScans =
    "start scan scsi host......\n    scan host2 success.\n    scan host3 success.\nend scan scsi host.\n"
    "start scan nvme ctrl......\n    scan nvme2 success.\nend scan nvme ctrl.\nvdRescan_plus end.\n";

void AddTargets()
{
    Reset();
    AddScsiHost(2);
    AddScsiHost(3);
    AddDevice("nvme", kFabrics + "nvme2");
}

// What the pattern finds in the text, each in the form of `format`.
std::string Each(const std::string &text, const std::string &pattern, const char *format)
{
    std::string found;
    const std::regex regex(pattern);
    for (std::sregex_iterator at(text.begin(), text.end(), regex), end; at != end; ++at) {
        found += at->format(format);
    }
    return found;
}

// A run that prints and records `report` and has then deleted exactly the disks that it claims to have deleted.
// Whatever it does with the disks, every target is rescanned, as `scans` claims. Returns its trace.
std::string CheckRun(const std::string &report, const std::string &args = "", const std::string &input = "",
                     const std::string &scans = kScans)
{
    Remove(kNvmeCalls);
    const Result result = RunCommand(args, input);
    EXPECT_EQ("vdRescan_plus start...\n" + report + scans, result.out);
    EXPECT_EQ(report.substr(0, std::min(report.find("If you want"), report.find("delete all"))),
              std::regex_replace(RecordsAt("WARN", result.trace),
                                 std::regex("SCAN SCAN_Print(NoConnect|Removed|Remapped): "), ""));
    EXPECT_EQ(Each(report, "    delete (\\S+) success", "$1/delete 1\n") +
                  Each(scans, "    scan (host\\d+) success", "$1/scan - - -\n"),
              result.writes);
    EXPECT_EQ(Each(scans, "    scan (nvme\\d+) ", "ns-rescan /dev/$1\n"), Content(kNvmeCalls));
    EXPECT_EQ(0, result.status);
    EXPECT_EQ("", result.err);
    return result.trace;
}

TEST_F(HostTest, EveryListedRun)
{
    std::vector<std::pair<std::regex, std::string>> lets = {{std::regex(R"(\\n)"), "\n"}};
    std::map<std::string, std::string> texts, answers;
    int runs = 0;
    // What a line means by its first word, where it is no text; `a` is its second word and `b` the rest.
    using Meaning = std::function<void(const std::string &a, const std::string &b)>;
    const std::map<std::string, Meaning> meanings = {
        {"let", [&](auto &a, auto &b) { lets.emplace_back(a, b); }},
        {"answer", [&](auto &a, auto &b) { answers[a] = b; }},
        {"dead", [&](auto &, auto &) { answers = kDead; }},
        {"luns",
         [&](auto &a, auto &b) {
             std::vector<std::uint64_t> luns(std::stoul(b) - std::stoul(a) + 1);
             std::iota(luns.begin(), luns.end(), std::stoul(a));
             answers["a0"] = LunAnswer(luns);
         }},
        {"disk",
         [&](auto &a, auto &b) {
             AddDisk({a, b.starts_with("now ") ? b.substr(4) : "", b != "unmapped", answers});
             answers.clear();
         }},
        {"device", AddDevice},
        {"put", Put},
        {"link", Link},
        {"remove", [](auto &a, auto &) { Remove(a); }},
        {"socket", [](auto &a, auto &) { Remove(a), (void)mknod(a.c_str(), S_IFSOCK | 0600, 0); }},  // cannot be opened
    };
    // A file left open here would reach `nvme`.
    std::istringstream list(std::regex_replace(Content(VD_RUNS) + "\n", std::regex(" ; "), "\n"));
    AddTargets();
    for (std::string line; std::getline(list, line);) {
        for (const auto &[name, text] : lets) {
            line = std::regex_replace(line, name, text);
        }
        const std::size_t second = line.find(' ') + 1, third = std::min(line.find(' ', second), line.size() - 1) + 1;
        const std::string word = line.substr(0, line.find(' '));
        if (meanings.contains(word)) {
            meanings.at(word)(line.substr(second, line.find(' ', second) - second), line.substr(third));
        } else if (!line.empty()) {
            ASSERT_NE(std::string::npos, std::string("# ## | s ! i >").find(word)) << line;
            texts[word] += line.substr(second) + "\n";
        } else if (texts.contains("#")) {
            const testing::ScopedTrace trace(VD_RUNS, ++runs, texts["#"]);
            const std::string &scans = texts["s"].empty() ? kScans : texts["s"];
            const std::string records = CheckRun(texts["|"], "", "", scans), sent = Content("/dev/sg0.log");
            EXPECT_EQ(texts["!"], RecordsAt("ERROR", records));
            EXPECT_NE(std::string::npos, RecordsAt("INFO", records).find(texts["i"])) << texts["i"] << records;
            EXPECT_TRUE(texts[">"].empty() || texts[">"] == sent) << sent;
            texts.clear();
            AddTargets();
        }
    }
    EXPECT_LT(50, runs);
}

TEST_F(HostTest, OnlyAYesDeletesInMutualMode)
{
    const std::string x255(255, 'x'), x256(256, 'x');
    // In front of the input: whether it deletes, and how many of its answers are invalid.
    for (const std::string &row :
         std::vector<std::string>{"+0yes\n", "+0y\n", "+0YES\n", "+0Y\n", "+1Yes\ny\n", "+2\n\nyes\n", "+0yes",
                                  "+1" + x256 + "yes\n", "+1" + x255 + "\nyes\n", "-0no\n", "-0n\nyes\n", "-0NO\n",
                                  "-0N\n", "-3 yes\nyes \nyess\nn\n", "-0", "-1yess", "-1" + x256}) {
        const testing::ScopedTrace trace(__FILE__, __LINE__, row);
        const bool isDeleted = row[0] == '+';
        const std::string input = row.substr(2), first = input.substr(0, std::min(input.find('\n'), x255.size()) + 1);
        std::string report =
            "there are many scsi disk removed, include below 1 scsi disk:\n    2:0:0:3\n"
            "If you want delete all map view changed scsi disk, please input [yes], or input [no]:";
        for (int retries = row[1] - '0'; retries > 0; --retries) {
            report += "Error: Invalid input!\nRetry input [yes|no]: ";
        }
        report += isDeleted ? "delete all map view changed scsi disk:\n    delete 2:0:0:3 success.\n" : "";
        AddTargets();
        AddDisk({.hctl = "2:0:0:3", .reported = false});
        const std::string records = RecordsAt("INFO", CheckRun(report, isDeleted ? "-m" : "--mutual", input));
        EXPECT_NE(std::string::npos, records.find("SCAN SCAN_ReadUserYesOrNo: input {" + first + "}\n"));
    }
}

TEST_F(HostTest, OptionsAreTakenWholeOrNotAtAll)
{
    AddTargets();
    AddDisk({.hctl = "2:0:0:3", .reported = false});
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

TEST_F(HostTest, OnlyRootRunsIt)
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

TEST_F(HostTest, OneRunAtATime)
{
    const std::string pidFile = "/run/vdRescan_plus.pid", record = "SCAN SCAN_CheckOnlyOneRun: ";
    AddTargets();
    // The shell prints its own process id before it becomes the command.
    Result result = RunCommand("", "", "sh -c 'echo $$; exec \"$0\"'");
    EXPECT_EQ(std::to_string(std::stoi(result.out)) + '\0', Content(pidFile));
    struct stat status = {};
    ASSERT_EQ(0, stat(pidFile.c_str(), &status));
    EXPECT_EQ(static_cast<mode_t>(S_IFREG | 0600), status.st_mode);

    Put(pidFile, "a holder of the lock");
    const int fd = open(pidFile.c_str(), O_RDWR | O_CLOEXEC);
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    ASSERT_EQ(0, fcntl(fd, F_SETLK, &lock));
    result = RunCommand();
    EXPECT_EQ(
        "vdRescan_plus start...\n"
        "WARN: there is one other vdRescan_plus running, please stop and try again!\n",
        result.out);
    EXPECT_EQ(record + "can't lock file{/run/vdRescan_plus.pid} with err{Resource temporarily unavailable}.\n",
              RecordsAt("ERROR", result.trace));
    EXPECT_EQ("", result.writes);
    EXPECT_EQ("a holder of the lock", Content(pidFile));
    (void)close(fd);
    CheckRun("");
    EXPECT_GT(10U, Content(pidFile).size());  // nothing of the longer text is left

    Link(pidFile, "/nowhere/vdRescan_plus.pid");
    result = RunCommand();
    EXPECT_EQ("", result.writes);
    EXPECT_EQ(record + "can't open file{/run/vdRescan_plus.pid} with err{No such file or directory}.\n",
              RecordsAt("ERROR", result.trace));
    Link(pidFile, "/dev/full");
    EXPECT_EQ(record + "write fail in file{/run/vdRescan_plus.pid} with err{No space left on device}.\n",
              RecordsAt("ERROR", CheckRun("")));
}

TEST_F(HostTest, WithoutAnAudienceOrNvmeTheRunGoesOn)
{
    AddTargets();
    EXPECT_NE(std::string::npos, RunCommand("-nc", "", "PATH=/nowhere").out.find("    scan nvme2 fail.\n"));
    for (const std::string environment : {"sh -c 'exec \"$0\" >&-'", "sh -c '(sleep 0.1; exec \"$0\") | :'"}) {
        AddTargets();
        AddDisk({.hctl = "2:0:0:3", .reported = false});
        EXPECT_EQ("2:0:0:3/delete 1\nhost2/scan - - -\nhost3/scan - - -\n", RunCommand("", "", environment).writes);
        EXPECT_EQ("ns-rescan /dev/nvme2\n", Content(kNvmeCalls));
        EXPECT_EQ("1- - -", Content(DiskDir("2:0:0:3") + "/delete") + Content(HostDir(2) + "/scan"));  // and no NUL
        EXPECT_GT(10U, Content("/run/vdRescan_plus.pid").size());  // no line of the output
    }
}

}  // namespace
