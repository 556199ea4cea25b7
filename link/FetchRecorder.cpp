#include "link/FetchRecorder.h"

#include <utility>

namespace glintmark::link {

namespace {

/// The request whose completion is running on this thread.
thread_local std::optional<std::size_t> currentRequest;

}  // namespace

void FetchRecorder::startDataTask(platform::URLRequest request,
                                  platform::URLSession::Completion completion) {
    const std::size_t index = recordStart(request);
    session_.startDataTask(std::move(request), [this, index, completion = std::move(completion)](
                                                   platform::URLResult result) {
        recordEnd(index, result);
        currentRequest = index;
        completion(std::move(result));
        currentRequest.reset();
    });
}

void FetchRecorder::decode(std::string data, const std::shared_ptr<platform::ImageBatch>& batch,
                           platform::ImageDecoder::Completion completion) {
    decoder_.decode(std::move(data), batch,
                    [this, index = currentRequest, completion = std::move(completion)](auto image) {
                        if (index) {
                            const std::lock_guard lock(mutex_);
                            RequestRecord& record = requests_.at(*index);
                            record.wasDecoded = true;
                            record.image = image;
                        }
                        completion(std::move(image));
                    });
}

std::vector<RequestRecord> FetchRecorder::requests() const {
    const std::lock_guard lock(mutex_);
    return requests_;
}

std::size_t FetchRecorder::recordStart(const platform::URLRequest& request) {
    RequestRecord record;
    record.url = request.url.absoluteString();
    record.begin = elapsed();
    for (const auto& [name, value] : request.headers) {
        if (name == "User-Agent") {
            record.userAgent = value;
        }
    }
    const std::lock_guard lock(mutex_);
    requests_.push_back(std::move(record));
    return requests_.size() - 1;
}

void FetchRecorder::recordEnd(std::size_t index, const platform::URLResult& result) {
    const std::lock_guard lock(mutex_);
    RequestRecord& record = requests_.at(index);
    record.end = elapsed();
    record.error = result.error;
    if (result.response) {
        record.status = result.response->statusCode;
    }
    if (result.body) {
        record.bytes = result.body->size();
    }
}

}  // namespace glintmark::link
