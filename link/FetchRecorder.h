#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "base/graphics/Image.h"
#include "platform/ImageDecoder.h"
#include "platform/URLSession.h"

namespace glintmark::link {

/// One request of a fetch and its outcome.
struct RequestRecord {
    std::string url;
    std::optional<std::string> userAgent;         ///< Absent for the client's default.
    std::chrono::nanoseconds begin{0};            ///< Since the recorder was made.
    std::optional<std::chrono::nanoseconds> end;  ///< Absent while it runs.
    std::optional<int> status;
    std::optional<std::size_t> bytes;  ///< Of the body; absent without one.
    std::optional<std::string> error;
    bool wasDecoded = false;             ///< The body was passed to the decoder.
    std::shared_ptr<const Image> image;  ///< Null when the body was not an image.
};

/// Passes all calls on to a session and a decoder, and records them. Any thread.
class FetchRecorder final : public platform::URLSession, public platform::ImageDecoder {
public:
    FetchRecorder(platform::URLSession& session, platform::ImageDecoder& decoder)
        : session_(session), decoder_(decoder) {}

    std::shared_ptr<platform::URLTaskGroup> makeTaskGroup(const std::string& host) override {
        return session_.makeTaskGroup(host);
    }

    void prepare() override { session_.prepare(); }

    /// Completions run on the session's threads and must not outlive the recorder.
    void startDataTask(platform::URLRequest request,
                       platform::URLSession::Completion completion) override;

    /// The image belongs to the request in whose completion it is decoded.
    void decode(std::string data, const std::shared_ptr<platform::ImageBatch>& batch,
                platform::ImageDecoder::Completion completion) override;
    std::shared_ptr<platform::ImageBatch> makeBatch() override { return decoder_.makeBatch(); }

    /// In the order in which they were started.
    std::vector<RequestRecord> requests() const;

private:
    std::size_t recordStart(const platform::URLRequest& request);
    void recordEnd(std::size_t index, const platform::URLResult& result);
    std::chrono::nanoseconds elapsed() const { return std::chrono::steady_clock::now() - begin_; }

    platform::URLSession& session_;
    platform::ImageDecoder& decoder_;
    const std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();

    mutable std::mutex mutex_;
    std::vector<RequestRecord> requests_;
};

}  // namespace glintmark::link
