#include "table.h"

#include <sys/stat.h>

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

const std::map<std::string, int> kErrors = {{"EIO", EIO}, {"ENODEV", ENODEV}, {"ENOMEM", ENOMEM}};
const std::map<std::string, machine::Query> kQueries = {{"report-luns", machine::kReportLuns},
                                                        {"inquiry", machine::kInquiry}};
const std::set<std::string> kOutcomes = {"prints", "deletes", "error", "info", "sends"};

// The pieces of a line, taken one after the other.
class Pieces {
public:
    explicit Pieces(const std::string &line) : line_(line) {}
    bool AtEnd() { return (line_ >> std::ws).eof(); }
    std::string Next()
    {
        std::string piece;
        if (!(line_ >> piece)) {
            throw std::runtime_error("something is missing at the end");
        }
        return piece;
    }
    std::string Rest()
    {
        std::string rest;
        std::getline(line_ >> std::ws, rest);
        return rest;
    }

private:
    std::istringstream line_;
};

std::string Matching(const std::string &text, const char *pattern)
{
    if (!std::regex_match(text, std::regex(pattern))) {
        throw std::runtime_error("{" + text + "} is not understood");
    }
    return text;
}

int Number(const std::string &text) { return std::stoi(Matching(text, "\\d{1,5}")); }

template <typename Value>
Value Named(const std::map<std::string, Value> &values, const std::string &name)
{
    const auto found = values.find(name);
    if (found == values.end()) {
        throw std::runtime_error("{" + name + "} is not understood");
    }
    return found->second;
}

std::string Luns(const std::string &range)
{
    const std::size_t dots = Matching(range, "\\d{1,5}\\.\\.\\d{1,5}").find('.');
    const auto first = static_cast<std::uint64_t>(Number(range.substr(0, dots)));
    std::vector<std::uint64_t> luns(static_cast<std::size_t>(Number(range.substr(dots + 2))) - first + 1);
    std::iota(luns.begin(), luns.end(), first);
    return machine::LunList(luns);
}

std::function<void()> TakeDisk(Pieces &pieces)
{
    machine::Disk disk{.hctl = Matching(pieces.Next(), "\\d+(:\\d+){3}")};
    while (!pieces.AtEnd()) {
        const std::string option = pieces.Next();
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

std::function<void()> TakeAnswer(Pieces &pieces)
{
    const std::string node = Matching(pieces.Next(), "sg\\d+");
    const machine::Query query = Named(kQueries, pieces.Next());
    machine::Answer answer;
    int attempt = 0;
    while (!pieces.AtEnd()) {
        const std::string field = Matching(pieces.Next(), "\\w+=.+");
        const std::string name = field.substr(0, field.find('='));
        const std::string value = field.substr(name.size() + 1);
        if (name == "errno") {
            answer.error = Named(kErrors, value);
        } else if (name == "luns") {
            answer.data = Luns(value);
        } else if (name == "data") {
            answer.data = machine::Bytes(Matching(value + pieces.Rest(), "( *[0-9a-fA-F]{2})+"));
        } else {
            const std::map<std::string, int *> numbers = {
                {"attempt", &attempt}, {"status", &answer.status}, {"host", &answer.host}, {"driver", &answer.driver}};
            *Named(numbers, name) = Number(value);
        }
    }
    return [=] { machine::SetAnswer(node, query, answer, attempt); };
}

// Cannot be opened.
void MakeSocket(const std::string &path)
{
    machine::Remove(path);
    (void)mknod(path.c_str(), S_IFSOCK | 0600, 0);
}

std::function<void()> TakeFile(const std::string &word, Pieces &pieces)
{
    const std::string first = pieces.Next();
    const std::string rest = std::regex_replace(pieces.Rest(), std::regex(R"(\\n)"), "\n");
    if (word == "file") {
        return [=] { machine::Put(first, rest); };
    }
    if (word == "link") {
        return [=] { machine::Link(first, rest); };
    }
    if (word == "device") {
        return [=] { machine::AddDevice(first, rest); };
    }
    if (word == "socket") {
        return [=] { MakeSocket(Matching(first + rest, "/dev/sg\\d+")); };
    }
    if (word == "remove") {
        return [=] { machine::Remove(first); };
    }
    throw std::runtime_error("{" + word + "} is not understood");
}

// Constants by their names, each with the line of its definition until it is used.
class Constants {
public:
    void Define(const std::string &name, const std::string &value, int line)
    {
        if (!values_.emplace(name, value).second) {
            throw std::runtime_error("{" + name + "} is defined twice");
        }
        unused_[name] = line;
    }
    // The line with the values in the place of all $NAME.
    std::string Resolve(std::string line)
    {
        static const std::regex use(R"(\$([A-Z_]+))");
        for (std::smatch match; std::regex_search(line, match, use);) {
            unused_.erase(match.str(1));
            line = match.prefix().str() + Named(values_, match.str(1)) + match.suffix().str();
        }
        return line;
    }
    [[nodiscard]] const std::map<std::string, int> &Unused() const { return unused_; }

private:
    std::map<std::string, std::string> values_;
    std::map<std::string, int> unused_;
};

void TakeStatement(Case &where, const std::string &line)
{
    Pieces pieces(line);
    const std::string word = pieces.Next();
    if (kOutcomes.contains(word)) {
        if (where.name.empty()) {
            throw std::runtime_error("{" + word + "} stands before the first title");
        }
        where.expected.push_back(line);
    } else if (word == "disk") {
        where.machine.push_back(TakeDisk(pieces));
    } else if (word == "answer") {
        where.machine.push_back(TakeAnswer(pieces));
    } else {
        where.machine.push_back(TakeFile(word, pieces));
    }
}

}  // namespace

std::vector<Case> Read(std::istream &description, const std::string &fileName)
{
    std::vector<Case> cases(1);
    std::set<std::string> names;
    Constants constants;
    int number = 0;
    const auto refuse = [&fileName](int line, const std::string &why) {
        throw std::runtime_error(fileName + ":" + std::to_string(line) + ": " + why);
    };
    for (std::string line; std::getline(description, line);) {
        ++number;
        if (line.empty() || line[0] == '#') {
            continue;
        }
        try {
            line = constants.Resolve(line);
            Pieces pieces(line);
            const std::string word = pieces.Next();
            if (word == "let") {
                const std::string name = Matching(pieces.Next(), "[A-Z_]+");
                constants.Define(name, pieces.Rest(), number);
            } else if (word == "run") {
                std::string name = pieces.Rest();
                std::replace_if(name.begin(), name.end(), [](unsigned char c) { return std::isalnum(c) == 0; }, '_');
                if (name.empty() || !names.insert(name).second) {
                    throw std::runtime_error("a run needs a title of its own");
                }
                cases.push_back(cases.front());
                cases.back().line = number;
                cases.back().name = name;
            } else {
                TakeStatement(cases.back(), line);
            }
            cases.back().text += word == "let" ? "" : line + "\n";
        } catch (const std::runtime_error &error) {
            refuse(number, error.what());
        }
    }
    for (const auto &[name, line] : constants.Unused()) {
        refuse(line, "{" + name + "} is never used");
    }
    if (cases.size() > 1) {
        cases.erase(cases.begin());
    }
    return cases;
}

}  // namespace table
