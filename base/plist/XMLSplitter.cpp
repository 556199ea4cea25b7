#include "base/plist/XMLSplitter.h"

namespace glintmark {
namespace {

constexpr std::size_t maximumUnbrokenBytes = std::size_t{32} * 1024;
constexpr std::size_t maximumTokenBytes = std::size_t{4} * 1024 * 1024;

constexpr std::string_view commentOpening = "<!--";
constexpr std::string_view unparsedOpening = "<![CDATA[";
constexpr std::string_view endAndBeginning = "--><!--";
constexpr std::string_view wholeComment = "<!---->";

bool isBlank(char byte) { return byte == ' ' || byte == '\t' || byte == '\r' || byte == '\n'; }

/// In UTF-8: a byte that is not the first of its character.
bool isContinuation(char byte) { return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80; }

}  // namespace

bool XMLSplitter::split(std::string_view bytes,
                        const std::function<bool(std::string_view part)>& pass) {
    std::size_t passed = 0;
    for (std::size_t place = 0; place < bytes.size(); ++place) {
        if (tokenBytes_ >= maximumUnbrokenBytes) {
            const auto separator = breakBefore(bytes[place]);
            if (!separator.empty()) {
                if (!pass(bytes.substr(passed, place - passed)) || !pass(separator)) {
                    return false;
                }
                passed = place;
                tokenBytes_ = 0;
            }
        }
        step(bytes[place]);
        if (tokenBytes_ > maximumTokenBytes) {
            return false;
        }
    }
    return pass(bytes.substr(passed));
}

/// What may be put before `byte` so that the token ends there; empty if nothing may.
std::string_view XMLSplitter::breakBefore(char byte) const {
    if (place_ == Place::comment) {
        const bool isInside = last_ != '-' && byte != '-' && !isContinuation(byte);
        return isInside ? endAndBeginning : std::string_view();
    }
    return place_ == Place::text && isBlank(byte) ? wholeComment : std::string_view();
}

void XMLSplitter::enter(Place place) {
    place_ = place;
    quote_ = last_ = beforeLast_ = 0;
}

void XMLSplitter::step(char byte) {
    ++tokenBytes_;
    const bool endsByTwo = place_ == Place::comment || place_ == Place::unparsed;
    const char twice = place_ == Place::comment ? '-' : ']';
    switch (place_) {
        case Place::text:
            // Texts of elements, and so their blanks, are passed on by the parser as they come.
            if (hasElement_ || !isBlank(byte)) {
                tokenBytes_ = 0;
            }
            if (byte == '<') {
                opening_ = byte;
                enter(Place::opening);
            } else if (byte == '&') {
                enter(Place::reference);
            }
            return;
        case Place::reference:
            if (byte == ';') {
                tokenBytes_ = 0;
                enter(Place::text);
            }
            return;
        case Place::opening:
            return stepInOpening(byte);
        case Place::markup:
            if (quote_ != 0) {
                quote_ = byte == quote_ ? '\0' : quote_;
            } else if (byte == '"' || byte == '\'') {
                quote_ = byte;
            } else if (byte == '>') {
                tokenBytes_ = 0;
                enter(Place::text);
            }
            return;
        case Place::comment:
        case Place::unparsed:
        case Place::instruction:
            if (byte == '>' &&
                (endsByTwo ? last_ == twice && beforeLast_ == twice : last_ == '?')) {
                tokenBytes_ = 0;
                return enter(Place::text);
            }
            beforeLast_ = last_;
            last_ = byte;
            // The parser passes unparsed text on as it comes.
            tokenBytes_ = place_ == Place::unparsed ? 0 : tokenBytes_;
            return;
    }
}

void XMLSplitter::stepInOpening(char byte) {
    opening_ += byte;
    if (opening_ == commentOpening) {
        return enter(Place::comment);
    }
    if (opening_ == unparsedOpening) {
        return enter(Place::unparsed);
    }
    if (byte == '?') {
        return enter(Place::instruction);
    }
    if (commentOpening.starts_with(opening_) || unparsedOpening.starts_with(opening_)) {
        return;
    }
    hasElement_ = hasElement_ || opening_[1] != '!';
    enter(Place::markup);
    --tokenBytes_;
    step(byte);
}

}  // namespace glintmark
