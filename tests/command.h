// Runs the command on a simulated machine: a mount namespace with the machine's /sys, /run, /opt, /dev and /etc.
// The unmodified command runs there as a process, or a test calls its operations directly.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "machine.h"

namespace machine {

// Enters the namespace. Called once. MachineTest calls it itself and skips its tests if that fails.
void Enter();

// Empties the machine and adds what the command needs: the command itself, the stand-in `nvme`, /dev/null.
void StartOver();

struct Result {
    int status;  // wait status
    std::string out, err;
    std::string trace;   // what the run appended to the trace log
    std::string writes;  // "2:0:0:1/delete 1" or "host2/scan - - -", one line for each write, in order
};
// Runs the command. `args` and `environment` are words for the shell, such as "-m" and "PATH=/nowhere". `environment`
// may end in a program that runs the command.
Result RunCommand(const std::string &args = "", const std::string &input = "", const std::string &environment = "");

// Path of the preloaded library that answers instead of the kernel.
extern const std::string kSgDouble;

// One line "module function: message" for each record of that level in the trace.
std::string RecordsAt(const std::string &level, const std::string &trace = Content(kLog));

}  // namespace machine

// A test on an empty simulated machine, with the trace log set up in the test program too.
class MachineTest : public testing::Test {
protected:
    void SetUp() override;
};
