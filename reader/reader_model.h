// What is known about a run and its disks.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

enum class Outcome { NotEnded, Complete, Refused };
inline constexpr std::array<const char *, 3> kOutcomeNames = {"not ended", "complete", "refused"};

// Unknown: the run deleted the disk or tried to, so it was stale, but the record of the reason is missing.
enum class DiskCondition { Healthy, Removed, Changed, NotConnected, Unknown, NotQuestioned, LeftOut };
inline constexpr std::array<const char *, 7> kStateNames = {"healthy", "removed",        "changed", "not connected",
                                                            "unknown", "not questioned", "left out"};

enum class DiskAction { None, Deleted, Failed, Kept };
inline constexpr std::array<const char *, 4> kActionNames = {"none", "deleted", "failed", "kept"};

// What sits on a disk of this host now.
struct Use {
    std::string block;                             // its block device, such as "sdg"
    std::vector<std::vector<std::string>> chains;  // "mpatha, 1 of 2 paths", "vg0-data", "/srv/data"
    std::size_t keepsPath = 0;                     // chains that begin with a map that another path keeps working

    // Whether something stops working without the disk.
    [[nodiscard]] bool NeedsDisk() const { return chains.size() > keepsPath; }
};

// A disk. Fields that the log does not hold are empty. The views are into the text of its run.
struct Disk {
    std::string_view address;  // h:c:t:l
    std::string_view node;     // its generic node
    std::string_view vendor;
    std::string_view product;
    std::string_view wwn;     // that the kernel held
    std::string_view wwnNow;  // of a changed disk
    DiskCondition state = DiskCondition::Healthy;
    std::string reason;  // why it was left out, or its failed queries
    DiskAction action = DiskAction::None;
    std::optional<Use> use;  // nothing if it was not looked for, or the kernel has no such disk

    [[nodiscard]] bool IsStale() const { return state >= DiskCondition::Removed && state <= DiskCondition::Unknown; }
};

// A failed query to one of these disks, or to any disk if the list is empty.
struct Unassigned {
    std::string message;
    std::vector<std::size_t> disks;  // indices in Run::disks
};

// A vendor and product that the supported-device list does not name.
struct OtherProduct {
    std::string_view vendor;
    std::string_view product;
    std::size_t disks = 0;
};

struct Run {
    std::uint64_t number = 0;
    bool isWhole = true;  // false: records are missing
    std::string start;    // times of the first and the last record
    std::string end;
    Outcome outcome = Outcome::NotEnded;
    std::string refusal;  // "not root", "another copy" or "options"
    std::optional<bool> listLoaded;
    std::optional<bool> isAtWork;  // now; nothing if the kernel cannot be asked
    std::optional<bool> checked;   // nothing if --nocheck and a host without SCSI disks look alike
    bool asked = false;
    std::optional<bool> answer;
    std::size_t disksOfOthers = 0;  // not in the supported-device list
    std::vector<OtherProduct> others;
    std::size_t sessions = 0;
    std::vector<std::string_view> sessionsRemoved;  // h:c:t of the sessions whose every disk is removed
    std::vector<Disk> disks;                        // supported and filed, in this order
    std::vector<Disk> leftOut;                      // other disks that were supported, or may have been
    std::vector<Unassigned> unassigned;
    std::vector<std::vector<std::size_t>> sessionDisks;  // indices in `disks`, by session, in query order
    std::size_t sessionQueried = 0;                      // index of the session of the last recorded query
    bool areLunsOver = false;                            // its REPORT LUNS; INQUIRYs follow
    std::size_t candidates = 0;                          // disks in `unassigned`
    bool areUsersUnknown = false;                        // of stale disks
    std::vector<std::string> inventoryErrors;
    std::vector<std::string> hostsNotRescanned;
    std::vector<std::string> controllersNotRescanned;
    std::size_t hostsRescanned = 0;
    std::size_t controllersRescanned = 0;
};

// Returns whether the text has the form of a disk's address, h:c:t:l.
[[nodiscard]] bool READER_IsAddress(std::string_view text);

// The reason to doubt that a changed disk is another one, in words; empty if there is none.
[[nodiscard]] std::string_view READER_DoubtAbout(const Disk &disk);

// Returns whether the disk is changed and in use, so that its user reads and writes another volume.
[[nodiscard]] bool READER_IsMisused(const Disk &disk);

// The disks that are not healthy.
[[nodiscard]] std::vector<Disk> READER_Remarkable(const Run &run);

struct Tally {
    std::size_t stale = 0;
    std::size_t deleted = 0;
    std::size_t failed = 0;         // deletions
    std::size_t notQuestioned = 0;  // includes disks that were left out
    std::size_t failedQueries = 0;  // on disks of unknown name
};

[[nodiscard]] Tally READER_TallyOf(const Run &run);

// The duration of the run in seconds; nothing if its times are missing or run backwards.
[[nodiscard]] std::optional<long long> READER_Duration(const Run &run);
