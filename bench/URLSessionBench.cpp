// The cost of the HTTP client beyond libcurl: processor time and elapsed time of the same requests
// through the session and through a bare loop around libcurl's multi interface. The server runs in
// a separate process. Fails if the session takes more than 1.25 times the processor time.
#include <curl/curl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "bench/Figures.h"
#include "linux/network/CurlURLSession.h"
#include "linux/queues/ThreadPoolQueue.h"
#include "tests/support/LoopbackServer.h"

namespace glintmark {
namespace {

constexpr std::size_t atOnce = 6;  // the session's maximum per host
constexpr int repetitions = 9;     // the fastest counts: the others were delayed by the machine
constexpr double maximumRatio = 1.25;

struct Cost {
    double processor = 1e300;  ///< In microseconds per request.
    double elapsed = 1e300;
};

/// A server in a child process, so that its time is not counted.
class ServerProcess {
public:
    explicit ServerProcess(std::size_t bodyBytes) {
        std::array<int, 2> ends{};
        if (::pipe(ends.data()) != 0 || (child_ = ::fork()) < 0) {
            std::exit(2);
        }
        if (child_ == 0) {
            test::LoopbackServer server;
            server.onAnythingElse(test::answering(200, std::string(bodyBytes, 'x')));
            const std::uint16_t port = server.port();
            static_cast<void>(::write(ends[1], &port, sizeof(port)) == sizeof(port));
            ::pause();
        }
        if (::read(ends[0], &port_, sizeof(port_)) != sizeof(port_)) {
            std::exit(2);
        }
        ::close(ends[0]);
        ::close(ends[1]);
    }
    ~ServerProcess() {
        ::kill(child_, SIGKILL);
        ::waitpid(child_, nullptr, 0);
    }
    ServerProcess(const ServerProcess&) = delete;
    ServerProcess& operator=(const ServerProcess&) = delete;

    std::vector<std::string> urls(int requests) const {
        std::vector<std::string> urls;
        for (int i = 0; i < requests; ++i) {
            urls.push_back("http://127.0.0.1:" + std::to_string(port_) + "/" + std::to_string(i));
        }
        return urls;
    }

private:
    pid_t child_ = 0;
    std::uint16_t port_ = 0;
};

void measure(Cost& best, std::size_t requests, const std::function<void()>& work) {
    const auto processor = bench::processorTime();
    const auto start = std::chrono::steady_clock::now();
    work();
    const bench::Milliseconds elapsed = std::chrono::steady_clock::now() - start;
    const auto each = 1e3 / static_cast<double>(requests);
    best.processor = std::min(best.processor, (bench::processorTime() - processor).count() * each);
    best.elapsed = std::min(best.elapsed, elapsed.count() * each);
}

std::size_t append(const char* bytes, std::size_t size, std::size_t count, void* body) {
    static_cast<std::string*>(body)->append(bytes, size * count);
    return size * count;
}

void addBareTransfer(CURLM* multi, const std::string& url) {
    CURL* easy = curl_easy_init();
    auto* body = new std::string;
    curl_easy_setopt(easy, CURLOPT_URL, url.c_str());
    curl_easy_setopt(easy, CURLOPT_PATH_AS_IS, 1L);
    curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(easy, CURLOPT_ACCEPT_ENCODING, "");
    curl_easy_setopt(easy, CURLOPT_USERAGENT, "bare");
    curl_easy_setopt(easy, CURLOPT_COOKIEFILE, "");
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, append);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, body);
    curl_easy_setopt(easy, CURLOPT_PRIVATE, body);
    curl_multi_add_handle(multi, easy);
}

void askBare(const std::vector<std::string>& urls) {
    CURLM* multi = curl_multi_init();
    const std::size_t requests = urls.size();
    std::size_t begun = 0;
    std::size_t ended = 0;
    while (ended < requests) {
        while (begun < requests && begun - ended < atOnce) {
            addBareTransfer(multi, urls[begun++]);
        }
        int running = 0;
        curl_multi_perform(multi, &running);
        int left = 0;
        while (const CURLMsg* message = curl_multi_info_read(multi, &left)) {
            CURL* easy = message->easy_handle;
            std::string* body = nullptr;
            curl_easy_getinfo(easy, CURLINFO_PRIVATE, &body);
            delete body;
            curl_multi_remove_handle(multi, easy);
            curl_easy_cleanup(easy);
            ++ended;
        }
        if (ended < begun && (begun == requests || begun - ended == atOnce)) {
            curl_multi_poll(multi, nullptr, 0, 1000, nullptr);
        }
    }
    curl_multi_cleanup(multi);
}

void askSession(const std::vector<URL>& urls) {
    std::mutex mutex;
    std::condition_variable changed;
    std::size_t ended = 0;
    platform::ThreadPoolQueue queue("completions", 2);
    platform::CurlURLSession session(queue, {.version = "bench"});
    const auto group = session.makeTaskGroup("127.0.0.1");
    for (const auto& url : urls) {
        platform::URLRequest request(url);
        request.group = group;
        request.isQuickToComplete = true;  // as for pictures
        session.startDataTask(std::move(request), [&](const platform::URLResult& result) {
            if (!result.body) {
                std::exit(2);
            }
            const std::lock_guard lock(mutex);
            if (++ended == urls.size()) {
                changed.notify_all();
            }
        });
    }
    std::unique_lock lock(mutex);
    changed.wait(lock, [&] { return ended == urls.size(); });
}

void compare(std::size_t bodyBytes, int requests, bench::Figures& figures) {
    const ServerProcess server(bodyBytes);
    const std::vector<std::string> texts = server.urls(requests);
    std::vector<URL> urls;
    for (const auto& text : texts) {
        urls.push_back(*URL::parse(text));
    }
    Cost bare;
    Cost session;
    for (int i = 0; i < repetitions; ++i) {  // alternately, so that both meet the same load
        measure(bare, texts.size(), [&] { askBare(texts); });
        measure(session, texts.size(), [&] { askSession(urls); });
    }
    const std::string at = "bodies of " + std::to_string(bodyBytes) + " bytes";
    const auto addBoth = [&](const char* what, double Cost::*cost) {
        figures.add({.what = what, .value = bare.*cost, .unit = "us", .of = "libcurl", .at = at});
        figures.add({.what = what, .value = session.*cost, .unit = "us", .at = at});
    };
    addBoth("processor time a request", &Cost::processor);
    addBoth("elapsed time a request", &Cost::elapsed);
    figures.add({.what = "processor time, times libcurl's",
                 .value = session.processor / bare.processor,
                 .maximum = maximumRatio,
                 .at = at});
}

}  // namespace
}  // namespace glintmark

int main(int argc, char** argv) {
    const glintmark::bench::Options options(argc, argv);
    glintmark::bench::Figures figures;
    for (const std::size_t bodyBytes : {std::size_t{0}, std::size_t{4'000}, std::size_t{100'000}}) {
        glintmark::compare(bodyBytes, options.smoke ? 20 : 2000, figures);
    }
    return figures.finish(options);
}
