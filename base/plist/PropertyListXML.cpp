#include <expat.h>

#include <charconv>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "base/plist/PropertyListReaders.h"
#include "base/plist/XMLSplitter.h"
#include "base/text/TextEncoding.h"

namespace glintmark {
namespace {

using Other = PropertyList::Other;

constexpr std::size_t pieceBytes = std::size_t{64} * 1024;

constexpr std::string_view blanks = " \t\r\n";
constexpr std::string_view digits = "0123456789";

bool isBlank(std::string_view text) {
    return text.find_first_not_of(blanks) == std::string_view::npos;
}

bool isMadeOf(std::string_view characters, std::string_view text) {
    return !text.empty() && text.find_first_not_of(characters) == std::string_view::npos;
}

std::string_view trimmed(std::string_view text) {
    const auto first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(blanks) + 1 - first);
}

std::string_view withoutSign(std::string_view text) {
    return text.starts_with('+') || text.starts_with('-') ? text.substr(1) : text;
}

bool isInteger(std::string_view text) {
    const auto number = withoutSign(trimmed(text));
    if (number.starts_with("0x") || number.starts_with("0X")) {
        return isMadeOf(hexDigits, number.substr(2));
    }
    return isMadeOf(digits, number);
}

/// Infinities and "nan" are reals, and so is a number beyond the range of `double`.
bool isReal(std::string_view text) {
    const auto number = withoutSign(trimmed(text));
    double value = 0;
    const auto* end = number.data() + number.size();
    const auto result = std::from_chars(number.data(), end, value);
    return result.ec != std::errc::invalid_argument && result.ptr == end &&
           !number.starts_with('-');
}

/// A year of any length, then "-MM-DDThh:mm:ssZ".
bool isDate(std::string_view text) {
    constexpr std::string_view pattern = "-00-00T00:00:00Z";
    if (text.size() <= pattern.size()) {
        return false;
    }
    const auto year = text.substr(0, text.size() - pattern.size());
    const auto rest = text.substr(year.size());
    for (std::size_t i = 0; i < pattern.size(); ++i) {
        if (pattern[i] == '0' ? !isMadeOf(digits, rest.substr(i, 1)) : rest[i] != pattern[i]) {
            return false;
        }
    }
    return isMadeOf(digits, withoutSign(year));
}

/// The value of an element that holds only text. Absent if the text is not valid for that element.
std::optional<PropertyList> leafValue(std::string_view element, std::string text) {
    const auto checked = [](bool holds, Other kind) {
        return holds ? std::optional<PropertyList>(kind) : std::nullopt;
    };
    if (element == "string") {
        return PropertyList(std::move(text));
    }
    if (element == "true" || element == "false") {
        return checked(isBlank(text), Other::boolean);
    }
    if (element == "integer") {
        return checked(isInteger(text), Other::number);
    }
    if (element == "real") {
        return checked(isReal(text), Other::number);
    }
    if (element == "date") {
        return checked(isDate(text), Other::date);
    }
    return checked(element == "data", Other::data);  // its text is not decoded
}

/// Builds the tree from the parser's events.
class XMLReader {
public:
    explicit XMLReader(const KeptValues& kept) : kept_(kept) {}

    void begin(std::string_view element);
    void attribute() { failed_ = failed_ || !budget_.takeValue(); }
    void end(std::string_view element);
    void text(std::string_view text);
    void fail() { failed_ = true; }

    /// Anything after the end of the root element is ignored.
    bool isFinished() const { return failed_ || root_; }
    std::optional<PropertyList> takeRoot() { return failed_ ? std::nullopt : std::move(root_); }

private:
    /// The element "plist" around the one value.
    struct Document {
        std::optional<PropertyList> value;
    };
    struct Dictionary {
        PropertyList::Dictionary entries;
        std::optional<std::string> key;  ///< Its value comes next. Empty if that is not kept.
        bool keepsEntry = true;          ///< True if the value after `key` is kept.
    };
    struct Array {
        PropertyList::Array elements;
    };
    struct Leaf {
        std::string text;
        bool keepsText = true;
    };
    struct Open {
        std::variant<Document, Dictionary, Array, Leaf> element;
        bool isKept = true;  ///< True if its value goes into the tree.
        bool isRoot = false;
    };

    bool mayBegin(std::string_view element) const;
    bool keeps(std::string_view element) const;
    void endDropped(std::string_view element);
    void endKey(std::string text);
    static std::optional<PropertyList> value(Open& closed, std::string_view element);
    void add(PropertyList value);

    const KeptValues& kept_;
    std::vector<Open> open_;
    std::optional<PropertyList> root_;
    bool failed_ = false;
    PropertyListBudget budget_;
};

/// True if `element` is allowed inside the innermost open element.
bool XMLReader::mayBegin(std::string_view element) const {
    if (open_.empty()) {
        return element != "key";
    }
    const bool isKey = element == "key";
    const auto& parent = open_.back().element;
    if (const auto* dictionary = std::get_if<Dictionary>(&parent)) {
        return isKey != dictionary->key.has_value() && element != "plist";
    }
    if (const auto* document = std::get_if<Document>(&parent)) {
        return !isKey && !document->value && element != "plist";
    }
    return !isKey && std::holds_alternative<Array>(parent) && element != "plist";
}

/// True if the value of `element`, which begins now, stays in the tree.
bool XMLReader::keeps(std::string_view element) const {
    if (kept_.isAll() || open_.empty()) {
        return true;
    }
    const auto& parent = open_.back();
    if (const auto* dictionary = std::get_if<Dictionary>(&parent.element)) {
        return parent.isRoot && (element == "key" || dictionary->keepsEntry);
    }
    return std::holds_alternative<Document>(parent.element);
}

void XMLReader::begin(std::string_view element) {
    const bool isKept = keeps(element);
    if (!mayBegin(element) || open_.size() > maximumPropertyListDepth ||
        (isKept && !budget_.takeValue())) {
        return fail();
    }
    const bool isRoot = open_.empty() || std::holds_alternative<Document>(open_.back().element);
    if (element == "plist") {
        open_.push_back({Document()});
    } else if (element == "dict") {
        open_.push_back({Dictionary(), isKept, isRoot});
    } else if (element == "array") {
        open_.push_back({Array(), isKept, isRoot});
    } else {
        // The text of numbers and dates is checked at their end, kept or not. An unknown element
        // fails there.
        const bool isUnchecked = element == "string" || element == "key" || element == "data";
        open_.push_back({Leaf{{}, isKept || !isUnchecked}, isKept, isRoot});
    }
}

void XMLReader::end(std::string_view element) {
    if (!open_.back().isKept) {
        return endDropped(element);
    }
    auto closed = std::move(open_.back());
    open_.pop_back();
    if (element == "key") {
        return endKey(std::move(std::get<Leaf>(closed.element).text));
    }
    auto closedValue = value(closed, element);
    return closedValue ? add(std::move(*closedValue)) : fail();
}

/// Checks the value and makes none, which would take most of the time for a large file.
void XMLReader::endDropped(std::string_view element) {
    auto& closed = open_.back().element;
    bool isValid = true;
    if (auto* const leaf = std::get_if<Leaf>(&closed)) {
        budget_.giveTextBack(leaf->text.size());
        isValid = !leaf->keepsText || leafValue(element, std::move(leaf->text));
    } else if (const auto* const dictionary = std::get_if<Dictionary>(&closed)) {
        isValid = !dictionary->key;
    }
    open_.pop_back();
    if (!isValid) {
        return fail();
    }
    if (auto* const parent = std::get_if<Dictionary>(&open_.back().element)) {
        if (element == "key") {
            parent->key.emplace();
            parent->keepsEntry = false;
        } else {
            parent->key.reset();
        }
    }
}

void XMLReader::endKey(std::string text) {
    auto& dictionary = std::get<Dictionary>(open_.back().element);
    dictionary.keepsEntry = kept_.isAll() || text == *kept_.onlyKey;
    if (!dictionary.keepsEntry) {
        budget_.giveTextBack(text.size());
        budget_.giveValueBack();
    }
    dictionary.key = dictionary.keepsEntry ? std::move(text) : std::string();
}

void XMLReader::text(std::string_view text) {
    auto* leaf = std::get_if<Leaf>(&open_.back().element);
    if (leaf == nullptr) {
        return isBlank(text) ? void() : fail();
    }
    if (!leaf->keepsText) {
        return;
    }
    if (!budget_.takeText(text.size())) {
        return fail();
    }
    leaf->text += text;
}

std::optional<PropertyList> XMLReader::value(Open& closed, std::string_view element) {
    if (auto* leaf = std::get_if<Leaf>(&closed.element)) {
        return leafValue(element, std::move(leaf->text));
    }
    if (auto* array = std::get_if<Array>(&closed.element)) {
        return PropertyList(std::move(array->elements));
    }
    if (auto* document = std::get_if<Document>(&closed.element)) {
        return std::move(document->value);
    }
    auto& dictionary = std::get<Dictionary>(closed.element);
    if (dictionary.key) {
        return std::nullopt;
    }
    return PropertyList(std::move(dictionary.entries));
}

void XMLReader::add(PropertyList value) {
    if (open_.empty()) {
        root_ = std::move(value);
        return;
    }
    auto& parent = open_.back().element;
    if (auto* dictionary = std::get_if<Dictionary>(&parent)) {
        dictionary->entries.insert_or_assign(std::move(*dictionary->key), std::move(value));
        dictionary->key.reset();
    } else if (auto* array = std::get_if<Array>(&parent)) {
        array->elements.push_back(std::move(value));
    } else {
        std::get<Document>(parent).value = std::move(value);
    }
}

struct ParserCloser {
    void operator()(XML_Parser parser) const { XML_ParserFree(parser); }
};

/// One run of the parser, with the state that its callbacks change.
struct Parsing {
    Parsing(const char* encoding, const KeptValues& kept)
        : parser(XML_ParserCreate(encoding)), reader(kept) {}

    std::unique_ptr<std::remove_pointer_t<XML_Parser>, ParserCloser> parser;
    XMLReader reader;
    std::string unknownEncoding;  ///< Declared, but the parser does not know it.
};

template <typename Report>
void report(void* data, Report report) {
    auto& parsing = *static_cast<Parsing*>(data);
    if (!parsing.reader.isFinished()) {  // a stopped parser may still call back
        report(parsing.reader);
    }
    if (parsing.reader.isFinished()) {
        XML_StopParser(parsing.parser.get(), XML_FALSE);
    }
}

void onBegin(void* data, const XML_Char* element, const XML_Char** attributes) {
    report(data, [&](XMLReader& reader) {
        reader.begin(element);
        // The parser keeps the name of every attribute. The array has names and values.
        for (; *attributes != nullptr; attributes += 2) {
            reader.attribute();
        }
    });
}

void onEnd(void* data, const XML_Char* element) {
    report(data, [&](XMLReader& reader) { reader.end(element); });
}

void onText(void* data, const XML_Char* text, int length) {
    report(data, [&](XMLReader& reader) { reader.text({text, static_cast<std::size_t>(length)}); });
}

/// Entities and default attributes can make a document grow without bound. They need an internal
/// subset of the document type, which property lists do not have.
void onDocumentType(void* data, const XML_Char*, const XML_Char*, const XML_Char*,
                    int hasInternalSubset) {
    if (hasInternalSubset != 0) {
        report(data, [](XMLReader& reader) { reader.fail(); });
    }
}

/// The document type is not fetched, so the parser skips an unknown entity instead of failing.
void onSkippedEntity(void* data, const XML_Char*, int) {
    report(data, [](XMLReader& reader) { reader.fail(); });
}

int onUnknownEncoding(void* data, const XML_Char* name, XML_Encoding*) {
    static_cast<Parsing*>(data)->unknownEncoding = name;
    return XML_STATUS_ERROR;
}

/// Gives pieces of a document to the parser. False as soon as no more is needed.
class Feed {
public:
    explicit Feed(Parsing& parsing) : parser_(parsing.parser.get()) {
        XML_SetUserData(parser_, &parsing);
        XML_SetElementHandler(parser_, onBegin, onEnd);
        XML_SetCharacterDataHandler(parser_, onText);
        XML_SetStartDoctypeDeclHandler(parser_, onDocumentType);
        XML_SetSkippedEntityHandler(parser_, onSkippedEntity);
        XML_SetUnknownEncodingHandler(parser_, onUnknownEncoding, &parsing);
    }

    bool take(std::string_view bytes) {
        while (!bytes.empty() && isOpen_) {
            const auto piece = bytes.substr(0, pieceBytes);
            bytes.remove_prefix(piece.size());
            isOpen_ = splitter_.split(piece, [this](std::string_view part) { return parse(part); });
        }
        return isOpen_;
    }

    void end() {
        if (isOpen_) {
            XML_Parse(parser_, nullptr, 0, XML_TRUE);
        }
    }

private:
    bool parse(std::string_view part) {
        return XML_Parse(parser_, part.data(), static_cast<int>(part.size()), XML_FALSE) ==
               XML_STATUS_OK;
    }

    XML_Parser parser_;
    XMLSplitter splitter_;
    bool isOpen_ = true;
};

std::optional<PropertyList> readInPieces(std::string_view bytes, const std::string& encoding,
                                         const KeptValues& kept) {
    Parsing parsing("UTF-8", kept);
    Feed feed(parsing);
    const bool isDecoded =
        decodeInPieces(bytes, encoding, [&feed](std::string_view piece) { feed.take(piece); });
    feed.end();
    return isDecoded ? parsing.reader.takeRoot() : std::nullopt;
}

}  // namespace

std::optional<PropertyList> readXMLPropertyList(std::string_view bytes, bool isUTF8,
                                                const KeptValues& kept) {
    Parsing parsing(isUTF8 ? "UTF-8" : nullptr, kept);
    Feed feed(parsing);
    feed.take(bytes);
    feed.end();
    return parsing.unknownEncoding.empty() ? parsing.reader.takeRoot()
                                           : readInPieces(bytes, parsing.unknownEncoding, kept);
}

}  // namespace glintmark
