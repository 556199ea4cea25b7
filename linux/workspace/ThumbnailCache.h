#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "base/graphics/BitmapImageRep.h"

namespace glintmark::platform {

/// One icon as encoded pictures, ready to be stored for any number of files.
struct IconPictures {
    std::string full;    ///< 512 pixels wide and high.
    std::string large;   ///< 256.
    std::string normal;  ///< 128.
};

/// Encodes `bitmap`, stretched to 512 x 512 when it measures otherwise.
IconPictures encodedPictures(const BitmapImageRep& bitmap);

/// What a thumbnail says about its file; readers drop one that is out of date.
struct ThumbnailSubject {
    std::string uri;
    std::string modificationTime;  ///< Seconds since 1970, in decimal.
    std::uint64_t size = 0;        ///< Bytes.
    std::string mimeType;
};

/// The thumbnails that all programs of a user share (freedesktop.org, Thumbnail Managing
/// Standard 0.9). Any thread.
class ThumbnailCache {
public:
    explicit ThumbnailCache(const std::string& cacheHome) : folder_(cacheHome + "/thumbnails") {}

    /// Writes the pictures of all four sizes. False when one could not be written.
    bool write(const IconPictures& pictures, const ThumbnailSubject& subject) const;

private:
    std::string folder_;
};

}  // namespace glintmark::platform
