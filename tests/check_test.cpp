// Exactly the stale disks are deleted, whatever the disks of a session answer.
#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "command.h"
#include "log.h"
#include "scan_check.h"
#include "scan_delete.h"
#include "scan_disk.h"
#include "udev_product.h"

using namespace machine;

namespace {

enum class Name { Same, Other, Unreadable, OfWrongForm };

// What one disk of the session has to do with the answers.
struct DiskAnswers {
    bool listAnswers;  // REPORT LUNS through it
    bool isReported;   // in that list, through whichever disk it comes
    Name name;         // INQUIRY through it
};

constexpr unsigned int kCombinations = 2 * 2 * 4;  // of one disk

DiskAnswers AnswersOf(unsigned int combination)
{
    return {.listAnswers = combination % 2 != 0,
            .isReported = combination / 2 % 2 != 0,
            .name = static_cast<Name>(combination / 4 % 4)};
}

std::string Address(std::size_t disk) { return "2:0:0:" + std::to_string(disk); }

// The rule. A list that any disk gives decides on what is not in it; a name that is read decides on its own disk; and
// only where nothing at all can be read is the whole session stale.
std::string StaleDisks(const std::vector<DiskAnswers> &disks)
{
    const auto hasName = [](const DiskAnswers &disk) { return disk.name == Name::Same || disk.name == Name::Other; };
    const bool isListed = std::any_of(disks.begin(), disks.end(), [](const DiskAnswers &d) { return d.listAnswers; });
    const bool isLost = !isListed && std::none_of(disks.begin(), disks.end(), hasName);
    std::string stale;
    for (std::size_t i = 0; i < disks.size(); ++i) {
        const bool isRemoved = isListed && !disks[i].isReported;
        if (isRemoved || disks[i].name == Name::Other || isLost) {
            stale += Address(i) + "/delete 1\n";
        }
    }
    return stale;
}

void SetAnswers(const std::vector<DiskAnswers> &disks)
{
    std::vector<std::uint64_t> luns;
    for (std::size_t i = 0; i < disks.size(); ++i) {
        if (disks[i].isReported) {
            luns.push_back(i);
        }
    }
    const Answer list{.data = LunList(luns)};
    const Answer failure{.error = EIO};
    for (std::size_t i = 0; i < disks.size(); ++i) {
        const std::string node = "sg" + std::to_string(i);
        const Answer names[] = {{.data = NaaPage(Wwn(Address(i)))},
                                {.data = NaaPage(Wwn("9:9:9:9"))},
                                failure,
                                {.data = Bytes("00830014 01020008")}};  // an EUI-64 first
        SetAnswer(node, kReportLuns, disks[i].listAnswers ? list : failure);
        SetAnswer(node, kInquiry, names[static_cast<std::size_t>(disks[i].name)]);
    }
}

// Finds, checks and deletes in this process. Returns what was written into attributes.
std::string DeletedDisks()
{
    Remove(kWrites);
    g_removedDiskCount = 0;
    g_changedDiskCount = 0;
    SCAN_GetAllScsiDisk();
    SCAN_CheckAllScsiSession();
    SCAN_DeleteChangeMap();
    SCAN_FreeAllScsiSession();
    return Content(kWrites);
}

class CheckTest : public MachineTest, public testing::WithParamInterface<std::size_t> {};

TEST_P(CheckTest, DeletesExactlyTheStaleDisks)
{
    std::vector<DiskAnswers> disks(GetParam());
    unsigned int combinations = 1;
    for (std::size_t i = 0; i < disks.size(); ++i) {
        AddDisk({.hctl = Address(i)});
        combinations *= kCombinations;
    }
    ASSERT_EQ(1, UDEV_InitConfig());
    ASSERT_EQ(RET_OK, LOG_Init("/dev/null"));
    std::string expected;
    std::string deleted;
    unsigned int tried = 0;
    testing::internal::CaptureStdout();  // the reports of thousands of runs
    for (; tried < combinations && expected == deleted; ++tried) {
        unsigned int rest = tried;
        for (DiskAnswers &disk : disks) {
            disk = AnswersOf(rest % kCombinations);
            rest /= kCombinations;
        }
        SetAnswers(disks);
        expected = StaleDisks(disks);
        deleted = DeletedDisks();
    }
    (void)testing::internal::GetCapturedStdout();
    UDEV_FreeProductList();
    EXPECT_EQ(expected, deleted) << "combination " << tried - 1;
    std::printf("combinations %u\n", tried);
}

INSTANTIATE_TEST_SUITE_P(UpToThreeDisks, CheckTest, testing::Range(std::size_t{1}, std::size_t{4}));

}  // namespace
