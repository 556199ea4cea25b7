#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

#include "decoder/ByteReader.h"
#include "decoder/FormatDecoders.h"
#include "decoder/ImageLimits.h"
#include "decoder/PixelStore.h"

// CompuServe, "Graphics Interchange Format, Version 89a". Like browsers, this reader takes minimum
// code sizes up to 11, where the format ends at 8.

namespace glintmark::decoder {

namespace {

constexpr std::size_t screenOffset = 6;
constexpr std::size_t screenSize = 7;
constexpr std::size_t frameSize = 9;
constexpr std::size_t coloursInTable = 256;

constexpr std::uint8_t extensionMark = 0x21;
constexpr std::uint8_t frameMark = 0x2C;
constexpr std::uint8_t graphicControl = 0xF9;

constexpr std::uint8_t hasTable = 0x80;
constexpr std::uint8_t isInterlaced = 0x40;
constexpr std::uint8_t hasTransparentIndex = 0x01;

constexpr unsigned maximumMinimumCodeSize = 11;
constexpr unsigned maximumCodeSize = 12;
constexpr std::size_t maximumCodes = std::size_t{1} << maximumCodeSize;

/// RGBA. Indices beyond the file's table are black.
using Colours = std::array<std::array<std::uint8_t, 4>, coloursInTable>;

std::size_t tableSize(std::uint8_t flags) {
    return (flags & hasTable) != 0 ? std::size_t{3} << ((flags & 7U) + 1) : 0;
}

Colours readColours(const ByteReader& file, std::size_t at, std::size_t size) {
    Colours colours;
    colours.fill({0, 0, 0, 255});
    for (std::size_t i = 0; i < size / 3; ++i, at += 3) {
        colours[i] = {file.byte(at), file.byte(at + 1), file.byte(at + 2), 255};
    }
    return colours;
}

/// Where the data blocks that begin at `at` end. Absent if the file ends before them.
std::optional<std::size_t> endOfBlocks(const ByteReader& file, std::size_t at) {
    while (file.byte(at) != 0) {
        at += std::size_t{1} + file.byte(at);
    }
    return file.has(at, 1) ? std::optional(at + 1) : std::nullopt;
}

struct Frame {
    std::size_t end = 0;  ///< Of its header.
    int left = 0;
    int top = 0;
    int width = 0;
    int height = 0;
    std::uint8_t flags = 0;
    std::optional<std::uint8_t> transparentIndex;
};

/// Reads from the first block at `at` up to the end of the first frame's header.
std::optional<Frame> readToFirstFrame(const ByteReader& file, std::size_t at) {
    Frame frame;
    while (file.byte(at) == extensionMark) {
        const std::size_t block = at + 2;
        if (file.byte(at + 1) == graphicControl && file.byte(block) == 4) {
            const bool used = (file.byte(block + 1) & hasTransparentIndex) != 0;
            frame.transparentIndex = used ? std::optional(file.byte(block + 4)) : std::nullopt;
        }
        const auto end = endOfBlocks(file, block);
        if (!end) {
            return std::nullopt;
        }
        at = *end;
    }
    if (file.byte(at) != frameMark) {
        return std::nullopt;
    }
    ++at;
    frame.left = static_cast<int>(file.little16(at));
    frame.top = static_cast<int>(file.little16(at + 2));
    frame.width = static_cast<int>(file.little16(at + 4));
    frame.height = static_cast<int>(file.little16(at + 6));
    frame.flags = file.byte(at + 8);
    frame.end = at + frameSize;
    return frame;
}

/// Unpacks the codes of whole data blocks into strings of colour indices (appendix F).
class StringReader {
public:
    StringReader(const ByteReader& file, std::size_t blocks, unsigned minimumCodeSize)
        : file_(file), at_(blocks), clear_(1U << minimumCodeSize), firstSize_(minimumCodeSize + 1) {
        for (unsigned code = 0; code < clear_; ++code) {
            first_[code] = static_cast<std::uint8_t>(code);
        }
        clear();
    }

    /// The next string, valid until the next call. Empty at the end of the data and at a code that
    /// the table does not have.
    std::span<const std::uint8_t> next() {
        std::optional<unsigned> code = readCode();
        while (code == clear_) {
            clear();
            code = readCode();
        }
        const unsigned endOfInformation = clear_ + 1;
        if (!code || *code == endOfInformation) {
            return {};
        }
        const bool adds = previous_ && next_ < maximumCodes;
        if (*code >= (adds ? next_ + 1 : next_)) {
            return {};
        }
        if (adds) {
            add(*code == next_ ? first_[*previous_] : first_[*code]);
        }
        if (next_ >= 1U << size_ && size_ < maximumCodeSize) {
            ++size_;
        }
        previous_ = *code;
        return expanded(*code);
    }

private:
    void clear() {
        next_ = clear_ + 2;
        size_ = firstSize_;
        previous_.reset();
    }

    std::optional<std::uint8_t> readByte() {
        if (left_ == 0) {
            left_ = file_.byte(at_++);
            if (left_ == 0) {
                --at_;  // stays at the end of the blocks
                return std::nullopt;
            }
        }
        --left_;
        return file_.byte(at_++);
    }

    std::optional<unsigned> readCode() {
        while (bitCount_ < size_) {
            const auto byte = readByte();
            if (!byte) {
                return std::nullopt;
            }
            bits_ |= static_cast<std::uint32_t>(*byte) << bitCount_;
            bitCount_ += 8;
        }
        const unsigned code = bits_ & ((1U << size_) - 1);
        bits_ >>= size_;
        bitCount_ -= size_;
        return code;
    }

    /// Adds the previous string followed by `last`.
    void add(std::uint8_t last) {
        first_[next_] = first_[*previous_];
        last_[next_] = last;
        prefix_[next_] = static_cast<std::uint16_t>(*previous_);
        ++next_;
    }

    std::span<const std::uint8_t> expanded(unsigned code) {
        std::size_t begin = string_.size();
        for (; code >= clear_; code = prefix_[code]) {
            string_[--begin] = last_[code];
        }
        string_[--begin] = first_[code];
        return std::span(string_).subspan(begin);
    }

    ByteReader file_;
    std::size_t at_;
    std::size_t left_ = 0;  // bytes of the current block
    std::uint32_t bits_ = 0;
    unsigned bitCount_ = 0;

    unsigned clear_;
    unsigned firstSize_;
    unsigned size_ = 0;
    unsigned next_ = 0;
    std::optional<unsigned> previous_;
    std::array<std::uint8_t, maximumCodes> first_{};
    std::array<std::uint8_t, maximumCodes> last_{};
    std::array<std::uint16_t, maximumCodes> prefix_{};
    std::array<std::uint8_t, maximumCodes> string_{};
};

// Appendix E: the order of the rows of an interlaced frame.
std::vector<int> rowOrder(const Frame& frame) {
    struct Pass {
        int first;
        int step;
    };
    static constexpr Pass straight[] = {{0, 1}};
    static constexpr Pass interlace[] = {{0, 8}, {4, 8}, {2, 4}, {1, 2}};
    const std::span<const Pass> passes = (frame.flags & isInterlaced) != 0
                                             ? std::span<const Pass>(interlace)
                                             : std::span<const Pass>(straight);
    std::vector<int> order;
    for (const auto& [first, step] : passes) {
        for (int y = first; y < frame.height; y += step) {
            order.push_back(y);
        }
    }
    return order;
}

/// Draws row `y` of the frame as far as it lies on the canvas.
void drawRow(const Frame& frame, int y, const std::vector<std::uint8_t>& indices,
             const Colours& colours, const Canvas& canvas) {
    if (frame.top + y >= canvas.height()) {
        return;
    }
    const int end = std::min(frame.left + frame.width, canvas.width());
    std::uint8_t* row = canvas.row(frame.top + y);
    for (int x = frame.left; x < end; ++x) {
        const std::uint8_t index = indices[static_cast<std::size_t>(x - frame.left)];
        std::memcpy(row + static_cast<std::ptrdiff_t>(x) * 4, colours[index].data(), 4);
    }
}

/// False if there are fewer pixels than the frame needs.
bool drawFrame(const Frame& frame, StringReader& strings, const Colours& colours,
               const Canvas& canvas) {
    std::vector<std::uint8_t> indices(static_cast<std::size_t>(frame.width));
    std::span<const std::uint8_t> string;
    for (const int y : rowOrder(frame)) {
        for (std::size_t x = 0; x < indices.size();) {
            if (string.empty()) {
                string = strings.next();
            }
            if (string.empty()) {
                return false;
            }
            const std::size_t length = std::min(indices.size() - x, string.size());
            std::memcpy(&indices[x], string.data(), length);
            string = string.subspan(length);
            x += length;
        }
        drawRow(frame, y, indices, colours, canvas);
    }
    return true;
}

}  // namespace

std::optional<DecodedImage> decodeGIF(std::span<const std::uint8_t> file, PixelStore& pixels) {
    const ByteReader bytes(file);
    const std::size_t globalColours = screenOffset + screenSize;
    const std::size_t globalSize = tableSize(bytes.byte(screenOffset + 4));
    const auto frame = readToFirstFrame(bytes, globalColours + globalSize);
    if (!frame || std::int64_t{frame->width} * frame->height > maximumPixels || frame->width == 0 ||
        frame->height == 0) {
        return std::nullopt;
    }
    const std::size_t localSize = tableSize(frame->flags);
    const std::size_t data = frame->end + localSize;
    const unsigned codeSize = bytes.byte(data);
    if ((localSize == 0 && globalSize == 0) || codeSize > maximumMinimumCodeSize ||
        !endOfBlocks(bytes, data + 1)) {
        return std::nullopt;
    }

    // The frame is cut at the screen's edges; the rest of the screen is transparent. A screen
    // without a size has that of the frame.
    const auto screenWidth = static_cast<int>(bytes.little16(screenOffset));
    const auto screenHeight = static_cast<int>(bytes.little16(screenOffset + 2));
    const auto canvas =
        pixels.allocate(screenWidth != 0 ? screenWidth : frame->left + frame->width,
                        screenHeight != 0 ? screenHeight : frame->top + frame->height);
    if (!canvas) {
        return std::nullopt;
    }
    Colours colours = localSize != 0 ? readColours(bytes, frame->end, localSize)
                                     : readColours(bytes, globalColours, globalSize);
    if (frame->transparentIndex) {
        colours[*frame->transparentIndex] = {};
    }
    StringReader strings(bytes, data + 1, codeSize);
    if (!drawFrame(*frame, strings, colours, *canvas)) {
        return std::nullopt;
    }
    const bool covers = frame->left == 0 && frame->top == 0 && frame->width >= canvas->width() &&
                        frame->height >= canvas->height();
    return DecodedImage{canvas->width(), canvas->height(), frame->transparentIndex || !covers};
}

}  // namespace glintmark::decoder
