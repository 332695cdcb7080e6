// What fault_test tells fault_double to do in a run of the command.
#pragma once

#include <fcntl.h>

#include <cstdio>

// One platform call of the run fails.
struct FaultOrder {
    int call;   // its number, counted from 1; 0: none, and the run appends a line for each call to /run/calls
    int error;  // the errno that it fails with, or one of these
};

inline constexpr int kShort = 0;  // half is read, nothing is written, a program that is run ends with 1
inline constexpr int kKill = -1;  // the process is killed there

inline constexpr int kTakeOver = -2;  // nothing fails, but just before the call others have taken these places

// What is exchanged then: the names of two generic nodes, with all that they answer, and the directory of a disk with
// that of a newcomer.
inline constexpr const char *kTakenOver[][2] = {
    {"/dev/sg2", "/dev/sg6"},
    {"/dev/sg2.12", "/dev/sg6.12"},
    {"/dev/sg2.a0", "/dev/sg6.a0"},
    {"/sys/devices/platform/host2/session1/target2:0:0/2:0:0:2", "/sys/devices/newcomer/2:0:0:2"}};

inline void FAULT_TakeOver()
{
    for (const auto &[one, other] : kTakenOver) {
        (void)renameat2(AT_FDCWD, one, AT_FDCWD, other, RENAME_EXCHANGE);
    }
}

inline constexpr int kStatusFd = 3;  // where fault_double writes the wait status of a run, an int
