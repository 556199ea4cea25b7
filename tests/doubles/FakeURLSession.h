#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "platform/URLSession.h"

namespace glintmark::doubles {

class VirtualQueues;

/// Answers requests from a table of URLs; an http address that is not in it is answered with 404
/// and an empty body. Completions run on the fakes' background queue.
class FakeURLSession final : public platform::URLSession {
public:
    explicit FakeURLSession(VirtualQueues& queues) : queues_(queues) {}

    void startDataTask(platform::URLRequest request, Completion completion) override;

    /// What comes of each request for `url` from now on, `delay` after it was started.
    void answer(const std::string& url, platform::URLResult result,
                std::chrono::nanoseconds delay = {});
    void answer(const std::string& url, int status, std::string body,
                std::chrono::nanoseconds delay = {});
    void fail(const std::string& url, std::string error);

    /// Requests for `url` receive no data and fail once their time-out has passed.
    void staySilent(const std::string& url);
    void staySilentEverywhere() { silentOtherwise_ = true; }  ///< Where nothing else was said.

    /// Requests for `url` are never completed, against the contract.
    void neverAnswer(const std::string& url);

    /// In the order in which they were started.
    const std::vector<platform::URLRequest>& requests() const { return requests_; }
    std::vector<std::string> requestedURLs() const;
    std::size_t requestCount(const std::string& url) const;

private:
    enum class Kind { result, silence, never };
    struct Answer {
        Kind kind = Kind::result;
        platform::URLResult result;
        std::chrono::nanoseconds delay{0};
    };

    Answer answerFor(const platform::URLRequest& request) const;

    VirtualQueues& queues_;
    bool silentOtherwise_ = false;
    std::map<std::string, Answer> answers_;
    std::vector<platform::URLRequest> requests_;
    std::vector<Completion> neverCompleted_;
};

}  // namespace glintmark::doubles
