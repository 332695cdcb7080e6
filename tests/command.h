// Runs the command on a made-up machine: a private mount namespace whose /sys, /run, /opt, /dev and /etc are the
// machine's, in which the unmodified command is a process, or its operations are called directly.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "machine.h"

namespace machine {

// Enters the namespace; called once. MachineTest does so itself, and its tests stand aside where it cannot.
void Enter();

// Makes the machine empty, with what the command needs there: the command itself, the stand-in `nvme`, /dev/null.
void StartOver();

struct Result {
    int status;  // exit status; above 123 when the command was ended by its time limit or by a signal
    std::string out, err;
    std::string trace;   // what the run appended to the trace file
    std::string writes;  // "2:0:0:1/delete 1" or "host2/scan - - -", one line for each write, in order
};
// Runs the command. `args` and `environment` are words for the shell, such as "-m" and "PATH=/nowhere"; those of
// `environment` may end in a program that runs the command.
Result RunCommand(const std::string &args = "", const std::string &input = "", const std::string &environment = "");

// Path of the preloaded library that answers in the place of the kernel.
extern const std::string kSgDouble;

// A line "module function: message" for each record of the level in the trace.
std::string RecordsAt(const std::string &level, const std::string &trace = Content(kLog));

}  // namespace machine

// A test on an empty made-up machine, with the trace log set up in the test program too.
class MachineTest : public testing::Test {
protected:
    void SetUp() override;
};
