#include "linux/network/CurlURLSession.h"
#include "linux/queues/ThreadPoolQueue.h"
#include "tests/linux/Waiting.h"
#include "tests/platform/URLSessionContract.h"
#include "tests/support/LoopbackServer.h"
#include "tests/support/Subject.h"

namespace glintmark::platform {

namespace {

class CurlSubject : public URLSessionSubject {
public:
    URLSession& session() override { return session_; }

    std::string answering(int status, const std::string& body) override {
        const std::string target = "/" + std::to_string(++targets_);
        server_.on(target, test::answering(status, body));
        return server_.url(target);
    }

    std::string unreachable() override { return test::LoopbackServer().url("/"); }

    std::string silent() override {
        server_.on("/silent",
                   [](const test::LoopbackRequest&, test::LoopbackConnection& connection) {
                       connection.holdUntilClosed();
                   });
        return server_.url("/silent");
    }

    bool runUntil(const std::function<bool()>& condition) override { return waitFor(condition); }

private:
    int targets_ = 0;
    test::LoopbackServer server_;
    ThreadPoolQueue queue_{"completions", 4};
    CurlURLSession session_{queue_, {.version = "1"}};
};

INSTANTIATE_TEST_SUITE_P(Curl, URLSessionContract,
                         testing::Values(&test::makeSubject<URLSessionSubject, CurlSubject>));

}  // namespace

}  // namespace glintmark::platform
