#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>

#include "platform/ImageDecoder.h"

namespace glintmark::doubles {

/// Decodes images that are written as text: "image 57x60 opaque" and "image 57x60 transparent"
/// have a bitmap, all opaque without an alpha channel or all transparent with one; "image 57x60
/// large" is opaque and makes its bitmap when it is asked for, each time; "image 63.5x10" has a
/// size alone. Anything else is no image.
class FakeImageDecoder final : public platform::ImageDecoder {
public:
    std::shared_ptr<const Image> decode(std::string data) override;

    int decodes() const { return decodes_; }

    /// Called when a large image makes its bitmap.
    std::function<void()> bitmapMade = [] {};

private:
    std::atomic<int> decodes_ = 0;
};

}  // namespace glintmark::doubles
