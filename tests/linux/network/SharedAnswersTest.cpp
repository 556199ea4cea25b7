#include <atomic>
#include <chrono>
#include <memory>

#include "linux/network/SharedAnswers.h"
#include "tests/linux/ProcessState.h"
#include "tests/linux/Waiting.h"
#include "tests/linux/network/CurlURLSessionFixture.h"
#include "tests/support/HostNames.h"

namespace glintmark::platform {

namespace {

using namespace std::chrono_literals;

using Fields = std::vector<std::pair<std::string, std::string>>;
using Pending = std::shared_ptr<PendingAnswer>;

const Fields fresh = {{"Cache-Control", "max-age=60"}};

/// Links of one host, each with one request, unless a test says otherwise.
class SharedAnswersTest : public CurlURLSessionTest {
protected:
    SharedAnswersTest() {
        options_.idleTimeout = std::chrono::hours(1);
        server_.on("/fresh", answering(200, "x", fresh));
    }
    ~SharedAnswersTest() override { mayAnswer_->set(); }

    void useManualClock() {
        options_.now = [this] { return clock_.now(); };
    }

    URLRequest ofALink(const std::string& url, const std::string& host = "h") {
        URLRequest asked = request(url);
        asked.group = session().makeTaskGroup(host);
        return asked;
    }
    Pending startOfALink(const std::string& url) { return start(ofALink(url)); }
    std::string bodyFor(URLRequest asked) {
        return start(std::move(asked))->wait().body.value_or("none");
    }
    std::string bodyFor(const std::string& url) { return bodyFor(ofALink(url)); }

    std::vector<Pending> startLinks(int count, const std::string& url) {
        std::vector<Pending> pending;
        pending.reserve(static_cast<std::size_t>(count));
        for (int i = 0; i < count; ++i) {
            pending.push_back(startOfALink(url));
        }
        return pending;
    }
    static void expectBodies(const std::vector<Pending>& pending, const std::string& body) {
        for (const Pending& one : pending) {
            EXPECT_EQ(one->wait().body, body) << one->result.error.value_or("");
            EXPECT_EQ(one->completions, 1);
        }
    }

    /// Answers like `then`, but the first request sets `isHeld_`, and gets its answer after
    /// `mayAnswer_`.
    LoopbackServer::Handler holdingTheFirst(LoopbackServer::Handler then) {
        return [then = std::move(then), count = std::make_shared<std::atomic<int>>(0),
                isHeld = isHeld_, mayAnswer = mayAnswer_](const LoopbackRequest& request,
                                                          LoopbackConnection& connection) {
            if (++*count == 1) {
                isHeld->set();
                mayAnswer->wait();
            }
            then(request, connection);
        };
    }

    std::size_t asked() const { return server_.requests().size(); }

    std::shared_ptr<Event> isHeld_ = std::make_shared<Event>();
    std::shared_ptr<Event> mayAnswer_ = std::make_shared<Event>();
    ManualClock clock_;
    const test::HostNames names_;
};

TEST_F(SharedAnswersTest, TenLinksOneAfterTheOtherAskAPlaceOnce) {
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(bodyFor(server_.url("/fresh")), "x");
    }
    EXPECT_EQ(asked(), 1U);
}

TEST_F(SharedAnswersTest, TenLinksAtOnceAskAPlaceOnce) {
    server_.on("/", holdingTheFirst(answering(200, "x", fresh)));
    const auto pending = startLinks(10, server_.url("/"));
    letSessionRunOnce();
    mayAnswer_->set();
    expectBodies(pending, "x");
    EXPECT_EQ(asked(), 1U);
}

TEST_F(SharedAnswersTest, OnlyLinksOfTheSameHostShare) {
    EXPECT_EQ(bodyFor(ofALink(server_.url("/fresh"), "h")), "x");
    EXPECT_EQ(bodyFor(ofALink(server_.url("/fresh"), "H")), "x");
    EXPECT_EQ(asked(), 1U);
    EXPECT_EQ(bodyFor(ofALink(server_.url("/fresh"), "other")), "x");
    EXPECT_EQ(asked(), 2U);
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(bodyFor(request(server_.url("/fresh"))), "x");  // of no link
    }
    EXPECT_EQ(asked(), 4U);

    server_.on("/", holdingTheFirst(answering(200, "x", fresh)));
    const auto pending = startOfALink(server_.url("/"));
    ASSERT_TRUE(isHeld_->wait());
    EXPECT_EQ(bodyFor(ofALink(server_.url("/"), "other")), "x");
    mayAnswer_->set();
    EXPECT_EQ(pending->wait().body, "x");
}

TEST_F(SharedAnswersTest, AnAnswerIsUsedWhileItIsFresh) {
    useManualClock();
    for (const auto& [advance, requests] : std::vector<std::pair<std::chrono::seconds, int>>{
             {0s, 1}, {30s, 1}, {29s, 1}, {1s, 2}, {59s, 2}, {1s, 3}}) {
        clock_.advance(advance);
        EXPECT_EQ(bodyFor(server_.url("/fresh")), "x");
        EXPECT_EQ(asked(), static_cast<std::size_t>(requests));
    }
}

TEST_F(SharedAnswersTest, TheTimeOnTheWayMakesAnAnswerOlder) {
    useManualClock();
    server_.on("/", holdingTheFirst(answering(200, "x", fresh)));
    const auto pending = start(ofALink(server_.url("/")));
    ASSERT_TRUE(isHeld_->wait());
    clock_.advance(15s);
    mayAnswer_->set();
    EXPECT_EQ(pending->wait().body, "x");
    clock_.advance(44s);
    EXPECT_EQ(bodyFor(server_.url("/")), "x");
    EXPECT_EQ(asked(), 1U);
    clock_.advance(1s);
    EXPECT_EQ(bodyFor(server_.url("/")), "x");
    EXPECT_EQ(asked(), 2U);
}

TEST_F(SharedAnswersTest, AnIdleSessionForgetsItsAnswers) {
    options_.idleTimeout = 1ms;
    for (std::size_t i = 1; i <= 3; ++i) {
        EXPECT_EQ(bodyFor(server_.url("/fresh")), "x");
        EXPECT_TRUE(waitFor([] { return threadsNamed("http") == 0; }));
        EXPECT_EQ(asked(), i);
    }
}

TEST_F(SharedAnswersTest, TheHeaderFieldsDecide) {
    const std::string date = "Sun, 22 Nov 2026 10:00:00 GMT";
    const std::string later = "Sun, 22 Nov 2026 11:00:00 GMT";
    struct Case {
        int status;
        Fields fields;
        bool isKept;
    };
    const std::vector<Case> cases = {
        {200, {}, false},
        {200, {{"Last-Modified", date}, {"ETag", "\"1\""}}, false},
        {200, {{"cache-CONTROL", "max-age=60"}}, true},
        {200, {{"Cache-Control", "public"}, {"Cache-Control", "max-age=60"}}, true},
        {200, {{"Cache-Control", "max-age=60"}, {"Cache-Control", "no-store"}}, false},
        {200, {{"Cache-Control", "max-age=60, private"}}, false},
        {200, {{"Cache-Control", "max-age=60"}, {"Set-Cookie", "a=b"}}, false},
        {200, {{"Cache-Control", "max-age=60"}, {"Vary", "Accept"}, {"Vary", "*"}}, false},
        {200, {{"Cache-Control", "max-age=60"}, {"Vary", "Accept, Cookie"}}, true},
        {200, {{"Cache-Control", "max-age=60"}, {"Age", "60"}}, false},
        {200, {{"Expires", later}, {"Date", date}}, true},
        {200, {{"Expires", later}}, false},
        {200, {{"Expires", date}, {"Date", date}}, false},
        {200, {{"Expires", later}, {"Expires", later}, {"Date", date}}, false},
        {404, fresh, true},
        {404, {}, false},
        {410, fresh, true},
        {503, fresh, true},
        {206, fresh, false},
    };
    for (std::size_t i = 0; i < cases.size(); ++i) {
        const std::string target = "/" + std::to_string(i);
        server_.on(target, answering(cases[i].status, "x", cases[i].fields));
        const std::size_t before = asked();
        for (int round = 0; round < 2; ++round) {
            const auto result = startOfALink(server_.url(target))->wait();
            EXPECT_EQ(result.body, "x") << i;
            EXPECT_EQ(result.response->statusCode, cases[i].status) << i;
            EXPECT_EQ(result.addressSpace, AddressSpace::loopback) << i;
        }
        EXPECT_EQ(asked() - before, cases[i].isKept ? 1U : 2U) << i;
    }
}

TEST_F(SharedAnswersTest, RequestsWithOtherHeaderFieldsHaveTheirOwnAnswers) {
    for (int round = 0; round < 2; ++round) {
        for (const char* language : {"en", "ja"}) {
            URLRequest asked = ofALink(server_.url("/fresh"));
            asked.setValue(language, "Accept-Language");
            EXPECT_EQ(bodyFor(std::move(asked)), "x");
        }
    }
    EXPECT_EQ(asked(), 2U);
    EXPECT_EQ(bodyFor(server_.url("/fresh#top")), "x");
    EXPECT_EQ(bodyFor(server_.url("/fresh#end")), "x");
    EXPECT_EQ(asked(), 3U);
}

TEST_F(SharedAnswersTest, RequestsForOneUserOrForAFreshAnswerShareNothing) {
    const std::vector<std::pair<std::string, std::string>> fields = {
        {"Authorization", "Basic eA=="}, {"cookie", "a=b"},       {"Cache-Control", "no-cache"},
        {"Pragma", "no-cache"},          {"Range", "bytes=0-10"}, {"If-None-Match", "\"x\""}};
    for (const auto& [name, value] : fields) {
        const std::size_t before = asked();
        for (int round = 0; round < 2; ++round) {
            URLRequest asked = ofALink(server_.url("/fresh"));
            asked.setValue(value, name);
            EXPECT_EQ(bodyFor(std::move(asked)), "x");
        }
        EXPECT_EQ(asked() - before, 2U) << name;
    }
    const std::size_t before = asked();
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(bodyFor(server_.urlOf("kim:secret@127.0.0.1", "/fresh")), "x");
    }
    EXPECT_EQ(asked() - before, 2U);
}

TEST_F(SharedAnswersTest, ALinkWithCookiesForAHostSharesNothingThere) {
    server_.on("/set", answering(200, "x", {{"Set-Cookie", "a=b; Path=/"}}));
    other_.on("/fresh", answering(200, "x", fresh));
    const URLRequest setting = ofALink(server_.url("/set"));
    URLRequest withCookie = request(server_.url("/fresh"));
    withCookie.group = setting.group;
    start(setting)->wait();

    EXPECT_EQ(bodyFor(withCookie), "x");
    EXPECT_EQ(server_.requests().back().header("Cookie"), "a=b");
    EXPECT_EQ(bodyFor(server_.url("/fresh")), "x");  // not that answer
    EXPECT_EQ(asked(), 3U);
    EXPECT_EQ(bodyFor(withCookie), "x");  // nor this one for the first link
    EXPECT_EQ(asked(), 4U);
    EXPECT_EQ(bodyFor(server_.url("/fresh")), "x");
    EXPECT_EQ(asked(), 4U);

    URLRequest elsewhere = request(other_.url("/fresh"));  // where the cookie does not go
    elsewhere.group = setting.group;
    EXPECT_EQ(bodyFor(elsewhere), "x");
    EXPECT_EQ(bodyFor(other_.url("/fresh")), "x");
    EXPECT_EQ(other_.requests().size(), 1U);
}

TEST_F(SharedAnswersTest, EachHopOfARedirectIsKeptByItsOwnFields) {
    server_.on("/kept",
               answering(301, "moved", {{"Location", "/fresh"}, {"Cache-Control", "max-age=60"}}));
    server_.on("/asked", redirectingTo(other_.url("/end")));
    other_.on("/end", answering(200, "end", fresh));
    server_.on("/circle",
               answering(308, "moved", {{"Location", "/circle"}, {"Cache-Control", "max-age=60"}}));
    for (std::size_t i = 1; i <= 3; ++i) {
        EXPECT_EQ(bodyFor(server_.url("/kept")), "x");
        EXPECT_EQ(asked(), i + 1);
        EXPECT_EQ(bodyFor(server_.url("/asked")), "end");
        EXPECT_EQ(asked(), i + 2);
        EXPECT_EQ(other_.requests().size(), 1U);
    }
    EXPECT_EQ(startOfALink(server_.url("/circle"))->wait().error, "Too many redirects.");
    EXPECT_EQ(asked(), 6U);
}

TEST_F(SharedAnswersTest, BrokenAndLargeAnswersAreNotKept) {
    server_.on("/short", [](const LoopbackRequest&, LoopbackConnection& connection) {
        connection.send(
            "HTTP/1.1 200 OK\r\nCache-Control: max-age=60\r\n"
            "Content-Length: 10\r\n\r\nhalf");
        connection.close();
    });
    server_.on("/large", answering(200, std::string(HTTPCache::maximumBytesOfOne, 'x'), fresh));
    server_.on("/chunks", [](const LoopbackRequest&, LoopbackConnection& connection) {
        connection.send(
            "HTTP/1.1 200 OK\r\nCache-Control: max-age=60\r\n"
            "Transfer-Encoding: chunked\r\n\r\n");
        connection.sendChunk(std::string(HTTPCache::maximumBytesOfOne + 1, 'x'));
        connection.sendChunk("");
    });
    for (const char* target : {"/short", "/large", "/chunks"}) {
        const std::size_t before = asked();
        const auto first = startOfALink(server_.url(target))->wait();
        EXPECT_EQ(startOfALink(server_.url(target))->wait().body, first.body);
        EXPECT_EQ(asked() - before, 2U) << target;
    }
}

TEST_F(SharedAnswersTest, RequestsOfOneLinkDoNotWaitForEachOther) {
    useManualClock();
    server_.on("/", holdingTheFirst(answering(200, "x", fresh)));
    const URLRequest asked = ofALink(server_.url("/"));
    const auto first = start(asked);
    ASSERT_TRUE(isHeld_->wait());
    EXPECT_EQ(bodyFor(asked), "x");
    mayAnswer_->set();
    EXPECT_EQ(first->wait().body, "x");
}

TEST_F(SharedAnswersTest, ALinkWithCookiesForAHostDoesNotWaitThere) {
    useManualClock();
    server_.on("/set", answering(200, "x", {{"Set-Cookie", "a=b; Path=/"}}));
    URLRequest withCookie = ofALink(server_.url("/set"));
    start(withCookie)->wait();
    server_.on("/", holdingTheFirst(answering(200, "x", fresh)));
    withCookie.url = *URL::parse(server_.url("/"));
    const auto first = startOfALink(server_.url("/"));
    ASSERT_TRUE(isHeld_->wait());
    EXPECT_EQ(bodyFor(withCookie), "x");
    mayAnswer_->set();
    EXPECT_EQ(first->wait().body, "x");
}

TEST_F(SharedAnswersTest, WhoWaitsGoesWhenTheHeadSaysThatTheAnswerIsNotKept) {
    useManualClock();
    for (const char* fields : {"", "Cache-Control: no-store\r\n", "Set-Cookie: a=b\r\n",
                               "Cache-Control: max-age=60, private\r\n"}) {
        LoopbackServer server({.address = "127.0.0.3"});
        const std::string head = std::string("HTTP/1.1 200 OK\r\n") + fields;
        auto mayEnd = std::make_shared<Event>();
        auto count = std::make_shared<std::atomic<int>>(0);
        server.on("/", [=](const LoopbackRequest&, LoopbackConnection& connection) {
            const bool isFirst = ++*count == 1;
            connection.send(head + "Content-Length: 1\r\n\r\n");
            if (isFirst) {
                mayEnd->wait();
            }
            connection.send("x");
        });
        const auto pending = startLinks(4, server.url("/"));
        EXPECT_TRUE(server.waitForRequests(4)) << fields;
        for (std::size_t i = 1; i < pending.size(); ++i) {
            EXPECT_EQ(pending[i]->wait().body, "x");
        }
        EXPECT_EQ(pending[0]->completions, 0);
        mayEnd->set();
        expectBodies(pending, "x");
    }
}

TEST_F(SharedAnswersTest, WhoWaitsGoesAfterASecond) {
    useManualClock();
    server_.on("/", holdingTheFirst(answering(200, "x", fresh)));
    const auto first = startOfALink(server_.url("/"));
    ASSERT_TRUE(isHeld_->wait());
    const auto second = startOfALink(server_.url("/"));
    letSessionRunOnce();
    clock_.advance(999ms);
    letSessionRunOnce();
    EXPECT_EQ(asked(), 1U);
    clock_.advance(1ms);
    letSessionRunOnce();
    EXPECT_EQ(second->wait().body, "x");
    EXPECT_EQ(asked(), 2U);
    EXPECT_EQ(bodyFor(server_.url("/")), "x");  // its answer is kept
    EXPECT_EQ(asked(), 2U);
    EXPECT_EQ(first->completions, 0);
    mayAnswer_->set();
    EXPECT_EQ(first->wait().body, "x");
}

TEST_F(SharedAnswersTest, TheSecondIsThatOfTheRequestNotOfTheQueue) {
    useManualClock();
    options_.maximumTransfersPerHost = 1;
    server_.on("/", holdingTheFirst(answering(200, "x")));
    const auto blocking = startOfALink(server_.url("/"));
    ASSERT_TRUE(isHeld_->wait());
    const auto pending = startLinks(3, server_.url("/fresh"));
    letSessionRunOnce();
    clock_.advance(5s);
    letSessionRunOnce();
    mayAnswer_->set();
    expectBodies(pending, "x");
    EXPECT_EQ(asked(), 2U);
    EXPECT_EQ(blocking->wait().body, "x");
}

TEST_F(SharedAnswersTest, AWakeIsSetForTheEndOfTheSecond) {
    server_.on("/", holdingTheFirst(answering(200, "x", fresh)));
    const auto pending = startLinks(2, server_.url("/"));
    EXPECT_EQ(pending[1]->wait().body, "x");  // on the real clock, without any other request
    mayAnswer_->set();
    expectBodies(pending, "x");
}

TEST_F(SharedAnswersTest, AFailureIsNotShared) {
    const auto resetting = [](const LoopbackRequest&, LoopbackConnection& connection) {
        connection.reset();
    };
    auto count = std::make_shared<std::atomic<int>>(0);
    server_.on("/",
               holdingTheFirst([=](const LoopbackRequest& request, LoopbackConnection& connection) {
                   (++*count == 1 ? resetting : answering(200, "x", fresh))(request, connection);
               }));
    const auto pending = startLinks(3, server_.url("/"));
    ASSERT_TRUE(isHeld_->wait());
    letSessionRunOnce();
    mayAnswer_->set();
    EXPECT_NE(pending[0]->wait().error, std::nullopt);
    EXPECT_EQ(pending[1]->wait().body, "x");
    EXPECT_EQ(pending[2]->wait().body, "x");
}

TEST_F(SharedAnswersTest, WhoWaitsForALookUpThatFailsAsksItself) {
    URLRequest impatient = ofALink(server_.urlOf("stuck.test", "/fresh"));
    impatient.timeoutInterval = 30ms;
    const auto first = start(std::move(impatient));
    const auto second = startOfALink(server_.urlOf("stuck.test", "/fresh"));
    EXPECT_EQ(first->wait().error, "The request timed out.");
    test::HostNames::release();
    EXPECT_EQ(second->wait().body, "x");
}

TEST_F(SharedAnswersTest, WhoWaitsForARedirectFollowsIt) {
    server_.on("/", holdingTheFirst(answering(
                        301, "", {{"Location", "/fresh"}, {"Cache-Control", "max-age=60"}})));
    const auto pending = startLinks(5, server_.url("/"));
    letSessionRunOnce();
    mayAnswer_->set();
    expectBodies(pending, "x");
    EXPECT_EQ(asked(), 2U);
}

TEST_F(SharedAnswersTest, WhoWaitsTakesNoPlaceOfTheHost) {
    options_.maximumTransfersPerHost = 2;
    server_.on("/", holdingTheFirst(answering(200, "x", fresh)));
    const auto pending = startLinks(10, server_.url("/"));
    ASSERT_TRUE(isHeld_->wait());
    server_.on("/beside", answering(200, "beside"));
    EXPECT_EQ(bodyFor(server_.url("/beside")), "beside");
    EXPECT_EQ(pending[1]->completions, 0);
    mayAnswer_->set();
    expectBodies(pending, "x");
    EXPECT_EQ(asked(), 2U);
}

TEST_F(SharedAnswersTest, TheDestructorEndsWaitingRequestsWithoutCompletion) {
    server_.on("/", holdingTheFirst(answering(200, "x", fresh)));
    const auto pending = startLinks(3, server_.url("/"));
    ASSERT_TRUE(isHeld_->wait());
    letSessionRunOnce();
    endSession();
    for (const Pending& one : pending) {
        EXPECT_EQ(one->completions, 0);
        EXPECT_EQ(one.use_count(), 1);
    }
}

class SharedAnswersHeldTest : public SharedAnswersTest {
protected:
    DispatchQueue& completionQueue() override { return queue_; }

    test::HeldQueue queue_;
};

TEST_F(SharedAnswersHeldTest, CopiesAreMadeOnlyAsFastAsTheyAreUsed) {
    constexpr std::size_t count = 60;
    options_.maximumDeliveredBytes = 1000;
    const std::string large(400'000, 'x');
    server_.on("/", holdingTheFirst(answering(200, large, fresh)));
    const auto pending = startLinks(count, server_.url("/"));
    letSessionRunOnce();
    mayAnswer_->set();
    std::size_t most = 0;
    for (std::size_t i = 0; i < count; ++i) {
        ASSERT_TRUE(queue_.waitFor(1));
        most = std::max(most, queue_.size());
        queue_.runNext();
    }
    expectBodies(pending, large);
    EXPECT_LE(most, 4U);  // a mebibyte, and the answer itself
    EXPECT_EQ(asked(), 1U);
}

}  // namespace

}  // namespace glintmark::platform
