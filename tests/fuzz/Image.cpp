#include <span>
#include <vector>

#include "decoder/DecodeImage.h"
#include "decoder/FormatDecoders.h"
#include "decoder/PixelStore.h"
#include "tests/fuzz/FuzzTarget.h"

using namespace glintmark;

namespace {

/// Has room for images of up to a million pixels. Larger ones only slow the fuzzer down.
class SmallPixels : public decoder::PixelStore {
public:
    bool fill(int width, int height) const {
        return width > 0 && height > 0 &&
               bytes_.size() ==
                   std::size_t{4} * static_cast<unsigned>(width) * static_cast<unsigned>(height);
    }

private:
    std::span<std::uint8_t> provide(std::size_t size) override {
        if (size > std::size_t{4} << 20U) {
            return {};
        }
        bytes_.assign(size, 0);
        return bytes_;
    }

    std::vector<std::uint8_t> bytes_;
};

}  // namespace

/// Rule: a decoded image has exactly the pixels that its size needs. GLINTMARK_DECODE is
/// decodeImage, or the decoder of one format.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    SmallPixels pixels;
    const auto image = decoder::GLINTMARK_DECODE({data, size}, pixels);
    fuzz::require(!image || pixels.fill(image->width, image->height));
    return 0;
}
