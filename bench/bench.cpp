// Times the command against the baseline, in turn, on simulated hosts of several shapes, and prints a table. With a
// name as argument, it plays only the shapes whose names begin with that.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>

#include "command.h"
#include "shape.h"

namespace {

constexpr int kRounds = 5;

struct Shape {
    const char *name;
    unsigned int sessions;
    unsigned int luns;     // of each session
    unsigned int entries;  // of the supported-device list; only the last one matches
};

constexpr Shape kShapes[] = {{"usual", 4, 64, 1},         {"usual", 4, 256, 1},         {"usual", 16, 256, 1},
                             {"usual", 64, 256, 1},       {"one session", 1, 16384, 1}, {"small sessions", 4096, 4, 1},
                             {"long list", 64, 256, 1000}};

struct Cost {
    double wall = 1e9;  // seconds
    double user = 1e9;
    double system = 1e9;
    double peakKiB = 1e9;
};

void MakeMachine(const Shape &shape)
{
    machine::StartOver();
    machine::AddScsiHost(0);
    std::string list = "[vendors]\n";
    for (unsigned int i = 1; i < shape.entries; ++i) {
        list += "vendor_id=ZENTRA,product_id=OTHER" + std::to_string(i) + "\n";
    }
    machine::Put(machine::kConfig, list + "vendor_id=ZENTRA,product_id=ARRAY9000\n");
    for (unsigned int session = 0; session < shape.sessions; ++session) {
        for (unsigned int lun = 0; lun < shape.luns; ++lun) {
            machine::AddDisk({.hctl = "0:0:" + std::to_string(session) + ":" + std::to_string(lun),
                              .now = IsChanged(lun) ? machine::Wwn("9:9:9:9") : "",
                              .isReported = !IsRemoved(lun)});
        }
    }
}

double Seconds(const timeval &time)
{
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

// Runs the program once and keeps the lowest cost: other work on the machine only adds to it.
void Run(const char *program, Cost &cost)
{
    machine::Remove(machine::kLog);
    machine::Put("/run/writes", "");
    const auto start = std::chrono::steady_clock::now();
    const pid_t child = fork();
    if (child == 0) {
        (void)dup2(open("/run/out", O_WRONLY | O_CREAT | O_TRUNC, 0600), STDOUT_FILENO);
        (void)setenv("LD_PRELOAD", machine::kSgDouble.c_str(), 1);
        (void)execl(program, program, nullptr);
        _exit(127);
    }
    int status = 0;
    rusage usage = {};
    if (wait4(child, &status, 0, &usage) != child || status != 0) {
        std::printf("%s failed with status %d\n", program, status);
        std::exit(1);
    }
    cost.wall = std::min(cost.wall, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    cost.user = std::min(cost.user, Seconds(usage.ru_utime));
    cost.system = std::min(cost.system, Seconds(usage.ru_stime));
    cost.peakKiB = std::min(cost.peakKiB, static_cast<double>(usage.ru_maxrss));
}

}  // namespace

int main(int argc, char *argv[])
{
    machine::Enter();
    std::printf("%-15s %7s %9s %8s %8s %9s %9s %8s %7s %9s\n", "shape", "disks", "wall ms", "user ms", "sys ms",
                "us/disk", "base ms", "x base", "growth", "B/disk");
    double before = 0;
    for (const Shape &shape : kShapes) {
        if (argc > 1 && std::string(shape.name).find(argv[1]) != 0) {
            continue;
        }
        const double disks = shape.sessions * shape.luns;
        MakeMachine(shape);
        Cost tool;
        Cost baseline;
        for (int round = 0; round < kRounds; ++round) {
            Run("/run/bin/vdRescan_plus", tool);
            Run(VD_BASELINE, baseline);
        }
        std::printf("%-15s %7.0f %9.1f %8.1f %8.1f %9.1f %9.1f %8.2f %7.2f %9.0f\n", shape.name, disks, 1e3 * tool.wall,
                    1e3 * tool.user, 1e3 * tool.system, 1e6 * tool.wall / disks, 1e3 * baseline.wall,
                    tool.wall / baseline.wall, before == 0 ? 1 : tool.wall / before,
                    1024 * (tool.peakKiB - baseline.peakKiB) / disks);
        before = tool.wall;
        (void)std::fflush(stdout);
    }
    return 0;
}
