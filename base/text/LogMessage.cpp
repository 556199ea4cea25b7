#include "base/text/LogMessage.h"

#include <algorithm>
#include <array>
#include <optional>

namespace glintmark {
namespace {

/// A directive (fprintf(3)) without its argument.
struct Directive {
    bool leftAligned = false;
    bool zeroPadded = false;
    bool signAlways = false;
    bool signBlank = false;
    bool alternate = false;
    std::size_t width = 0;
    std::optional<std::size_t> precision;
    char conversion = 0;
};

/// The output of a directive before padding.
struct Field {
    std::string prefix;  ///< Sign and base; padding zeros follow it.
    std::string body;
    bool mayPadWithZeros = false;
};

/// Reads one directive. After that, `rest()` is the text after the directive.
class DirectiveReader {
public:
    explicit DirectiveReader(std::string_view afterPercent) : rest_(afterPercent) {}

    /// Absent when no complete directive comes next.
    std::optional<Directive> read() {
        readFlags();
        directive_.width = readNumber();
        if (take(".")) {
            directive_.precision = readNumber();
        }
        constexpr std::array lengths = {"hh", "h", "ll", "l", "q", "L", "j", "z", "t"};
        static_cast<void>(std::any_of(lengths.begin(), lengths.end(),
                                      [this](const char* length) { return take(length); }));
        constexpr std::string_view conversions = "dDiuUxXoOcCsSp@fFeEgGaAn";
        if (rest_.empty() || conversions.find(rest_.front()) == std::string_view::npos) {
            return std::nullopt;
        }
        directive_.conversion = rest_.front();
        rest_.remove_prefix(1);
        return directive_;
    }

    std::string_view rest() const { return rest_; }

private:
    bool take(std::string_view expected) {
        if (!rest_.starts_with(expected)) {
            return false;
        }
        rest_.remove_prefix(expected.size());
        return true;
    }

    void readFlags() {
        for (; !rest_.empty(); rest_.remove_prefix(1)) {
            switch (rest_.front()) {
                case '-':
                    directive_.leftAligned = true;
                    break;
                case '0':
                    directive_.zeroPadded = true;
                    break;
                case '+':
                    directive_.signAlways = true;
                    break;
                case ' ':
                    directive_.signBlank = true;
                    break;
                case '#':
                    directive_.alternate = true;
                    break;
                case '\'':
                    break;  // groups digits: no effect on a zero
                default:
                    return;
            }
        }
    }

    /// A star stands for an argument and so for zero. Without digits the number is zero.
    std::size_t readNumber() {
        std::size_t number = 0;
        if (take("*")) {
            return number;
        }
        while (!rest_.empty() && rest_.front() >= '0' && rest_.front() <= '9') {
            number = std::min(number * 10 + static_cast<std::size_t>(rest_.front() - '0'),
                              maximumLogFieldWidth);
            rest_.remove_prefix(1);
        }
        return number;
    }

    std::string_view rest_;
    Directive directive_;
};

std::string sign(const Directive& directive) {
    if (directive.signAlways) {
        return "+";
    }
    return directive.signBlank ? " " : "";
}

/// A zero prints as many digits as the precision says, which may be none.
std::string zeroDigits(const Directive& directive) {
    std::string digits(directive.precision.value_or(1), '0');
    return digits;
}

std::string withFraction(std::size_t digits, bool alternate) {
    return digits == 0 && !alternate ? "0" : "0." + std::string(digits, '0');
}

Field integerField(const Directive& directive) {
    Field field;
    field.body = zeroDigits(directive);
    field.mayPadWithZeros = !directive.precision;
    switch (directive.conversion) {
        case 'd':
        case 'D':
        case 'i':
            field.prefix = sign(directive);
            break;
        case 'o':
        case 'O':
            if (directive.alternate && field.body.empty()) {
                field.body = "0";  // the alternate form begins with a zero
            }
            break;
        case 'p':
            field.prefix = "0x";
            break;
        default:
            break;  // a zero has no prefix for its base
    }
    return field;
}

Field floatingField(const Directive& directive) {
    constexpr std::size_t defaultPrecision = 6;
    Field field;
    field.prefix = sign(directive);
    field.mayPadWithZeros = true;
    const auto precision = directive.precision.value_or(defaultPrecision);
    const char conversion = directive.conversion;
    switch (conversion) {
        case 'e':
        case 'E':
            field.body = withFraction(precision, directive.alternate) + conversion + "+00";
            break;
        case 'g':
        case 'G':
            // The precision counts significant digits; only the alternate form keeps the zeros at
            // the end.
            field.body = directive.alternate
                             ? withFraction(std::max<std::size_t>(precision, 1) - 1, true)
                             : "0";
            break;
        case 'a':
        case 'A':
            field.prefix += conversion == 'a' ? "0x" : "0X";
            field.body = withFraction(directive.precision.value_or(0), directive.alternate) +
                         (conversion == 'a' ? "p+0" : "P+0");
            break;
        default:
            field.body = withFraction(precision, directive.alternate);
    }
    return field;
}

Field textField(const Directive& directive) {
    constexpr std::string_view nothing = "(null)";
    Field field;
    field.body = nothing.substr(0, directive.precision.value_or(nothing.size()));
    return field;
}

Field fieldOf(const Directive& directive) {
    switch (directive.conversion) {
        case 'c':
        case 'C':
        case 'n':
            return {};
        case 's':
        case 'S':
        case '@':
            return textField(directive);
        case 'f':
        case 'F':
        case 'e':
        case 'E':
        case 'g':
        case 'G':
        case 'a':
        case 'A':
            return floatingField(directive);
        default:
            return integerField(directive);
    }
}

std::string expanded(const Directive& directive) {
    const auto [prefix, body, mayPadWithZeros] = fieldOf(directive);
    const auto length = prefix.size() + body.size();
    const auto padding = directive.width > length ? directive.width - length : 0;
    if (directive.leftAligned) {
        return prefix + body + std::string(padding, ' ');
    }
    if (directive.zeroPadded && mayPadWithZeros) {
        return prefix + std::string(padding, '0') + body;
    }
    return std::string(padding, ' ') + prefix + body;
}

/// Cuts `line` to the maximum length, between two characters.
void cutOff(std::string& line) {
    if (line.size() <= maximumLogLineBytes) {
        return;
    }
    constexpr std::size_t maximumTail = 3;  // continuation bytes of one UTF-8 character
    const auto isContinuation = [](char c) {
        return (static_cast<unsigned char>(c) & 0xC0U) == 0x80;
    };
    auto end = maximumLogLineBytes;
    while (isContinuation(line[end]) && maximumLogLineBytes - end < maximumTail) {
        --end;
    }
    line.resize(isContinuation(line[end]) ? maximumLogLineBytes : end);
}

}  // namespace

std::string formatLogMessage(std::string_view message) {
    std::string line;
    auto rest = message;
    while (!rest.empty() && line.size() <= maximumLogLineBytes) {
        const auto percent = std::min(rest.find('%'), rest.size());
        line += rest.substr(0, percent);
        rest.remove_prefix(percent);
        if (rest.empty()) {
            break;
        }
        if (rest.starts_with("%%")) {
            line += '%';
            rest.remove_prefix(2);
            continue;
        }
        rest.remove_prefix(1);
        DirectiveReader reader(rest);
        if (const auto directive = reader.read()) {
            line += expanded(*directive);
            rest = reader.rest();
        } else {
            line += '%';
        }
    }
    cutOff(line);
    return line;
}

}  // namespace glintmark
