// Reader of descriptions: what stands on a made-up machine and, in runs.txt, what must come of a run there. The words
// are explained at the top of runs.txt.
#pragma once

#include <functional>
#include <iostream>
#include <string>
#include <vector>

namespace table {

// What stands between two lines with `run`.
struct Case {
    int line = 0;                                // of its title
    std::string name;                            // the title with an underscore for all that is no letter or digit
    std::string text;                            // all its lines, to be shown
    std::vector<std::string> disks;              // addresses; sg0 is the node of the first one
    std::vector<std::function<void()>> machine;  // makes its machine, step by step; a step throws as Read does
    std::vector<std::string> expected;           // its lines about the outcome, such as "prints TEXT"
};

// For GoogleTest, which names the case that failed.
inline void PrintTo(const Case &where, std::ostream *out) { *out << "line " << where.line; }

// Reads a description whole. What stands before the first title is part of every case. Anything that is not understood,
// a missing or doubled title and a constant that is never used throw a std::runtime_error: "runs.txt:12: what is
// wrong".
std::vector<Case> Read(std::istream &description, const std::string &fileName);

}  // namespace table
