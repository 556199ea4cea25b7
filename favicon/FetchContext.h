#pragma once

#include <memory>
#include <string>

#include "platform/ImageDecoder.h"
#include "platform/URLSession.h"

namespace glintmark {

/// What the requests and images of one fetch share. Copies share the same.
struct FetchContext {
    /// For a new fetch for a link to `host`.
    static FetchContext make(const std::string& host);

    std::shared_ptr<platform::URLTaskGroup> requests;
    std::shared_ptr<platform::ImageBatch> images;
};

}  // namespace glintmark
