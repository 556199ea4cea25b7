#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "base/graphics/BitmapImageRep.h"

namespace glintmark {
class DispatchQueue;
}  // namespace glintmark

namespace glintmark::platform {

/// One icon as PNG files of three sizes, for any number of files.
struct IconPictures {
    static constexpr int fullEdge = 512;  ///< All edges are in pixels.
    static constexpr int largeEdge = 256;
    static constexpr int normalEdge = 128;

    std::string full;
    std::string large;
    std::string normal;
};

/// Encodes `bitmap`, stretched to each of the three sizes. If `helpers` has a free thread, it
/// encodes the two small ones meanwhile. The work that it gets owns its data and may be dropped.
IconPictures encodedPictures(const BitmapImageRep& bitmap, DispatchQueue& helpers);

/// The facts about its file that a thumbnail records. Readers ignore a thumbnail that is out of
/// date.
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

    /// Writes the thumbnails of all four sizes. The two largest hold the same bytes and share one
    /// file where possible. False when one of them could not be written, or less than 5 % of the
    /// file system is free; then nothing is written.
    bool write(const IconPictures& pictures, const ThumbnailSubject& subject) const;

private:
    std::string folder_;
};

}  // namespace glintmark::platform
