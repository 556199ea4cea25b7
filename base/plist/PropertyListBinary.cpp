#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "base/plist/PropertyListReaders.h"
#include "base/text/TextEncoding.h"

// The binary form: an eight-byte header; objects, each a marker byte (kind in the high half, size
// in the low one) with its contents; a table of the objects' offsets; a trailer of 32 bytes. All
// numbers are big-endian.

namespace glintmark {
namespace {

constexpr std::size_t headerBytes = 8;
constexpr std::size_t trailerBytes = 32;

using Number = std::optional<std::uint64_t>;

/// Absent when the number does not fit 64 bits.
Number bigEndian(std::string_view bytes) {
    while (bytes.size() > sizeof(std::uint64_t)) {
        if (bytes.front() != '\0') {
            return std::nullopt;
        }
        bytes.remove_prefix(1);
    }
    std::uint64_t number = 0;
    for (const char byte : bytes) {
        number = number << 8U | static_cast<unsigned char>(byte);
    }
    return number;
}

/// True if `bytes` have no unpaired surrogate (RFC 2781, section 2.2).
bool isUTF16(std::string_view bytes) {
    constexpr unsigned surrogateMask = 0xFC;  // of the high byte
    constexpr unsigned high = 0xD8;
    constexpr unsigned low = 0xDC;
    bool followsHigh = false;
    for (std::size_t place = 0; place < bytes.size(); place += 2) {
        const auto kind = static_cast<unsigned char>(bytes[place]) & surrogateMask;
        if (followsHigh != (kind == low)) {
            return false;
        }
        followsHigh = kind == high;
    }
    return !followsHigh;
}

/// Text of one byte a character. The form says ASCII, but some writers store Latin-1. No converter
/// is opened here and below, since a file may have millions of texts.
std::string byteText(std::string_view bytes) {
    std::string text;
    for (const char byte : bytes) {
        appendUTF8(text, static_cast<unsigned char>(byte));
    }
    return text;
}

/// `bytes` have no unpaired surrogate. RFC 2781, section 2.2.
std::string wideText(std::string_view bytes) {
    constexpr char32_t surrogateBits = 10;
    constexpr char32_t firstHigh = 0xD800;
    constexpr char32_t firstLow = 0xDC00;
    constexpr char32_t firstSupplementary = 0x10000;
    std::string text;
    char32_t high = 0;
    for (std::size_t place = 0; place < bytes.size(); place += 2) {
        const auto unit = static_cast<char32_t>(*bigEndian(bytes.substr(place, 2)));
        if (unit >> surrogateBits == firstHigh >> surrogateBits) {
            high = unit - firstHigh;
        } else if (unit >> surrogateBits == firstLow >> surrogateBits) {
            appendUTF8(text, firstSupplementary + (high << surrogateBits) + (unit - firstLow));
        } else {
            appendUTF8(text, unit);
        }
    }
    return text;
}

class BinaryReader {
public:
    BinaryReader(std::string_view bytes, const KeptValues& kept) : bytes_(bytes), kept_(kept) {}

    std::optional<PropertyList> read();

private:
    bool readTrailer();
    std::optional<PropertyList> object(std::uint64_t index, std::size_t depth, bool isKept);
    std::optional<PropertyList> valueAt(std::uint64_t offset, std::size_t depth, bool isKept);
    std::optional<PropertyList> other(unsigned kind, unsigned size);
    std::optional<PropertyList> text(std::optional<std::string_view> bytes, bool isWide,
                                     bool isKept);
    std::optional<PropertyList> array(std::optional<std::string_view> references,
                                      std::size_t depth);
    std::optional<PropertyList> dictionary(std::optional<std::string_view> references,
                                           std::size_t depth, bool isKept);
    bool work(std::size_t bytes);
    Number sizeOfObject(unsigned size);
    std::optional<std::string_view> take(Number count, std::size_t unitBytes);
    std::uint64_t reference(std::string_view references, std::size_t place) const;

    std::string_view bytes_;
    const KeptValues& kept_;
    std::string_view objects_;  ///< Begins with the header, where offsets count from.
    std::string_view offsets_;
    std::size_t offsetBytes_ = 0;
    std::size_t referenceBytes_ = 0;
    std::uint64_t objectCount_ = 0;
    std::uint64_t rootIndex_ = 0;
    std::size_t position_ = 0;  ///< In objects_: where the next read begins.
    PropertyListBudget budget_;
    std::vector<bool> checked_;  ///< By index: dropped objects that need no second check.
    std::size_t workLeft_ = 0;   ///< While not all is kept: the bytes that may still be read.
};

std::optional<PropertyList> BinaryReader::read() {
    if (!readTrailer()) {
        return std::nullopt;
    }
    if (!kept_.isAll()) {
        checked_.resize(objectCount_);
        // Objects that do not overlap are read once each. Only the keys of the root may be read
        // twice: kept, and dropped elsewhere.
        workLeft_ = 2 * objects_.size();
    }
    return object(rootIndex_, 1, true);
}

/// Counts the bytes of objects that are read. Without a limit, objects that overlap could take
/// time in proportion to the square of the file. What is kept has its limit in the budget.
bool BinaryReader::work(std::size_t bytes) {
    if (kept_.isAll()) {
        return true;
    }
    const bool isEnough = bytes <= workLeft_;
    workLeft_ -= isEnough ? bytes : workLeft_;
    return isEnough;
}

bool BinaryReader::readTrailer() {
    if (bytes_.size() < headerBytes + trailerBytes) {
        return false;
    }
    const auto body = bytes_.substr(0, bytes_.size() - trailerBytes);
    const auto trailer = bytes_.substr(body.size());
    offsetBytes_ = static_cast<unsigned char>(trailer[6]);
    referenceBytes_ = static_cast<unsigned char>(trailer[7]);
    objectCount_ = *bigEndian(trailer.substr(8, 8));
    rootIndex_ = *bigEndian(trailer.substr(16, 8));
    const auto tableOffset = *bigEndian(trailer.substr(24, 8));
    if (offsetBytes_ < 1 || offsetBytes_ > 8 || referenceBytes_ < 1 || referenceBytes_ > 8 ||
        tableOffset < headerBytes || tableOffset > body.size()) {
        return false;
    }
    objects_ = body.substr(0, tableOffset);
    offsets_ = body.substr(tableOffset);  // the table ends at the trailer
    return offsets_.size() % offsetBytes_ == 0 && objectCount_ == offsets_.size() / offsetBytes_;
}

/// An object that is not kept is empty, but a string is a string.
std::optional<PropertyList> BinaryReader::object(std::uint64_t index, std::size_t depth,
                                                 bool isKept) {
    if (index >= objectCount_ || depth > maximumPropertyListDepth ||
        (isKept && !budget_.takeValue())) {
        return std::nullopt;
    }
    const auto offset = *bigEndian(offsets_.substr(index * offsetBytes_, offsetBytes_));
    if (offset < headerBytes || offset >= objects_.size()) {
        return std::nullopt;
    }
    if (!isKept && checked_[index]) {
        const unsigned kind = static_cast<unsigned char>(objects_[offset]) >> 4U;
        return kind == 0x5 || kind == 0x6 ? PropertyList(std::string())
                                          : PropertyList(PropertyList::Other::null);
    }
    auto value = valueAt(offset, depth, isKept);
    if (!isKept && value) {
        checked_[index] = true;
    }
    return value;
}

std::optional<PropertyList> BinaryReader::valueAt(std::uint64_t offset, std::size_t depth,
                                                  bool isKept) {
    const auto marker = static_cast<unsigned char>(objects_[offset]);
    const unsigned kind = marker >> 4U;
    const unsigned size = marker & 0x0FU;
    position_ = offset + 1;
    switch (kind) {
        case 0x5:
            return text(take(sizeOfObject(size), 1), false, isKept);
        case 0x6:
            return text(take(sizeOfObject(size), 2), true, isKept);
        case 0xA:
            return array(take(sizeOfObject(size), referenceBytes_), depth);
        case 0xD:
            return dictionary(take(sizeOfObject(size), 2 * referenceBytes_), depth, isKept);
        default:
            return other(kind, size);
    }
}

std::optional<PropertyList> BinaryReader::other(unsigned kind, unsigned size) {
    using Other = PropertyList::Other;
    const auto whole = [this](Number bytes, Other other) {
        return take(bytes, 1) ? std::optional<PropertyList>(other) : std::nullopt;
    };
    switch (kind) {
        case 0x0:
            if (size == 0) {
                return PropertyList(Other::null);
            }
            return size == 8 || size == 9 ? std::optional<PropertyList>(Other::boolean)
                                          : std::nullopt;
        case 0x1:  // integer of 1 to 16 bytes
            return size <= 4 ? whole(1U << size, Other::number) : std::nullopt;
        case 0x2:  // real of 4 or 8 bytes
            return size == 2 || size == 3 ? whole(1U << size, Other::number) : std::nullopt;
        case 0x3:
            return size == 3 ? whole(8, Other::date) : std::nullopt;
        case 0x4:
            return whole(sizeOfObject(size), Other::data);
        case 0x8:
            return whole(size + 1, Other::uid);
        default:
            return std::nullopt;  // sets, and kinds that later versions added
    }
}

std::optional<PropertyList> BinaryReader::text(std::optional<std::string_view> bytes, bool isWide,
                                               bool isKept) {
    if (!bytes || !work(bytes->size())) {
        return std::nullopt;
    }
    if (isWide && !isUTF16(*bytes)) {
        return std::nullopt;
    }
    if (!isKept) {
        return PropertyList(std::string());
    }
    auto decoded = isWide ? wideText(*bytes) : byteText(*bytes);
    if (!budget_.takeText(decoded.size())) {
        return std::nullopt;
    }
    return PropertyList(std::move(decoded));
}

std::optional<PropertyList> BinaryReader::array(std::optional<std::string_view> references,
                                                std::size_t depth) {
    if (!references || !work(references->size())) {
        return std::nullopt;
    }
    PropertyList::Array elements;
    for (std::size_t place = 0; place < references->size(); place += referenceBytes_) {
        auto element = object(reference(*references, place), depth + 1, kept_.isAll());
        if (!element) {
            return std::nullopt;
        }
        if (kept_.isAll()) {
            elements.push_back(std::move(*element));
        }
    }
    return PropertyList(std::move(elements));
}

std::optional<PropertyList> BinaryReader::dictionary(std::optional<std::string_view> references,
                                                     std::size_t depth, bool isKept) {
    if (!references || !work(references->size())) {
        return std::nullopt;
    }
    const bool keepsKeys = isKept && (kept_.isAll() || depth == 1);
    // First all keys, then their values in the same order.
    const auto valuesBegin = references->size() / 2;
    PropertyList::Dictionary entries;
    for (std::size_t place = 0; place < valuesBegin; place += referenceBytes_) {
        const auto key = object(reference(*references, place), depth + 1, keepsKeys);
        // Checked before the value is read: a dictionary that is its own key and value would be
        // read again and again.
        if (!key || key->string() == nullptr) {
            return std::nullopt;
        }
        const bool keepsEntry = keepsKeys && (kept_.isAll() || *key->string() == *kept_.onlyKey);
        auto value = object(reference(*references, valuesBegin + place), depth + 1, keepsEntry);
        if (!value) {
            return std::nullopt;
        }
        if (keepsEntry) {
            entries.insert_or_assign(*key->string(), std::move(*value));
        } else if (keepsKeys) {
            budget_.giveValueBack();
            budget_.giveTextBack(key->string()->size());
        }
    }
    return PropertyList(std::move(entries));
}

/// The size from a marker. A size of 15 means that an integer object with the real size follows.
Number BinaryReader::sizeOfObject(unsigned size) {
    constexpr unsigned sizeFollows = 0x0F;
    if (size != sizeFollows) {
        return size;
    }
    const auto marker = take(1, 1);
    if (!marker) {
        return std::nullopt;
    }
    const auto integer = static_cast<unsigned char>(marker->front());
    if (integer >> 4U != 0x1 || (integer & 0x0FU) > 4) {
        return std::nullopt;
    }
    const auto bytes = take(1U << (integer & 0x0FU), 1);
    return bytes ? bigEndian(*bytes) : std::nullopt;
}

/// The next `count` units of the objects. Absent when there are fewer.
std::optional<std::string_view> BinaryReader::take(Number count, std::size_t unitBytes) {
    const auto rest = objects_.substr(position_);
    if (!count || *count > rest.size() / unitBytes) {
        return std::nullopt;
    }
    const auto taken = rest.substr(0, *count * unitBytes);
    position_ += taken.size();
    return taken;
}

std::uint64_t BinaryReader::reference(std::string_view references, std::size_t place) const {
    return *bigEndian(references.substr(place, referenceBytes_));
}

}  // namespace

std::optional<PropertyList> readBinaryPropertyList(std::string_view bytes, const KeptValues& kept) {
    return BinaryReader(bytes, kept).read();
}

}  // namespace glintmark
