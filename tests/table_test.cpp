// A description with a slip is refused, with its place, and never taken for another one.
#include "table.h"

#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>

namespace {

std::string Refusal(const std::string &description)
{
    std::istringstream text(description);
    try {
        (void)table::Read(text, "runs.txt");
    } catch (const std::runtime_error &error) {
        return error.what();
    }
    return "";
}

TEST(Table, RefusesWhatItDoesNotUnderstand)
{
    const struct {
        const char *description, *refusal;
    } cases[] = {
        {"run a\ndisk 2:0:0:2 unmaped\n", "runs.txt:2: {unmaped} is not understood"},
        {"run a\ndisk 2:0:0\n", "runs.txt:2: {2:0:0} is not understood"},
        {"run a\ndiks 2:0:0:2\n", "runs.txt:2: {diks} is not understood"},
        {"run \ndisk 2:0:0:2\n", "runs.txt:1: a run needs a title of its own"},
        {"run a\n\nrun a\n", "runs.txt:3: a run needs a title of its own"},
        {"prints x\nrun a\n", "runs.txt:1: {prints} stands before the first title"},
        {"let NAME x\nrun a\n", "runs.txt:1: {NAME} is never used"},
        {"let NAME x\nlet NAME y\n", "runs.txt:2: {NAME} is defined twice"},
        {"run a\nprints $NAME\n", "runs.txt:2: {NAME} is not understood"},
        {"run a\nanswer sg0 inquiry errno=EOI\n", "runs.txt:2: {EOI} is not understood"},
        {"run a\nanswer sg0 inquiry data=0g\n", "runs.txt:2: {0g} is not understood"},
        {"run a\nanswer sg0 inquiry state=2\n", "runs.txt:2: {state} is not understood"},
        {"run a\nanswer sg0\n", "runs.txt:2: something is missing at the end"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(c.refusal, Refusal(c.description));
    }
    EXPECT_EQ("", Refusal("let NAME 2:0\nrun a\ndisk $NAME:0:2 unmapped\nprints $NAME.\n"));
}

}  // namespace
