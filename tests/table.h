// Reads descriptions of simulated machines and, in runs.txt, the expected result of a run there. The head of runs.txt
// explains the words.
#pragma once

#include <functional>
#include <iostream>
#include <string>
#include <vector>

namespace table {

// The lines from one `run` to the next.
struct Case {
    int line = 0;                                // of its title
    std::string name;                            // the title; all but letters and digits is an underscore
    std::string text;                            // all its lines, to be shown
    std::vector<std::string> disks;              // addresses; sg0 is the node of the first one
    std::vector<std::function<void()>> machine;  // steps that make its machine; a step throws as Read does
    std::vector<std::string> expected;           // its lines about the outcome, such as "prints TEXT"
};

// For GoogleTest, which names the case that failed.
inline void PrintTo(const Case &where, std::ostream *out) { *out << "line " << where.line; }

// Reads a whole description. The lines before the first title are part of every case. An unknown word, a missing or
// repeated title or an unused constant throws a std::runtime_error with file, line and error, such as
// "runs.txt:12: {unmaped} is not understood".
std::vector<Case> Read(std::istream &description, const std::string &fileName);

}  // namespace table
