// What is known of a run and of its disks.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

enum class Outcome { NotEnded, Complete, Refused };
inline constexpr std::array<const char *, 3> kOutcomeNames = {"not ended", "complete", "refused"};

// Unknown: it was deleted, or its deletion failed, so it was stale; the record that says how is missing.
enum class DiskCondition { Healthy, Removed, Changed, NotConnected, Unknown, NotQuestioned, LeftOut };
inline constexpr std::array<const char *, 7> kStateNames = {"healthy", "removed",        "changed", "not connected",
                                                            "unknown", "not questioned", "left out"};

enum class DiskAction { None, Deleted, Failed, Kept };
inline constexpr std::array<const char *, 4> kActionNames = {"none", "deleted", "failed", "kept"};

// What the log does not tell of a disk is empty. The views are into the text of its run.
struct Disk {
    std::string_view address;  // h:c:t:l
    std::string_view node;     // its generic node
    std::string_view vendor;
    std::string_view product;
    std::string_view wwn;     // that the kernel held
    std::string_view wwnNow;  // of a changed disk
    DiskCondition state = DiskCondition::Healthy;
    std::string reason;  // why it was left out, or the queries to it that failed
    DiskAction action = DiskAction::None;

    [[nodiscard]] bool IsStale() const { return state >= DiskCondition::Removed && state <= DiskCondition::Unknown; }
};

// A query that failed, on one of these disks, or, where there are none, on any.
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
    std::optional<bool> isAtWork;  // now; nothing where that cannot be asked
    std::optional<bool> checked;   // nothing where --nocheck and a host without SCSI disks look alike
    bool asked = false;
    std::optional<bool> answer;
    std::size_t disksOfOthers = 0;  // not in the supported-device list
    std::vector<OtherProduct> others;
    std::size_t sessions = 0;
    std::vector<std::string_view> sessionsRemoved;  // h:c:t of those whose every disk is removed
    std::vector<Disk> disks;                        // supported and filed, in this order
    std::vector<Disk> leftOut;                      // the others that were supported, or may have been
    std::vector<Unassigned> unassigned;
    std::size_t candidates = 0;  // disks in `unassigned`
    std::vector<std::string> inventoryErrors;
    std::vector<std::string> hostsNotRescanned;
    std::vector<std::string> controllersNotRescanned;
    std::size_t hostsRescanned = 0;
    std::size_t controllersRescanned = 0;
};

// Whether the text has the form of a disk's address, h:c:t:l.
[[nodiscard]] bool READER_IsAddress(std::string_view text);

// What makes it doubtful that a changed disk is another one, in words; empty where nothing does.
[[nodiscard]] std::string_view READER_DoubtAbout(const Disk &disk);

// The disks that are not simply healthy.
[[nodiscard]] std::vector<Disk> READER_Remarkable(const Run &run);

struct Tally {
    std::size_t stale = 0;
    std::size_t deleted = 0;
    std::size_t failed = 0;         // deletions
    std::size_t notQuestioned = 0;  // the disks that were left out included
    std::size_t failedQueries = 0;  // on disks of unknown name
};

[[nodiscard]] Tally READER_TallyOf(const Run &run);

// How long the run took, in seconds; nothing where its times do not tell.
[[nodiscard]] std::optional<long long> READER_Duration(const Run &run);
