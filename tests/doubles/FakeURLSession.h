#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/URLSession.h"

namespace glintmark::doubles {

class VirtualQueues;

/// Answers requests from a table of URLs. An HTTP address that is not in the table gets status 404
/// and an empty body. Completions run on the fakes' background queue.
class FakeURLSession final : public platform::URLSession {
public:
    explicit FakeURLSession(VirtualQueues& queues) : queues_(queues) {}

    std::shared_ptr<platform::URLTaskGroup> makeTaskGroup(const std::string& host) override {
        groupHosts_.push_back(host);
        return std::make_shared<platform::URLTaskGroup>();
    }
    /// The hosts of the groups, in the order in which they were made.
    const std::vector<std::string>& groupHosts() const { return groupHosts_; }

    void prepare() override { ++preparations_; }
    int preparations() const { return preparations_; }
    void startDataTask(platform::URLRequest request, Completion completion) override;

    /// The answer to each request for `url` from now on, `delay` after its start.
    void answer(const std::string& url, platform::URLResult result,
                std::chrono::nanoseconds delay = {});
    void answer(const std::string& url, int status, std::string body,
                std::chrono::nanoseconds delay = {});
    void fail(const std::string& url, std::string error);

    /// Requests for `url` receive no data and fail after their timeout.
    void staySilent(const std::string& url);
    void staySilentEverywhere() { silentOtherwise_ = true; }  ///< For all URLs outside the table.

    /// Requests for `url` are never completed, against the contract.
    void neverAnswer(const std::string& url);

    /// In the order of their start.
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
    int preparations_ = 0;
    std::vector<std::string> groupHosts_;
    bool silentOtherwise_ = false;
    std::map<std::string, Answer> answers_;
    std::vector<platform::URLRequest> requests_;
    std::vector<Completion> neverCompleted_;
};

}  // namespace glintmark::doubles
