#include "safestr_scan.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <memory>
#include <string_view>
#include <type_traits>
#include <utility>

// The C library does each conversion. Its format is built from the directive, so it cannot be a literal.
#pragma GCC diagnostic ignored "-Wformat-nonliteral"

namespace {

constexpr std::size_t kUsualSize = 64;  // bytes of a directive; a longer one takes memory

enum class Outcome { Matched, MatchingFailure, InputFailure, Error };

// A va_list that can be passed by reference.
struct Arguments {
    va_list list;
};

// One conversion of a format: "%*12lld" has suppressed, width "12", length "ll", conversion "d".
struct Directive {
    bool suppressed;
    std::string_view width;
    std::string_view length;
    std::string_view conversion;  // one character, or a whole set "[...]"

    [[nodiscard]] char Kind() const { return conversion.empty() ? '\0' : conversion.front(); }
    [[nodiscard]] bool IsText() const { return Kind() == 's' || Kind() == 'c' || Kind() == '['; }
    [[nodiscard]] bool IsWide() const { return length == "l"; }
};

// Conversions and their length modifiers (C11, the fscanf function).
struct KnownLengths {
    std::string_view conversions;
    std::array<std::string_view, 8> lengths;
};

constexpr std::array<KnownLengths, 4> kKnownLengths = {{
    {"diouxXn", {"", "hh", "h", "l", "ll", "j", "z", "t"}},
    {"aAeEfFgG", {"", "l", "L"}},
    {"sc[", {"", "l"}},
    {"p%", {""}},
}};

// State of one scan.
struct Scan {
    const char *input;
    const char *position;
    Arguments args;
    int assigned;
    bool completed;  // a conversion is complete, assigned or suppressed
};

const char *SkipSpace(const char *text)
{
    while (std::isspace(static_cast<unsigned char>(*text)) != 0) {
        ++text;
    }
    return text;
}

// Removes the longest run of characters of `set` from the start of `rest`, at most `most` of them, and returns it.
std::string_view TakeAny(std::string_view &rest, std::string_view set, std::size_t most = std::string_view::npos)
{
    const std::size_t length = std::min({rest.find_first_not_of(set), rest.size(), most});
    const std::string_view taken = rest.substr(0, length);
    rest.remove_prefix(length);
    return taken;
}

// False for a conversion that does not exist or does not have that length modifier. The type of its destination is then
// unknown.
bool IsKnown(const Directive &directive)
{
    for (const KnownLengths &known : kKnownLengths) {
        if (known.conversions.find(directive.Kind()) != std::string_view::npos) {
            return std::find(known.lengths.begin(), known.lengths.end(), directive.length) != known.lengths.end();
        }
    }
    return false;
}

// Removes a conversion from `rest`, which starts after its '%', and returns it.
Directive TakeDirective(std::string_view &rest)
{
    Directive directive{};
    directive.suppressed = !TakeAny(rest, "*", 1).empty();
    directive.width = TakeAny(rest, "0123456789");
    directive.length =
        rest.starts_with("hh") || rest.starts_with("ll") ? rest.substr(0, 2) : TakeAny(rest, "hljztL", 1);
    if (directive.length.size() == 2) {
        rest.remove_prefix(2);
    }
    std::size_t size = rest.empty() ? 0 : 1;
    if (rest.starts_with('[')) {
        // A ']' as the first member, also after '^', does not close the set.
        const std::size_t firstMember = rest.starts_with("[^") ? 2 : 1;
        const std::size_t close = rest.find(']', firstMember + 1);
        size = close == std::string_view::npos ? 0 : close + 1;
    }
    directive.conversion = rest.substr(0, size);
    rest.remove_prefix(size);
    return directive;
}

// The C library does one conversion at the scan's position and stores it in `value`. A null `value` only measures the
// field. After a match, the position is at the end of the field, and `overflow` is true if the number was out of range.
template <typename Value>
Outcome Convert(Scan &scan, const Directive &directive, std::string_view length, Value *value, bool &overflow)
{
    const std::array<std::string_view, 6> pieces = {"%",    value == nullptr ? "*" : "", directive.width,
                                                    length, directive.conversion,        "%n"};
    std::size_t size = 1;
    for (const std::string_view piece : pieces) {
        size += piece.size();
    }
    std::array<char, kUsualSize> usual;
    const std::unique_ptr<char, void (*)(void *)> longer(
        size > usual.size() ? static_cast<char *>(std::malloc(size)) : nullptr, std::free);
    char *format = size > usual.size() ? longer.get() : usual.data();
    if (format == nullptr) {
        return Outcome::Error;
    }
    char *end = format;
    for (const std::string_view piece : pieces) {
        end = std::copy(piece.begin(), piece.end(), end);
    }
    *end = '\0';
    int consumed = -1;
    errno = 0;
    const int result = value == nullptr ? std::sscanf(scan.position, format, &consumed)
                                        : std::sscanf(scan.position, format, value, &consumed);
    overflow = errno == ERANGE;
    if (consumed < 0) {
        return result == EOF ? Outcome::InputFailure : Outcome::MatchingFailure;
    }
    scan.position += consumed;
    scan.completed = true;
    return Outcome::Matched;
}

// Stores a number into the next argument as `Signed`, or as the unsigned type of that size for an unsigned `magnitude`,
// which may follow a minus sign. A magnitude that does not fit is a matching failure.
template <typename Signed, typename Value>
Outcome StoreAs(Arguments &args, Value magnitude, bool isNegated)
{
    using Number = std::conditional_t<std::is_signed_v<Value>, Signed, std::make_unsigned_t<Signed>>;
    auto *dest = va_arg(args.list, Number *);
    if (dest == nullptr) {
        return Outcome::Error;
    }
    if (!std::in_range<Number>(magnitude)) {
        return Outcome::MatchingFailure;
    }
    *dest = static_cast<Number>(isNegated ? 0 - magnitude : magnitude);
    return Outcome::Matched;
}

// Stores a number as the integer type of the length modifier.
template <typename Value>
Outcome StoreInteger(Arguments &args, std::string_view length, Value magnitude, bool isNegated)
{
    if (length == "hh") {
        return StoreAs<signed char>(args, magnitude, isNegated);
    }
    if (length == "h") {
        return StoreAs<short>(args, magnitude, isNegated);
    }
    if (length.empty()) {
        return StoreAs<int>(args, magnitude, isNegated);
    }
    if (length == "ll") {
        return StoreAs<long long>(args, magnitude, isNegated);
    }
    static_assert(sizeof(long) == sizeof(std::intmax_t) && sizeof(long) == sizeof(std::ptrdiff_t));
    return StoreAs<long>(args, magnitude, isNegated);  // l, j, z and t
}

// Skips a field without assigning it, so no type limits it.
Outcome SkipField(Scan &scan, const Directive &directive)
{
    if (directive.Kind() == 'n') {
        return Outcome::Matched;  // reads nothing
    }
    bool overflow = false;
    return Convert<char>(scan, directive, directive.length, nullptr, overflow);
}

template <typename Value>
Outcome ScanInteger(Scan &scan, const Directive &directive)
{
    const char *sign = SkipSpace(scan.position);
    Value value = 0;
    bool overflow = false;
    Outcome outcome = Convert(scan, directive, "j", &value, overflow);
    if (outcome != Outcome::Matched) {
        return outcome;
    }
    if (overflow) {
        return Outcome::MatchingFailure;
    }
    // The C library has already negated an unsigned "-1" in its widest type.
    const bool isNegated = std::is_unsigned_v<Value> && *sign == '-';
    outcome = StoreInteger(scan.args, directive.length, isNegated ? 0 - value : value, isNegated);
    scan.assigned += outcome == Outcome::Matched ? 1 : 0;
    return outcome;
}

// Floating-point numbers and pointers: the C library stores them in their own type.
template <typename Value>
Outcome ScanValue(Scan &scan, const Directive &directive)
{
    Value value{};
    bool overflow = false;
    const Outcome outcome = Convert(scan, directive, directive.length, &value, overflow);
    if (outcome != Outcome::Matched) {
        return outcome;
    }
    if constexpr (std::is_floating_point_v<Value>) {
        overflow = overflow && std::isinf(value);  // an underflow still fits
    }
    auto *dest = va_arg(scan.args.list, Value *);
    if (dest == nullptr) {
        return Outcome::Error;
    }
    if (overflow) {
        return Outcome::MatchingFailure;
    }
    *dest = value;
    ++scan.assigned;
    return Outcome::Matched;
}

// Empties a text destination of `size` characters.
void ResetText(void *dest, unsigned int size, bool wide)
{
    if (dest == nullptr || size == 0) {
        return;
    }
    if (wide) {
        *static_cast<wchar_t *>(dest) = L'\0';
    } else {
        *static_cast<char *>(dest) = '\0';
    }
}

// Copies `field` into the `size` characters at `dest`. False if it does not fit or is not valid multibyte text.
bool StoreText(void *dest, unsigned int size, std::string_view field, bool wide, bool terminated)
{
    const std::size_t terminator = terminated ? 1 : 0;
    if (!wide) {
        if (field.size() + terminator > size) {
            return false;
        }
        std::memcpy(dest, field.data(), field.size());
        if (terminated) {
            static_cast<char *>(dest)[field.size()] = '\0';
        }
        return true;
    }
    std::mbstate_t state{};
    const char *from = field.data();
    const std::size_t count = mbsnrtowcs(nullptr, &from, field.size(), 0, &state);
    if (count == static_cast<std::size_t>(-1) || count + terminator > size) {
        return false;
    }
    state = {};
    (void)mbsnrtowcs(static_cast<wchar_t *>(dest), &from, field.size(), count, &state);  // counted above
    if (terminated) {
        static_cast<wchar_t *>(dest)[count] = L'\0';
    }
    return true;
}

Outcome ScanText(Scan &scan, const Directive &directive)
{
    const char *begin = directive.Kind() == 's' ? SkipSpace(scan.position) : scan.position;
    const Outcome outcome = SkipField(scan, directive);
    if (outcome != Outcome::Matched) {
        return outcome;
    }
    void *dest = va_arg(scan.args.list, void *);
    const unsigned int size = va_arg(scan.args.list, unsigned int);
    if (dest == nullptr) {
        return Outcome::Error;
    }
    const std::string_view field(begin, static_cast<std::size_t>(scan.position - begin));
    if (!StoreText(dest, size, field, directive.IsWide(), directive.Kind() != 'c')) {
        ResetText(dest, size, directive.IsWide());
        return Outcome::MatchingFailure;
    }
    ++scan.assigned;
    return Outcome::Matched;
}

Outcome MatchCharacter(Scan &scan, char expected)
{
    if (*scan.position == '\0') {
        return Outcome::InputFailure;
    }
    if (*scan.position != expected) {
        return Outcome::MatchingFailure;
    }
    ++scan.position;
    return Outcome::Matched;
}

Outcome ScanDirective(Scan &scan, const Directive &directive)
{
    if (!IsKnown(directive)) {
        return Outcome::Error;
    }
    if (directive.suppressed && directive.Kind() != '%') {
        return SkipField(scan, directive);
    }
    switch (directive.Kind()) {
        case 'd':
        case 'i':
            return ScanInteger<std::intmax_t>(scan, directive);
        case 'o':
        case 'u':
        case 'x':
        case 'X':
            return ScanInteger<std::uintmax_t>(scan, directive);
        case 'a':
        case 'A':
        case 'e':
        case 'E':
        case 'f':
        case 'F':
        case 'g':
        case 'G':
            return directive.length == "L"   ? ScanValue<long double>(scan, directive)
                   : directive.length == "l" ? ScanValue<double>(scan, directive)
                                             : ScanValue<float>(scan, directive);
        case 'p':
            return ScanValue<void *>(scan, directive);
        case 's':
        case 'c':
        case '[':
            return ScanText(scan, directive);
        case 'n':
            return StoreInteger(scan.args, directive.length, std::intmax_t{scan.position - scan.input}, false);
        case '%':
            scan.position = SkipSpace(scan.position);
            return MatchCharacter(scan, '%');
        default:
            return Outcome::Error;
    }
}

// Empties the destination of the format's first conversion if that is a text.
void ResetFirstText(std::string_view format, Arguments &args)
{
    const std::size_t percent = format.find('%');
    if (percent == std::string_view::npos) {
        return;
    }
    format.remove_prefix(percent + 1);
    const Directive directive = TakeDirective(format);
    if (directive.IsText() && !directive.suppressed && IsKnown(directive)) {
        void *dest = va_arg(args.list, void *);
        const unsigned int size = va_arg(args.list, unsigned int);
        ResetText(dest, size, directive.IsWide());
    }
}

Outcome ScanAll(Scan &scan, std::string_view format)
{
    Outcome outcome = Outcome::Matched;
    while (!format.empty() && outcome == Outcome::Matched) {
        const char c = format.front();
        format.remove_prefix(1);
        if (std::isspace(static_cast<unsigned char>(c)) != 0) {
            scan.position = SkipSpace(scan.position);
        } else if (c == '%') {
            outcome = ScanDirective(scan, TakeDirective(format));
        } else {
            outcome = MatchCharacter(scan, c);
        }
    }
    return outcome;
}

}  // namespace

int vsscanf_s(const char *input, const char *format, va_list list)
{
    if (input == nullptr || format == nullptr) {
        return -1;
    }
    const int callersErrno = errno;
    Scan scan{input, input, {}, 0, false};
    va_copy(scan.args.list, list);
    const std::size_t length = std::strlen(input);
    int result = -1;
    if (!SAFE_IsValidSize(length)) {
        ResetFirstText(format, scan.args);
    } else {
        const Outcome outcome = ScanAll(scan, format);
        const bool endsEarly = outcome == Outcome::InputFailure && !scan.completed;
        result = outcome == Outcome::Error || endsEarly ? -1 : scan.assigned;
    }
    va_end(scan.args.list);
    errno = callersErrno;
    return result;
}

int sscanf_s(const char *input, const char *format, ...)
{
    va_list list;
    va_start(list, format);
    const int result = vsscanf_s(input, format, list);
    va_end(list);
    return result;
}
