#include "base/plist/PropertyList.h"

#include <new>
#include <utility>

#include "base/plist/PropertyListReaders.h"
#include "base/text/TextEncoding.h"

namespace glintmark {
namespace {

constexpr std::size_t maximumTreeBytes = std::size_t{48} * 1024 * 1024;

/// The memory of a dictionary node: three links, a colour, the key and the value. An array element
/// takes less, even if counted twice because its array reserves memory.
constexpr std::size_t valueBytes = 4 * sizeof(void*) + sizeof(std::string) + sizeof(PropertyList);

/// The first bytes of the binary form, whatever its minor version.
constexpr std::string_view binaryHeader = "bplist0";

std::string_view withoutLeadingBlanks(std::string_view text) {
    const auto first = text.find_first_not_of(" \t\r\n");
    return text.substr(first == std::string_view::npos ? text.size() : first);
}

/// False for the old text form, where "<" begins data and only hexadecimal digits follow it.
bool looksLikeXML(std::string_view text) {
    constexpr std::string_view beginnings[] = {"<?", "<!", "<plist", "<dict", "<array"};
    for (const auto beginning : beginnings) {
        if (text.starts_with(beginning)) {
            return true;
        }
    }
    return false;
}

std::optional<PropertyList> read(std::string_view bytes, const KeptValues& kept) {
    if (bytes.starts_with(binaryHeader)) {
        return readBinaryPropertyList(bytes, kept);
    }
    const auto mark = byteOrderMark(bytes);
    std::optional<std::string> decoded;
    if (mark) {
        bytes.remove_prefix(mark->bytes);
        if (mark->encoding != std::string_view("UTF-8")) {
            decoded = decodedText(bytes, mark->encoding);
            if (!decoded) {
                return std::nullopt;
            }
            bytes = *decoded;
        }
    }
    const auto text = withoutLeadingBlanks(bytes);
    if (looksLikeXML(text)) {
        return readXMLPropertyList(text, mark.has_value(), kept);
    }
    return isUTF8(text) ? readTextPropertyList(text, kept) : std::nullopt;
}

}  // namespace

bool PropertyListBudget::takeValue() { return takeText(valueBytes); }

void PropertyListBudget::giveValueBack() { giveTextBack(valueBytes); }

bool PropertyListBudget::takeText(std::size_t bytes) {
    takenBytes_ += bytes;
    return takenBytes_ <= maximumTreeBytes;
}

std::optional<PropertyList> PropertyList::parse(std::string_view bytes) { return read(bytes, {}); }

std::optional<std::string> PropertyList::stringInRoot(std::string_view bytes,
                                                      std::string_view key) {
    try {
        const auto root = read(bytes, {key});
        const auto* const entries = root ? root->dictionary() : nullptr;
        const auto entry = entries != nullptr ? entries->find(key) : Dictionary::const_iterator();
        const bool isFound = entries != nullptr && entry != entries->end();
        const auto* const string = isFound ? entry->second.string() : nullptr;
        return string != nullptr ? std::optional(*string) : std::nullopt;
    } catch (const std::bad_alloc&) {
        return std::nullopt;
    }
}

}  // namespace glintmark
