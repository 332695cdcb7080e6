// vd_machine DIRECTORY: creates the machine below DIRECTORY. Standard input describes it in the words of runs.txt.
// Exit status: 0, or 1 if the description has an error.
#include <cstdio>
#include <iostream>
#include <stdexcept>

#include "machine.h"
#include "table.h"

int main(int argc, char *argv[])
{
    if (argc != 2 || argv[1][0] == '-') {
        (void)std::fprintf(stderr, "usage: vd_machine DIRECTORY < DESCRIPTION\n");
        return 1;
    }
    try {
        const std::vector<table::Case> cases = table::Read(std::cin, "standard input");
        machine::SetRoot(argv[1]);
        machine::MakeEmpty();
        for (const auto &step : cases.front().machine) {
            step();
        }
    } catch (const std::exception &error) {
        (void)std::fprintf(stderr, "vd_machine: %s\n", error.what());
        return 1;
    }
    return 0;
}
