#include <algorithm>
#include <cstdint>
#include <limits>
#include <string>
#include <utility>

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
    std::uint64_t number = 0;
    for (const char byte : bytes) {
        if (number > std::numeric_limits<std::uint64_t>::max() >> 8U) {
            return std::nullopt;
        }
        number = number << 8U | static_cast<unsigned char>(byte);
    }
    return number;
}

/// Text of one byte a character. The form says ASCII, but some writers store Latin-1.
std::optional<std::string> byteText(std::optional<std::string_view> bytes) {
    const auto isASCII = [](char c) { return static_cast<unsigned char>(c) < 0x80; };
    if (!bytes || std::all_of(bytes->begin(), bytes->end(), isASCII)) {
        return bytes ? std::optional<std::string>(*bytes) : std::nullopt;
    }
    return decodedText(*bytes, "ISO-8859-1");
}

std::optional<std::string> wideText(std::optional<std::string_view> bytes) {
    return bytes ? decodedText(*bytes, "UTF-16BE") : std::nullopt;
}

class BinaryReader {
public:
    explicit BinaryReader(std::string_view bytes) : bytes_(bytes) {}

    std::optional<PropertyList> read() {
        return readTrailer() ? object(rootIndex_, 1) : std::nullopt;
    }

private:
    bool readTrailer();
    std::optional<PropertyList> object(std::uint64_t index, std::size_t depth);
    std::optional<PropertyList> other(unsigned kind, unsigned size);
    std::optional<PropertyList> text(std::optional<std::string> decoded);
    std::optional<PropertyList> array(std::optional<std::string_view> references,
                                      std::size_t depth);
    std::optional<PropertyList> dictionary(std::optional<std::string_view> references,
                                           std::size_t depth);
    Number sizeOfObject(unsigned size);
    std::optional<std::string_view> take(Number count, std::size_t unitBytes);
    std::uint64_t reference(std::string_view references, std::size_t place) const;

    std::string_view bytes_;
    std::string_view objects_;  ///< Begins with the header, where offsets count from.
    std::string_view offsets_;
    std::size_t offsetBytes_ = 0;
    std::size_t referenceBytes_ = 0;
    std::uint64_t objectCount_ = 0;
    std::uint64_t rootIndex_ = 0;
    std::size_t position_ = 0;  ///< In objects_: where the next read begins.
    PropertyListBudget budget_;
};

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

std::optional<PropertyList> BinaryReader::object(std::uint64_t index, std::size_t depth) {
    if (index >= objectCount_ || depth > maximumPropertyListDepth || !budget_.takeValue()) {
        return std::nullopt;
    }
    const auto offset = *bigEndian(offsets_.substr(index * offsetBytes_, offsetBytes_));
    if (offset < headerBytes || offset >= objects_.size()) {
        return std::nullopt;
    }
    const auto marker = static_cast<unsigned char>(objects_[offset]);
    const unsigned kind = marker >> 4U;
    const unsigned size = marker & 0x0FU;
    position_ = offset + 1;
    switch (kind) {
        case 0x5:
            return text(byteText(take(sizeOfObject(size), 1)));
        case 0x6:
            return text(wideText(take(sizeOfObject(size), 2)));
        case 0xA:
            return array(take(sizeOfObject(size), referenceBytes_), depth);
        case 0xD:
            return dictionary(take(sizeOfObject(size), 2 * referenceBytes_), depth);
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

std::optional<PropertyList> BinaryReader::text(std::optional<std::string> decoded) {
    if (!decoded || !budget_.takeText(decoded->size())) {
        return std::nullopt;
    }
    return PropertyList(std::move(*decoded));
}

std::optional<PropertyList> BinaryReader::array(std::optional<std::string_view> references,
                                                std::size_t depth) {
    if (!references) {
        return std::nullopt;
    }
    PropertyList::Array elements;
    for (std::size_t place = 0; place < references->size(); place += referenceBytes_) {
        auto element = object(reference(*references, place), depth + 1);
        if (!element) {
            return std::nullopt;
        }
        elements.push_back(std::move(*element));
    }
    return PropertyList(std::move(elements));
}

std::optional<PropertyList> BinaryReader::dictionary(std::optional<std::string_view> references,
                                                     std::size_t depth) {
    if (!references) {
        return std::nullopt;
    }
    // First all keys, then their values in the same order.
    const auto valuesBegin = references->size() / 2;
    PropertyList::Dictionary entries;
    for (std::size_t place = 0; place < valuesBegin; place += referenceBytes_) {
        const auto key = object(reference(*references, place), depth + 1);
        // Checked before the value is read: a dictionary that is its own key and value would be
        // read again and again.
        if (!key || key->string() == nullptr) {
            return std::nullopt;
        }
        auto value = object(reference(*references, valuesBegin + place), depth + 1);
        if (!value) {
            return std::nullopt;
        }
        entries.insert_or_assign(*key->string(), std::move(*value));
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

std::optional<PropertyList> readBinaryPropertyList(std::string_view bytes) {
    return BinaryReader(bytes).read();
}

}  // namespace glintmark
