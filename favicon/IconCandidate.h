#pragma once

#include <cstdint>
#include <memory>

#include "base/graphics/Image.h"
#include "favicon/IconSource.h"

namespace glintmark {

/// A downloaded image that may become a file's icon. A value; any thread.
struct IconCandidate {
    /// Tests the image for transparency. `candidateImage` must not be null.
    IconCandidate(std::shared_ptr<const Image> candidateImage, IconSource imageSource);

    /// What a score is the sum of.
    struct ScoreParts {
        std::int64_t largeWidth;  ///< For a large picture.
        std::int64_t width;
        std::int64_t transparency;
        std::int64_t source;
    };

    /// A higher score means a better icon. A width that does not fit 64 bits ends the process.
    std::int64_t score() const;
    ScoreParts scoreParts() const;

    std::shared_ptr<const Image> image;
    IconSource source;
    bool hasTransparency;  ///< True if the image's edges are visibly transparent.

private:
    static bool checkTransparency(const Image& image);
};

}  // namespace glintmark
