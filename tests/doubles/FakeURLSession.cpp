#include "tests/doubles/FakeURLSession.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "base/text/TextCase.h"
#include "tests/doubles/VirtualQueues.h"

namespace glintmark::doubles {

using std::chrono::nanoseconds;

void FakeURLSession::startDataTask(platform::URLRequest request, Completion completion) {
    auto answer = answerFor(request);
    const auto timeout = request.timeoutInterval;
    requests_.push_back(std::move(request));
    if (answer.kind == Kind::never) {
        neverCompleted_.push_back(std::move(completion));
        return;
    }
    if (answer.kind == Kind::silence) {
        answer.result = {std::nullopt, std::nullopt, "The request timed out."};
        answer.delay = timeout;
    }
    queues_.background().asyncAfter(
        answer.delay, [completion = std::move(completion), result = std::move(answer.result)] {
            completion(result);
        });
}

void FakeURLSession::answer(const std::string& url, platform::URLResult result, nanoseconds delay) {
    answers_[url] = {Kind::result, std::move(result), delay};
}

void FakeURLSession::answer(const std::string& url, int status, std::string body,
                            nanoseconds delay) {
    answer(url, {std::move(body), platform::URLResponse{status}, std::nullopt}, delay);
}

void FakeURLSession::fail(const std::string& url, std::string error) {
    answer(url, {std::nullopt, std::nullopt, std::move(error)});
}

void FakeURLSession::staySilent(const std::string& url) { answers_[url] = {Kind::silence, {}, {}}; }

void FakeURLSession::neverAnswer(const std::string& url) { answers_[url] = {Kind::never, {}, {}}; }

std::vector<std::string> FakeURLSession::requestedURLs() const {
    std::vector<std::string> urls;
    std::transform(requests_.begin(), requests_.end(), std::back_inserter(urls),
                   [](const auto& request) { return request.url.absoluteString(); });
    return urls;
}

std::size_t FakeURLSession::requestCount(const std::string& url) const {
    const auto urls = requestedURLs();
    return static_cast<std::size_t>(std::count(urls.begin(), urls.end(), url));
}

FakeURLSession::Answer FakeURLSession::answerFor(const platform::URLRequest& request) const {
    const std::string scheme = lowercased(request.url.scheme().value_or(""));
    if ((scheme != "http" && scheme != "https") || !request.url.host()) {
        return {Kind::result, {std::nullopt, std::nullopt, "unsupported URL"}, {}};
    }
    const auto answer = answers_.find(request.url.absoluteString());
    if (answer != answers_.end()) {
        return answer->second;
    }
    if (silentOtherwise_) {
        return {Kind::silence, {}, {}};
    }
    return {Kind::result, {"", platform::URLResponse{404}, std::nullopt}, {}};
}

}  // namespace glintmark::doubles
