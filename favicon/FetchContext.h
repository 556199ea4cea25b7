#pragma once

#include <memory>

#include "platform/ImageDecoder.h"
#include "platform/URLSession.h"

namespace glintmark {

/// What the requests and images of one fetch share. Copies share the same.
struct FetchContext {
    /// For a new fetch.
    static FetchContext make();

    std::shared_ptr<platform::URLTaskGroup> requests;
    std::shared_ptr<platform::ImageBatch> images;
};

}  // namespace glintmark
