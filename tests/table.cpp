#include "table.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <map>
#include <numeric>
#include <regex>
#include <set>
#include <sstream>
#include <stdexcept>

#include "machine.h"

namespace table {

namespace {

using Step = std::function<void()>;
using FileStep = std::function<void(const std::string &path, const std::string &rest)>;

void RemoveFile(const std::string &path, const std::string & /*rest*/)
{
    if (!machine::IsThere(path)) {
        throw std::runtime_error("{" + path + "} is not there to be removed");
    }
    machine::Remove(path);
}

// The step for a path and the rest of its line, and the pattern of that rest.
struct FileWord {
    FileStep step;
    const char *rest;
};
const std::map<std::string, FileWord> kFileWords = {{"file", {machine::Put, ".*"}},
                                                    {"link", {machine::Link, "\\S+"}},
                                                    {"device", {machine::AddDevice, "\\S+"}},
                                                    {"remove", {RemoveFile, ""}}};
const std::set<std::string> kOutcomes = {"prints", "error", "info", "sends"};
constexpr int kMaxLun = 65535;
constexpr int kAttempts = 3;     // for each command
constexpr int kMaxCommands = 9;  // REPORT LUNS, if the list grows each time
const std::map<std::string, int> kErrors = {{"EIO", EIO}, {"ENODEV", ENODEV}, {"ENOMEM", ENOMEM}};
const std::map<std::string, machine::Query> kQueries = {{"report-luns", machine::kReportLuns},
                                                        {"inquiry", machine::kInquiry}};

[[noreturn]] void Refuse(const std::string &text) { throw std::runtime_error("{" + text + "} is not understood"); }

template <typename Value>
Value Named(const std::map<std::string, Value> &values, const std::string &name)
{
    const auto found = values.find(name);
    if (found == values.end()) {
        Refuse(name);
    }
    return found->second;
}

std::string Matching(const std::string &text, const char *pattern)
{
    static std::map<std::string, std::regex> compiled;  // compiling one takes longer than all that it matches
    if (!std::regex_match(text, compiled.try_emplace(pattern, pattern).first->second)) {
        Refuse(text);
    }
    return text;
}

int Number(const std::string &text, int from, int to)
{
    const int number = std::stoi(Matching(text, "\\d{1,5}"));
    if (number < from || number > to) {
        Refuse(text);
    }
    return number;
}

// The next word of a line; empty at the end of the line.
std::string Word(std::istream &line)
{
    std::string word;
    line >> word;
    return word;
}

std::string Rest(std::istream &line)
{
    std::string rest;
    std::getline(line >> std::ws, rest);
    return rest;
}

Step TakeDisk(std::istream &line, std::vector<std::string> &disks)
{
    machine::Disk disk{.hctl = Matching(Word(line), "\\d{1,5}(:\\d{1,5}){3}")};
    if (std::find(disks.begin(), disks.end(), disk.hctl) != disks.end()) {
        throw std::runtime_error("{" + disk.hctl + "} is there already");
    }
    disks.push_back(disk.hctl);
    for (std::string option; line >> option;) {
        if (option == "unmapped") {
            disk.isReported = false;
        } else if (option == "dead") {
            disk.isDead = true;
        } else {
            disk.now = Matching(option, "now=[0-9a-f]{32}").substr(4);
        }
    }
    return [disk] { machine::AddDisk(disk); };
}

std::string Luns(const std::string &range)
{
    const std::size_t dots = Matching(range, "\\d+\\.\\.\\d+").find('.');
    const int first = Number(range.substr(0, dots), 0, kMaxLun);
    const int last = Number(range.substr(dots + 2), first, kMaxLun);
    std::vector<std::uint64_t> luns(static_cast<std::size_t>(last - first + 1));
    std::iota(luns.begin(), luns.end(), first);
    return machine::LunList(luns);
}

Step TakeAnswer(std::istream &line, std::size_t diskCount)
{
    const std::string node = Matching(Word(line), "sg\\d{1,5}");
    if (std::stoul(node.substr(2)) >= diskCount) {
        throw std::runtime_error("{" + node + "} belongs to no disk above this line");
    }
    const machine::Query query = Named(kQueries, Word(line));
    machine::Answer answer;
    int attempt = 0;
    const std::map<std::string, int *> statuses = {
        {"status", &answer.status}, {"host", &answer.host}, {"driver", &answer.driver}};
    for (std::string field; line >> field;) {
        const std::string name = field.substr(0, field.find('='));
        const std::string value = Matching(field, "\\w+=.+").substr(name.size() + 1);
        if (name == "errno") {
            answer.error = Named(kErrors, value);
        } else if (name == "luns") {
            answer.data = Luns(value);
        } else if (name == "data") {
            answer.data = machine::Bytes(Matching(value + Rest(line), "( *[0-9a-fA-F]{2})+"));
        } else if (name == "attempt") {
            attempt = Number(value, 1, query == machine::kInquiry ? kAttempts : kAttempts * kMaxCommands);
        } else {
            *Named(statuses, name) = Number(value, 0, UINT8_MAX);
        }
    }
    return [=] { machine::SetAnswer(node, query, answer, attempt); };
}

Step TakeFile(const FileWord &word, std::istream &line)
{
    const std::string path = Matching(Word(line), ".+");
    const std::string rest = std::regex_replace(Matching(Rest(line), word.rest), std::regex("\\\\n"), "\n");
    return [=] { word.step(path, rest); };
}

// Makes the title a test name, which must be unique.
std::string NameOf(std::string title, const std::vector<Case> &others)
{
    std::replace_if(title.begin(), title.end(), [](unsigned char c) { return std::isalnum(c) == 0; }, '_');
    const auto isSame = [&title](const Case &other) { return other.name == title; };
    if (std::any_of(others.begin(), others.end(), isSame)) {
        throw std::runtime_error("a run needs a title of its own");
    }
    return title;
}

}  // namespace

std::vector<Case> Read(std::istream &description, const std::string &fileName)
{
    std::vector<Case> cases(1);  // the first has the common lines and no title
    std::map<std::string, std::string> constants;
    std::map<std::string, int> unused;  // constants, with the line that defines them
    const std::regex use("\\$([A-Z_]*)");
    int number = 0;
    const auto refuse = [fileName](int line, const std::string &why) {
        throw std::runtime_error(fileName + ":" + std::to_string(line) + ": " + why);
    };
    // The error of a failed step names its line.
    const auto addStep = [&](const Step &step) {
        cases.back().machine.push_back([step, refuse, number] {
            try {
                step();
            } catch (const std::exception &error) {
                refuse(number, error.what());
            }
        });
    };
    const auto take = [&](std::string text) {
        Matching(text, "[^ \t\r]([^\t\r]*[^ \t\r])?");
        for (std::smatch match; std::regex_search(text, match, use);) {
            unused.erase(match.str(1));
            text = match.prefix().str() + Named(constants, match.str(1)) + match.suffix().str();
        }
        std::istringstream line(text);
        const std::string word = Word(line);
        if (word == "let") {
            const std::string name = Matching(Word(line), "[A-Z_]+");
            if (!constants.try_emplace(name, Matching(Rest(line), ".+")).second) {
                throw std::runtime_error("{" + name + "} has a value already");
            }
            unused[name] = number;
            return;
        }
        if (word == "run") {
            const std::string name = NameOf(Matching(Rest(line), ".+"), cases);
            cases.push_back(cases.front());
            cases.back().line = number;
            cases.back().name = name;
        } else if (kOutcomes.contains(word) && !cases.back().name.empty()) {
            cases.back().expected.push_back(text);
        } else if (word == "disk") {
            addStep(TakeDisk(line, cases.back().disks));
        } else if (word == "answer") {
            addStep(TakeAnswer(line, cases.back().disks.size()));
        } else {
            addStep(TakeFile(Named(kFileWords, word), line));
        }
        cases.back().text += text + "\n";
    };
    for (std::string text; std::getline(description, text);) {
        ++number;
        try {
            if (!text.empty() && text[0] != '#') {
                take(text);
            }
        } catch (const std::runtime_error &error) {
            refuse(number, error.what());
        }
    }
    for (const auto &[name, line] : unused) {
        refuse(line, "{" + name + "} is never used");
    }
    return cases;
}

}  // namespace table
