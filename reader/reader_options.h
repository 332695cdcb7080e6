// The arguments of the program.
#pragma once

#include <bitset>
#include <string>

#include "reader_check.h"

inline constexpr const char *kReaderUsage =
    "usage: vdRescan_log [--all | --run N] [--json] [FILE | -]\n"
    "       vdRescan_log --check [--run N] [--since TIME] [--max-age HOURS] [--must-look]\n"
    "                    [--ignore H:C:T:L]... [FILE | -]\n"
    "       vdRescan_log --follow\n"
    "       vdRescan_log --help | --version\n"
    "Reads the trace log of vdRescan_plus and prints what its last run did.\n"
    "    --all            print all runs, one line each, newest last\n"
    "    --run N          print the run with that number\n"
    "    --json           print the same as data\n"
    "    --follow         print how far the run at work is, then what it did\n"
    "    --check          print one line and end with a status for a monitoring system\n"
    "    --since TIME     with --check: only a run that began then or later counts;\n"
    "                     seconds since the epoch, as date +%s prints\n"
    "    --max-age HOURS  with --check: the last run must not be older\n"
    "    --must-look      with --check: the last run must have looked at disks\n"
    "    --ignore H:C:T:L with --check: this disk need not be questioned; may be given several times\n";

// The options: indices of a set, and the values that getopt_long returns.
enum Option { kAll = 1, kRun, kJson, kCheck, kSince, kMaxAge, kMustLook, kIgnore, kFollow, kHelp, kVersion };

struct Settings {
    std::bitset<kVersion + 1> given;
    long long number = 0;  // of --run
    Demands demands;
    const char *path = nullptr;
    bool isOwnLog = false;       // the log of this host, not a FILE
    bool isDateChecked = false;  // no run may be dated later than now

    [[nodiscard]] bool Has(Option wanted) const { return given[wanted]; }
};

// Reads all arguments into `settings`, even after a fault. Returns the first fault in words; empty if there is none.
[[nodiscard]] std::string READER_ReadArguments(int argc, char *argv[], Settings &settings);
