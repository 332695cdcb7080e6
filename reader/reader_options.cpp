#include "reader_options.h"

#include <getopt.h>

#include <array>
#include <charconv>
#include <ctime>
#include <optional>
#include <string_view>
#include <utility>

#include "log_path.h"

namespace {

constexpr long long kMaxNumber = 1000000000000;  // of any numeric argument
constexpr long long kSecondsPerHour = 3600;

constexpr std::array<option, 12> kOptions = {{
    {"all", no_argument, nullptr, kAll},
    {"run", required_argument, nullptr, kRun},
    {"json", no_argument, nullptr, kJson},
    {"check", no_argument, nullptr, kCheck},
    {"since", required_argument, nullptr, kSince},
    {"max-age", required_argument, nullptr, kMaxAge},
    {"must-look", no_argument, nullptr, kMustLook},
    {"ignore", required_argument, nullptr, kIgnore},
    {"follow", no_argument, nullptr, kFollow},
    {"help", no_argument, nullptr, kHelp},
    {"version", no_argument, nullptr, kVersion},
    {},
}};

constexpr auto kExclusions = std::to_array<std::pair<Option, Option>>({
    {kAll, kRun},
    {kCheck, kAll},
    {kCheck, kJson},
    {kFollow, kAll},
    {kFollow, kRun},
    {kFollow, kJson},
    {kFollow, kCheck},
});
constexpr std::array<Option, 4> kOnlyWithCheck = {kSince, kMaxAge, kMustLook, kIgnore};

std::string NameOf(Option wanted)
{
    return std::string("--") + kOptions[wanted - 1].name;
}

// Reads a number from 1 to kMaxNumber. Returns nothing for any other text.
std::optional<long long> ReadNumber(std::string_view text)
{
    long long number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool isGood = error == std::errc() && end == text.data() + text.size() && number > 0 && number <= kMaxNumber;
    return isGood ? std::optional(number) : std::nullopt;
}

// Stores the argument of an option. Returns what the option needs if the argument is wrong, else null.
const char *TakeArgument(Option found, const char *text, Settings &settings)
{
    const std::optional<long long> number = ReadNumber(text);
    switch (found) {
        case kRun:
            settings.number = number.value_or(0);
            return number ? nullptr : "the number of a run";
        case kSince:
            settings.demands.since = number;
            return number ? nullptr : "a number of seconds";
        case kMaxAge:
            settings.demands.oldest = std::time(nullptr) - number.value_or(0) * kSecondsPerHour;
            return number ? nullptr : "a number of hours";
        default:
            settings.demands.ignored.emplace_back(text);
            return READER_IsAddress(text) ? nullptr : "an address like 2:0:0:1";
    }
}

// The first conflict between options, in words; empty if there is none.
std::string ConflictIn(const Settings &settings)
{
    for (const auto &[one, other] : kExclusions) {
        if (settings.Has(one) && settings.Has(other)) {
            return NameOf(one) + " and " + NameOf(other) + " exclude each other";
        }
    }
    for (const Option wanted : kOnlyWithCheck) {
        if (settings.Has(wanted) && !settings.Has(kCheck)) {
            return NameOf(wanted) + " needs --check";
        }
    }
    return "";
}

}  // namespace

std::string READER_ReadArguments(int argc, char *argv[], Settings &settings)
{
    std::string fault;
    const auto add = [&fault](const std::string &text) { fault = fault.empty() ? text : fault; };
    opterr = 0;
    for (;;) {
        const int found = getopt_long(argc, argv, ":", kOptions.data(), nullptr);
        if (found == -1) {
            break;
        }
        if (found == '?' || found == ':') {
            const bool isShort = optopt > kVersion;
            const std::string word = isShort ? std::string("-") + static_cast<char>(optopt) : argv[optind - 1];
            add((found == '?' ? "unknown option: " : "no argument after ") + word);
            continue;
        }
        const auto wanted = static_cast<Option>(found);
        settings.given.set(static_cast<std::size_t>(found));
        const char *needed = optarg == nullptr ? nullptr : TakeArgument(wanted, optarg, settings);
        if (needed != nullptr) {
            add(NameOf(wanted) + " needs " + needed + ": " + optarg);
        }
    }
    if (argc - optind > 1) {
        add(std::string("more than one file: ") + argv[optind + 1]);
    }
    if (settings.Has(kFollow) && optind < argc) {
        add(std::string("--follow reads only the log of this host: ") + argv[optind]);
    }
    add(ConflictIn(settings));
    settings.demands.mustLook = settings.Has(kMustLook);
    settings.isOwnLog = optind >= argc;
    settings.path = settings.isOwnLog ? GetFilePathByType(DirectoryKind::Log, kTraceFileName) : argv[optind];
    settings.isDateChecked = settings.isOwnLog || settings.demands.since || settings.demands.oldest;
    return fault;
}
