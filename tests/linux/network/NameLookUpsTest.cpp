#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <set>

#include "linux/network/CurlURLSession.h"
#include "linux/network/NameLookUps.h"
#include "tests/linux/ProcessState.h"
#include "tests/linux/Waiting.h"
#include "tests/linux/network/CurlURLSessionFixture.h"
#include "tests/support/HostNames.h"
#include "tests/support/NameServer.h"

namespace glintmark::platform {

namespace {

using namespace std::chrono_literals;

constexpr std::size_t maximumLookUps = 16;
constexpr std::size_t maximumThreads = 64;  // also of those that have ended their last look-up

std::size_t lookUpThreads() { return threadsNamed("look-up"); }

class NameLookUpsTest : public testing::Test {
protected:
    NameLookUpsTest() { nameServer_.beSilent("silent.dns.test"); }
    ~NameLookUpsTest() override {
        test::HostNames::release();
        EXPECT_TRUE(waitFor([] { return lookUpThreads() == 0; }));
    }

    NameLookUps::Addresses wait(const std::string& name) {
        if (const auto known = lookUps_.ask(name)) {
            return *known;
        }
        std::optional<NameLookUps::Addresses> result;
        EXPECT_TRUE(waitFor([&] {
            for (const auto& [ended, addresses] : lookUps_.takeEnded()) {
                result = ended == name ? addresses : result;
            }
            return result.has_value();
        })) << name;
        return result.value_or("");
    }

    const test::HostNames names_;
    test::NameServer nameServer_;
    ManualClock clock_;
    NameLookUps lookUps_{[this] { return clock_.now(); }};
};

TEST_F(NameLookUpsTest, ReturnsAllAddresses) {
    nameServer_.answer("two.dns.test", {{"127.0.0.5", "127.0.0.5", "127.0.0.6"}});
    const std::string addresses = wait("two.dns.test");
    EXPECT_THAT(addresses, testing::HasSubstr("127.0.0.5"));
    EXPECT_THAT(addresses, testing::HasSubstr("127.0.0.6"));
    EXPECT_EQ(wait("site.test"), "127.0.0.1");
    EXPECT_EQ(wait("nowhere.dns.test"), "");
}

TEST_F(NameLookUpsTest, RemembersAnAnswerForAMinuteAndAFailureFor10Seconds) {
    nameServer_.answer("site.dns.test", {{"127.0.0.5"}, {"127.0.0.6"}});
    EXPECT_EQ(wait("site.dns.test"), "127.0.0.5");
    clock_.advance(59s);
    EXPECT_EQ(lookUps_.ask("site.dns.test"), "127.0.0.5");
    clock_.advance(1s);
    EXPECT_EQ(wait("site.dns.test"), "127.0.0.6");
    EXPECT_EQ(wait("new.dns.test"), "");
    nameServer_.answer("new.dns.test", {{"127.0.0.7"}});
    EXPECT_EQ(lookUps_.ask("new.dns.test"), "");
    clock_.advance(10s);
    EXPECT_EQ(wait("new.dns.test"), "127.0.0.7");
}

TEST_F(NameLookUpsTest, OneLookUpServesAllWhoAskMeanwhile) {
    nameServer_.answer("site.dns.test", {{"127.0.0.5"}, {"127.0.0.6"}});
    EXPECT_EQ(lookUps_.ask("site.dns.test"), std::nullopt);
    EXPECT_EQ(wait("site.dns.test"), "127.0.0.5");
    EXPECT_EQ(nameServer_.queries("site.dns.test"), 1);
}

TEST_F(NameLookUpsTest, SixteenAtOnceAndTheNewestFirst) {
    for (int i = 0; i < 100; ++i) {
        lookUps_.ask("stuck." + std::to_string(i) + ".test");
    }
    EXPECT_TRUE(waitFor([] { return lookUpThreads() == maximumLookUps; }));
    lookUps_.ask("newest.test");
    EXPECT_EQ(lookUps_.begunAt("newest.test"), std::nullopt);
    lookUps_.forget();  // given up, but they count until they end
    lookUps_.ask("site.test");
    EXPECT_EQ(lookUps_.begunAt("site.test"), std::nullopt);
    EXPECT_EQ(lookUpThreads(), maximumLookUps);
    test::HostNames::release();
    EXPECT_EQ(wait("site.test"), "127.0.0.1");
}

TEST_F(NameLookUpsTest, ASilentServerIsGivenUpQuicklyOnlyWhileOthersWait) {
    const auto started = std::chrono::steady_clock::now();
    for (std::size_t i = 0; i < 2 * maximumLookUps; ++i) {
        lookUps_.ask(std::to_string(i) + ".silent.dns.test");
    }
    // The first half meets waiting names after its second, the second half meets none.
    std::set<std::string> ended;
    EXPECT_TRUE(waitFor([&] {
        for (const auto& [name, addresses] : lookUps_.takeEnded()) {
            EXPECT_EQ(addresses, "");
            ended.insert(name);
        }
        return ended.size() >= maximumLookUps;
    }));
    EXPECT_LT(std::chrono::steady_clock::now() - started, 4s);
    EXPECT_LE(ended.size(), maximumLookUps);
    EXPECT_EQ(wait("site.test"), "127.0.0.1");
}

/// 400 links to hosts whose name server is silent.
class SilentNameServerTest : public CurlURLSessionTest {
protected:
    const test::HostNames names_;
    test::NameServer nameServer_;
};

TEST_F(SilentNameServerTest, AGoodLinkBeside400IsServed) {
    nameServer_.beSilent("silent.dns.test");
    nameServer_.answer("good.dns.test", {{"127.0.0.1"}});
    server_.on("/", answering(200, "x"));
    const auto started = std::chrono::steady_clock::now();
    std::vector<std::shared_ptr<PendingAnswer>> silent;
    for (int i = 0; i < 400; ++i) {
        URLRequest asked = request("http://" + std::to_string(i) + ".silent.dns.test/");
        asked.timeoutInterval = 10s;
        silent.push_back(start(asked));
    }
    std::size_t threads = 0;
    std::size_t files = 0;
    const auto good = start(server_.urlOf("good.dns.test", "/"));
    EXPECT_TRUE(waitFor([&] {
        threads = std::max(threads, lookUpThreads());
        files = std::max(files, openDescriptors());
        return good->completions == 1;
    }));
    EXPECT_EQ(good->result.body, "x");
    EXPECT_LT(std::chrono::steady_clock::now() - started, 20s);
    EXPECT_LE(threads, maximumThreads);
    EXPECT_LE(files, 400U);
    endSession();
    EXPECT_TRUE(waitFor([] { return lookUpThreads() == 0; }));
}

/// Listens on an IPv4 and an IPv6 address and accepts nothing. The kernel ignores further
/// connections once the queue is full.
class DeafServer {
public:
    DeafServer() {
        sockaddr_in6 six{};
        six.sin6_family = AF_INET6;
        six.sin6_addr = in6addr_loopback;
        listenOn(six);
        sockaddr_in four{};
        four.sin_family = AF_INET;
        four.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        four.sin_port = six.sin6_port;
        listenOn(four);
        port_ = ntohs(six.sin6_port);
    }
    ~DeafServer() { std::ranges::for_each(sockets_, ::close); }
    DeafServer(const DeafServer&) = delete;
    DeafServer& operator=(const DeafServer&) = delete;

    static std::vector<std::string> addresses() { return {"127.0.0.1", "::1"}; }
    std::string urlOf(const std::string& host) const {
        return "http://" + host + ":" + std::to_string(port_) + "/";
    }

private:
    template <typename Address>
    void listenOn(Address& address) {
        auto* generic = reinterpret_cast<sockaddr*>(&address);
        socklen_t length = sizeof(address);
        const int listener = ::socket(generic->sa_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
        EXPECT_EQ(::bind(listener, generic, length), 0);
        ::listen(listener, 0);
        ::getsockname(listener, generic, &length);
        sockets_.push_back(listener);
        for (int filler = 0; filler < 4; ++filler) {
            const int socket = ::socket(generic->sa_family, SOCK_STREAM | SOCK_NONBLOCK, 0);
            ::connect(socket, generic, length);
            sockets_.push_back(socket);
        }
    }

    int port_ = 0;
    std::vector<int> sockets_;
};

TEST_F(SilentNameServerTest, ManyHostsThatDoNotAnswerHoldFewFilesAndThreads) {
    const std::size_t filesBefore = openDescriptors();
    const DeafServer deaf;
    std::vector<std::shared_ptr<PendingAnswer>> pending;
    for (int i = 0; i < 3000; ++i) {
        const std::string host = std::to_string(i) + ".dns.test";
        nameServer_.answer(host, {DeafServer::addresses()});
        URLRequest asked = request(deaf.urlOf(host));
        asked.timeoutInterval = 6s;  // the second address is tried after 0.2 s
        pending.push_back(start(asked));
    }
    std::size_t files = 0;
    std::size_t threads = 0;
    EXPECT_TRUE(waitFor([&] {
        files = std::max(files, openDescriptors());
        threads = std::max(threads, threadsNamed("http") + lookUpThreads());
        return pending.front()->completions == 1;
    }));
    EXPECT_GT(files, filesBefore + 250);  // the maximum of transfers was reached
    EXPECT_LE(files, filesBefore + 350);
    EXPECT_LE(threads, maximumThreads);
    endSession();
}

TEST_F(SilentNameServerTest, TheClientNeverLooksUpANameItself) {
    server_.onAnythingElse(answering(200, "x"));
    for (const char* host : {"site.test", "SITE.test", "site.test.", "s%69te.test", "a_b.test",
                             "xn--mller-kva.test"}) {
        const URLResult result = get(server_.urlOf(host, "/"));
        EXPECT_EQ(result.body, "x") << host << ": " << result.error.value_or("");
    }
}

}  // namespace

}  // namespace glintmark::platform
