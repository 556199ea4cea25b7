#include "linux/network/CurlURLSession.h"
#include "tests/linux/network/CurlURLSessionFixture.h"

namespace glintmark::platform {

namespace {

class CurlURLSessionRedirectTest : public CurlURLSessionTest {};

TEST_F(CurlURLSessionRedirectTest, FollowsARedirect) {
    server_.on("/end", answering(200, "there"));
    for (const int status : {301, 302, 303, 307, 308}) {
        server_.on("/start", redirectingTo("/end", status));
        const URLResult result = get(server_.url("/start"));
        ASSERT_TRUE(result.response) << status;
        EXPECT_EQ(result.response->statusCode, 200);
        EXPECT_EQ(result.body, "there");
        EXPECT_EQ(result.error, std::nullopt);
    }
}

TEST_F(CurlURLSessionRedirectTest, OnlyRedirectStatusesFollowALocation) {
    for (const int status : {200, 201, 300, 305, 404}) {
        server_.on("/start", redirectingTo("/end", status));
        const URLResult result = get(server_.url("/start"));
        ASSERT_TRUE(result.response) << status;
        EXPECT_EQ(result.response->statusCode, status);
        EXPECT_EQ(result.body, "moved");
    }
}

TEST_F(CurlURLSessionRedirectTest, ARedirectWithoutALocationIsAnAnswer) {
    server_.on("/none", answering(302, "no place"));
    server_.on("/empty", redirectingTo(""));
    EXPECT_EQ(get(server_.url("/none")).body, "no place");
    const URLResult empty = get(server_.url("/empty"));
    EXPECT_EQ(empty.body, "moved") << empty.error.value_or("");
}

TEST_F(CurlURLSessionRedirectTest, EachHopSendsTheSameRequest) {
    server_.on("/start", redirectingTo(other_.url("/end")));
    other_.on("/end", answering(200, "there"));
    URLRequest asked = request(server_.url("/start"));
    asked.setValue("Browser", "User-Agent");
    EXPECT_EQ(start(asked)->wait().body, "there");
    ASSERT_EQ(other_.requests().size(), 1U);
    EXPECT_EQ(other_.requests()[0].method, "GET");
    EXPECT_EQ(other_.requests()[0].header("User-Agent"), "Browser");
    EXPECT_EQ(other_.requests()[0].header("Referer"), std::nullopt);
}

TEST_F(CurlURLSessionRedirectTest, CredentialsAreNotSentToAnotherOrigin) {
    server_.on("/near", redirectingTo("/end"));
    server_.on("/far", redirectingTo(other_.url("/end")));
    for (const char* target : {"/near", "/far"}) {
        URLRequest asked = request(server_.url(target));
        asked.setValue("Bearer secret", "Authorization");
        asked.setValue("key=secret", "Cookie");
        start(asked)->wait();
    }
    EXPECT_EQ(server_.requests().at(1).header("Authorization"), "Bearer secret");
    EXPECT_EQ(server_.requests().at(1).header("Cookie"), "key=secret");
    EXPECT_EQ(other_.requests().at(0).header("Authorization"), std::nullopt);
    EXPECT_EQ(other_.requests().at(0).header("Cookie"), std::nullopt);
}

TEST_F(CurlURLSessionRedirectTest, TheNextHopSendsTheCookiesOfARedirect) {
    server_.on("/start", answering(302, "", {{"Location", "/end"}, {"Set-Cookie", "been=here"}}));
    get(server_.url("/start"));
    EXPECT_EQ(server_.requests().at(1).header("Cookie"), "been=here");
}

TEST_F(CurlURLSessionRedirectTest, FollowsAtMostTwentyRedirects) {
    for (int i = 0; i < 21; ++i) {
        server_.on("/" + std::to_string(i), redirectingTo("/" + std::to_string(i + 1)));
    }
    server_.on("/21", answering(200, "there"));
    EXPECT_EQ(get(server_.url("/1")).body, "there");  // 20 redirects

    const URLResult result = get(server_.url("/0"));
    EXPECT_EQ(result.body, std::nullopt);
    EXPECT_EQ(result.error, "Too many redirects.");
}

TEST_F(CurlURLSessionRedirectTest, ARedirectLoopEnds) {
    server_.on("/", redirectingTo("/"));
    EXPECT_EQ(get(server_.url("/")).error, "Too many redirects.");
    EXPECT_EQ(server_.requests().size(), 21U);
}

TEST_F(CurlURLSessionRedirectTest, ARedirectToAnotherSchemeIsAnErrorWithoutBody) {
    server_.on("/second", redirectingTo("ftp://127.0.0.1/"));
    for (const char* location :
         {"file:///etc/hostname", "ftp://127.0.0.1/x", "data:text/plain,x", "/second"}) {
        server_.on("/", redirectingTo(location));
        const URLResult result = get(server_.url("/"));
        EXPECT_EQ(result.body, std::nullopt) << location;
        EXPECT_FALSE(result.response) << location;
        EXPECT_NE(result.error, std::nullopt) << location;
    }
}

TEST_F(CurlURLSessionRedirectTest, TheBodyOfARedirectDoesNotMatter) {
    server_.on("/end", answering(200, "there"));
    server_.on("/endless", [](const LoopbackRequest&, LoopbackConnection& connection) {
        connection.send("HTTP/1.1 302 Found\r\nLocation: /end\r\n\r\n");
        while (connection.send(std::string(10000, 'x'))) {
        }
        connection.close();
    });
    server_.on("/huge", [](const LoopbackRequest&, LoopbackConnection& connection) {
        connection.send(
            "HTTP/1.1 302 Found\r\nLocation: /end\r\nContent-Length: 99999999999\r\n\r\n");
        connection.holdUntilClosed();
    });
    server_.on("/cut", [](const LoopbackRequest&, LoopbackConnection& connection) {
        connection.send("HTTP/1.1 302 Found\r\nLocation: /end\r\nContent-Length: 10\r\n\r\nx");
        connection.close();
    });
    server_.on("/garbled",
               answering(302, "not packed", {{"Location", "/end"}, {"Content-Encoding", "gzip"}}));
    for (const char* target : {"/endless", "/huge", "/cut", "/garbled"}) {
        EXPECT_EQ(get(server_.url(target)).body, "there") << target;
    }
}

}  // namespace

}  // namespace glintmark::platform
