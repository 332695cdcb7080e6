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
const std::string kScanWrites = "host2/scan - - -\nhost3/scan - - -\n";

void AddTargets()
{
    Reset();
    AddScsiHost(2);
    AddScsiHost(3);
    AddDevice("nvme", kFabrics + "nvme2");
}

// A run that prints `report` and has then deleted exactly the disks that it claims to have deleted. Whatever it does
// with the disks, every target is rescanned. Returns its trace.
std::string CheckRun(const std::string &report, const std::string &args = "", const std::string &input = "")
{
    Remove(kNvmeCalls);
    const Result result = RunCommand(args, input);
    EXPECT_EQ("vdRescan_plus start...\n" + report + kScans, result.out);
    std::string writes;
    const std::regex claim("    delete (\\S+) success\\.\n");
    for (std::sregex_iterator at(report.begin(), report.end(), claim), end; at != end; ++at) {
        writes += at->str(1) + "/delete 1\n";
        EXPECT_EQ("1", Content(DiskDir(at->str(1)) + "/delete"));
    }
    EXPECT_EQ(writes + kScanWrites, result.writes);
    EXPECT_EQ("- - -", Content(HostDir(2) + "/scan"));
    EXPECT_EQ("ns-rescan /dev/nvme2\n", Content(kNvmeCalls));
    EXPECT_EQ(0, result.status);
    EXPECT_EQ("", result.err);
    return result.trace;
}

// A line of runs.txt, its abbreviations written out.
std::string Expand(std::string line)
{
    line = std::regex_replace(line, std::regex("DIR"), DiskDir("2:0:0:1"));
    line = std::regex_replace(line, std::regex("\\\\n"), "\n");
    for (std::smatch match; std::regex_search(line, match, std::regex("x\\*(\\d+)"));) {
        line = match.prefix().str() + std::string(std::stoul(match.str(1)), 'x') + match.suffix().str();
    }
    return line;
}

TEST_F(HostTest, EveryListedRun)
{
    std::string name, rules, report, errors, warnings, infos, sent;
    int runs = 0;
    // What a line means by its first word; `a` is its second word and `b` the rest.
    using Meaning = std::function<void(const std::string &a, const std::string &b)>;
    const std::map<std::string, Meaning> meanings = {
        {"page", [&](auto &a, auto &) { rules += PageRule(Wwn(a)); }},
        {"dead", [&](auto &, auto &) { rules += kDead; }},
        {"device", AddDevice},
        {"put", Put},
        {"link", Link},
        {"remove", [](auto &a, auto &) { Remove(a); }},
        {"socket", [](auto &a, auto &) { Remove(a), (void)mknod(a.c_str(), S_IFSOCK | 0600, 0); }},  // cannot be opened
        {"disk",
         [&](auto &a, auto &b) {
             AddDisk({a, b.starts_with("now ") ? b.substr(4) : "", b != "unmapped", rules});
             rules.clear();
         }},
        {"L",
         [&](auto &a, auto &) {
             char command[64];
             (void)std::snprintf(command, sizeof command, "a00000000000%08lx0000 %s\n", std::stoul(a), a.c_str());
             sent += command;
         }},
        {"I", [&](auto &, auto &) { sent += "120183040000 1024\n"; }},
        {"luns",
         [&](auto &a, auto &b) {
             std::vector<std::uint64_t> luns(std::stoul(b) - std::stoul(a) + 1);
             std::iota(luns.begin(), luns.end(), std::stoul(a));
             rules += LunRule(luns);
         }},
    };
    const std::map<std::string, std::string *> texts = {
        {"rule", &rules}, {"|", &report}, {"!", &errors}, {"w", &warnings}, {"i", &infos}};
    // A file left open here would reach `nvme`.
    std::istringstream list(std::regex_replace(Content(VD_RUNS) + "\n", std::regex(" ; "), "\n"));
    for (std::string line; std::getline(list, line);) {
        const std::string word = line.substr(0, line.find(' ')), text = Expand(line.substr(line.find(' ') + 1));
        if (word == "#") {
            AddTargets();
            name = text;
        } else if (line.empty() && !name.empty()) {
            const testing::ScopedTrace trace(VD_RUNS, ++runs, name);
            const std::string records = CheckRun(report);
            EXPECT_EQ(errors, RecordsAt("ERROR", records));
            EXPECT_TRUE(warnings.empty() || warnings == RecordsAt("WARN", records)) << records;
            EXPECT_NE(std::string::npos, RecordsAt("INFO", records).find(infos)) << infos << records;
            EXPECT_TRUE(sent.empty() || sent == Content("/dev/sg0.log")) << Content("/dev/sg0.log");
            for (std::string *done : {&name, &report, &errors, &warnings, &infos, &sent}) {
                done->clear();
            }
        } else if (texts.contains(word)) {
            *texts.at(word) += text + "\n";
        } else if (!line.empty() && word != "##") {
            const std::size_t blank = std::min(text.find(' '), text.size());
            meanings.at(word)(text.substr(0, blank), text.substr(std::min(blank + 1, text.size())));
        }
    }
    EXPECT_LT(50, runs);
}

TEST_F(HostTest, EveryTargetIsTriedAndOnlyFabricsControllersAreRescanned)
{
    const std::string nvme62 = "nvme" + std::string(58, '1');
    AddTargets();
    Remove(HostDir(2) + "/scan");
    AddDevice("scsi_host", "/sys/devices/" + std::string(226, 'd') + "/scsi_host/host4");  // one character too many
    AddDevice("scsi_host", "/sys/devices/hostless");
    AddDevice("nvme", "/sys/devices/pci0000:00/0000:00:04.0/nvme/nvme0");
    for (const std::string &name : std::vector<std::string>{"nvme1", "nvme1c2", nvme62, nvme62 + "1"}) {
        AddDevice("nvme", kFabrics + name);
    }
    Put(kNvmeFail + "nvme1", "");
    const Result result = RunCommand("-nc");
    EXPECT_EQ(
        "vdRescan_plus start...\nstart scan scsi host......\n    scan host4 fail.\n    scan host2 fail.\n"
        "    scan host3 success.\nend scan scsi host.\nstart scan nvme ctrl......\n    scan nvme1 fail.\n    scan " +
            nvme62 + " success.\n    scan nvme2 success.\nend scan nvme ctrl.\nvdRescan_plus end.\n",
        result.out);
    EXPECT_EQ("ns-rescan /dev/nvme1\nns-rescan /dev/" + nvme62 + "\nns-rescan /dev/nvme2\n", Content(kNvmeCalls));
    EXPECT_EQ("host3/scan - - -\n", result.writes);
    EXPECT_EQ(
        "SCAN SCAN_HandUdevScsiHost: get host num by scsi host path{/sys/devices/hostless} fail.\n"
        "SCAN SCAN_HandUdevNvmeHost: nvme strtok ctrl by path{/sys/devices/pci0000:00/0000:00:04.0/nvme/nvme0} fail.\n"
        "SCAN SCAN_CreateNvmeCtrl: strncpy_s ctrl failed by{" +
            nvme62 +
            "1}.\n"
            "SCAN SCAN_CreateNvmeCtrl: get the ctrl{nvme1c2} is invalid.\n"
            "UDEV INTF_UTIL_Write: open file{/scan} failed!\nSCAN SCAN_ScanScsiHost: fail.\n"
            "UDEV INTF_UTIL_Write: open file{/sys/devices/platform/host2/scsi_host/host2/scan} failed!\n"
            "SCAN SCAN_ScanScsiHost: fail.\nSCAN SCAN_ScanNvmeCtrl: fail.\n",
        RecordsAt("ERROR", result.trace));
    EXPECT_NE(std::string::npos, RunCommand("-nc", "", "PATH=/nowhere").out.find("    scan nvme2 fail.\n"));
    Put("/sys/class", "");
    EXPECT_EQ(
        "vdRescan_plus start...\nERROR: get scsi host fail by udev.\nERROR: get nvme ctrl fail by udev.\n"
        "ERROR: get scsi disk fail by udev.\nstart scan scsi host......\nend scan scsi host.\n"
        "start scan nvme ctrl......\nend scan nvme ctrl.\nvdRescan_plus end.\n",
        RunCommand().out);
}

TEST_F(HostTest, OnlyAYesDeletesInMutualMode)
{
    const std::string x255(255, 'x'), x256(256, 'x');
    // The digit in front of the input tells how many of the answers are invalid.
    const auto check = [](const std::string &row, bool isDeleted) {
        const testing::ScopedTrace trace(__FILE__, __LINE__, row);
        const std::string input = row.substr(1),
                          first = input.substr(0, std::min<std::size_t>(input.find('\n'), 255) + 1);
        std::string report =
            "there are many scsi disk removed, include below 1 scsi disk:\n    2:0:0:3\n"
            "If you want delete all map view changed scsi disk, please input [yes], or input [no]:";
        for (int retries = row[0] - '0'; retries > 0; --retries) {
            report += "Error: Invalid input!\nRetry input [yes|no]: ";
        }
        report += isDeleted ? "delete all map view changed scsi disk:\n    delete 2:0:0:3 success.\n" : "";
        AddTargets();
        AddDisk({.hctl = "2:0:0:3", .reported = false});
        const std::string records = RecordsAt("INFO", CheckRun(report, isDeleted ? "-m" : "--mutual", input));
        EXPECT_NE(std::string::npos, records.find("SCAN SCAN_ReadUserYesOrNo: input {" + first + "}\n"));
    };
    for (const std::string &row :
         std::vector<std::string>{"0yes\n", "0y\n", "0YES\n", "0Y\n", "1Yes\ny\n", "2\n\nyes\n", "0yes",
                                  "1" + x256 + "yes\n", "1" + x255 + "\nyes\n"}) {
        check(row, true);
    }
    for (const std::string &row : std::vector<std::string>{"0no\n", "0n\nyes\n", "0NO\n", "0N\n",
                                                           "3 yes\nyes \nyess\nn\n", "0", "1yess", "1" + x256}) {
        check(row, false);
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
        EXPECT_EQ("", result.writes) << args;
        EXPECT_EQ("SCAN main: WARN: input param invalid.\n", RecordsAt("WARN", result.trace)) << args;
        EXPECT_EQ(0, result.status) << args;
    }
}

TEST_F(HostTest, OneRunAtATimeAndOnlyAsRoot)
{
    const std::string pidFile = "/run/vdRescan_plus.pid", record = "SCAN SCAN_CheckOnlyOneRun: ";
    AddTargets();
    Result result = RunCommand("-x", "", "unshare --user");
    EXPECT_EQ("vdRescan_plus start...\nWARN: please exit and run as root!\n", result.out) << result.err;
    EXPECT_EQ("SCAN SCAN_Init: WARN: please exit and run as root!\n", RecordsAt("WARN", result.trace));
    EXPECT_NE(0, access(pidFile.c_str(), F_OK));

    // The shell prints its own process id before it becomes the command.
    result = RunCommand("", "", "sh -c 'echo $$; exec \"$0\"'");
    EXPECT_EQ(result.out.substr(0, result.out.find('\n')) + std::string(1, '\0'), Content(pidFile));
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

TEST_F(HostTest, OutputThatNobodyTakesEndsNothing)
{
    for (const std::string environment : {"sh -c 'exec \"$0\" >&-'", "sh -c '(sleep 0.1; exec \"$0\") | :'"}) {
        AddTargets();
        AddDisk({.hctl = "2:0:0:3", .reported = false});
        EXPECT_EQ("2:0:0:3/delete 1\n" + kScanWrites, RunCommand("", "", environment).writes);
        EXPECT_EQ("ns-rescan /dev/nvme2\n", Content(kNvmeCalls));
        EXPECT_GT(10U, Content("/run/vdRescan_plus.pid").size());  // no line of the output
    }
}

}  // namespace
