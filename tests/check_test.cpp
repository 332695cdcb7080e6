// For every combination of answers in a session, exactly the stale disks are deleted.
#include <algorithm>
#include <cerrno>
#include <filesystem>

#include "command.h"
#include "log.h"
#include "scan_check.h"
#include "scan_delete.h"
#include "scan_disk.h"
#include "scan_state.h"
#include "udev_product.h"

using namespace machine;

namespace {

enum Name { kSame, kOther, kUnreadable, kOfWrongForm };

// Answers of and about one disk of the session.
struct DiskAnswers {
    bool listAnswers;  // REPORT LUNS through this disk succeeds
    bool isReported;   // the session's LUN list has this disk, through any disk
    Name name;         // result of INQUIRY to this disk
};

constexpr std::size_t kMaxDisks = 3;
constexpr unsigned int kBits = 4;  // for the answers of one disk

DiskAnswers AnswersOf(unsigned int bits)
{
    return {.listAnswers = (bits & 1) != 0, .isReported = (bits & 2) != 0, .name = static_cast<Name>(bits >> 2 & 3)};
}

std::string Address(std::size_t disk) { return "2:0:0:" + std::to_string(disk); }

// The rule: a disk is stale if any disk answers with a list that lacks it, or if its own name is another one. The whole
// session is stale only if no list and no name can be read.
std::string StaleDisks(const std::vector<DiskAnswers> &disks)
{
    const auto hasName = [](const DiskAnswers &disk) { return disk.name == kSame || disk.name == kOther; };
    const bool isListed = std::any_of(disks.begin(), disks.end(), [](const DiskAnswers &d) { return d.listAnswers; });
    const bool isLost = !isListed && std::none_of(disks.begin(), disks.end(), hasName);
    std::string stale;
    for (std::size_t i = 0; i < disks.size(); ++i) {
        const bool isRemoved = isListed && !disks[i].isReported;
        if (isRemoved || disks[i].name == kOther || isLost) {
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
    for (std::size_t i = 0; i < disks.size(); ++i) {
        const std::string node = "sg" + std::to_string(i);
        // A page with another designator first.
        const std::string eui64 = Bytes("00830020 01020008 0123456789abcdef 01030010" + Wwn("9:9:9:9"));
        // In the order of the enumeration.
        const std::string pages[] = {NaaPage(Wwn(Address(i))), NaaPage(Wwn("9:9:9:9")), "", eui64};
        const Name name = disks[i].name;
        // Rejected by the device, the host adapter or the driver.
        const Answer refusals[kMaxDisks] = {{.status = 2}, {.host = 7}, {.driver = 6}};
        Answer list = disks[i].listAnswers ? Answer{} : refusals[i];
        list.data = LunList(luns);
        SetAnswer(node, kReportLuns, list);
        SetAnswer(node, kInquiry, {.error = name == kUnreadable ? EIO : 0, .data = pages[name]});
    }
}

// Checks and deletes in this process. Returns the writes to attributes.
std::string DeletedDisks()
{
    Remove(kWrites);
    g_removedDiskCount = 0;
    g_changedDiskCount = 0;
    SCAN_CheckAllScsiSession();
    SCAN_DeleteChangeMap();
    SCAN_FreeAllScsiSession();
    return Content(kWrites);
}

TEST_F(MachineTest, ExactlyTheStaleDisksAreDeleted)
{
    ASSERT_EQ(1, UDEV_InitConfig());
    SCAN_InitLists();
    ASSERT_EQ(RET_OK, LOG_Init("/dev/null"));
    std::vector<DiskAnswers> disks;
    std::string expected;
    std::string deleted;
    unsigned int bits = 0;
    testing::internal::CaptureStdout();  // the reports of thousands of runs
    while (disks.size() < kMaxDisks && expected == deleted) {
        AddDisk({.hctl = Address(disks.size())});
        disks.emplace_back();
        for (bits = 0; bits < 1U << kBits * disks.size() && expected == deleted; ++bits) {
            for (std::size_t i = 0; i < disks.size(); ++i) {
                disks[i] = AnswersOf(bits >> kBits * i);
            }
            SetAnswers(disks);
            SCAN_GetAllScsiDisk();
            expected = StaleDisks(disks);
            deleted = DeletedDisks();
        }
    }
    (void)testing::internal::GetCapturedStdout();
    EXPECT_EQ(expected, deleted) << disks.size() << " disks, bits " << bits - 1;
    UDEV_FreeProductList();
}

// The kernel finds the disk again while the run waits. The run never queried the new device.
TEST_F(MachineTest, AnotherDiskInThePlaceOfAStaleOneStays)
{
    ASSERT_EQ(1, UDEV_InitConfig());
    SCAN_InitLists();
    AddDisk({.hctl = Address(1), .isReported = false});
    SCAN_GetAllScsiDisk();
    std::filesystem::rename(DiskDir(Address(1)), "/sys/old");
    Put(DiskDir(Address(1)) + "/delete", "");
    testing::internal::CaptureStdout();
    EXPECT_EQ("", DeletedDisks());
    EXPECT_TRUE(testing::internal::GetCapturedStdout().ends_with("disk:\n    delete 2:0:0:1 fail.\n"));
    EXPECT_EQ("SCAN SCAN_DeleteChangeDisk:     delete 2:0:0:1 fail.\n", RecordsAt("ERROR"));
    UDEV_FreeProductList();
}

}  // namespace
