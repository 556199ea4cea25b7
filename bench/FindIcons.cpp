// find-icons [--bare] [--blind]: reads links from standard input and finds the icon of each twice
// with the program's code, first to record the requests, then to measure. Writes a line of JSON for
// each: the icon's address, the number of requests, the time and the processor time. With --bare, a
// plain loop around libcurl repeats the requests of each fetch, each as soon as the one that it
// waited for has ended; then every image among the answers is decoded in this process. With
// --blind, no answer counts as an image, so that a fetch costs what its requests and the search for
// addresses do. The last line is about the whole run. All trust the certificates of the folder that
// SSL_CERT_DIR names.
#include <curl/curl.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "bench/Figures.h"
#include "favicon/FaviconFetcher.h"
#include "link/FetchRecorder.h"
#include "link/FetchReport.h"
#include "linux/files/PosixFileManager.h"
#include "linux/images/SandboxedImageDecoder.h"
#include "linux/network/CurlURLSession.h"
#include "linux/queues/LinuxDispatchQueues.h"
#include "platform/Configuration.h"
#include "platform/Platform.h"
#include "tests/doubles/InProcessImageDecoder.h"
#include "tests/doubles/TestPlatform.h"

namespace glintmark {
namespace {

using bench::Milliseconds;
using link::RequestRecord;
using nlohmann::ordered_json;

struct Cost {
    Milliseconds elapsed{0};
    Milliseconds processor{0};  ///< Of this thread.
};

template <typename Work>
Cost costOf(const Work& work) {
    const auto processor = bench::processorTime(CLOCK_THREAD_CPUTIME_ID);
    const auto begin = std::chrono::steady_clock::now();
    work();
    return {std::chrono::steady_clock::now() - begin,
            bench::processorTime(CLOCK_THREAD_CPUTIME_ID) - processor};
}

/// The processor time of all threads but this one. Only the program's code uses them, also for what
/// is left to do when a fetch has ended.
Milliseconds otherThreads() {
    return bench::processorTime() - bench::processorTime(CLOCK_THREAD_CPUTIME_ID);
}

/// The folder of trusted authorities; null for the system's.
const char* trustedAuthorities() {
    return std::getenv("SSL_CERT_DIR");  // NOLINT(concurrency-mt-unsafe): no thread sets it
}

// ---- the same requests with libcurl alone

/// The request that this one waited for: the last that had ended when this one began.
std::optional<std::size_t> awaited(const std::vector<RequestRecord>& requests, std::size_t index) {
    std::optional<std::size_t> last;
    for (std::size_t i = 0; i < requests.size(); ++i) {
        const bool ended = requests[i].end && *requests[i].end <= requests[index].begin;
        if (ended && (!last || *requests[*last].end < *requests[i].end)) {
            last = i;
        }
    }
    return last;
}

std::size_t append(const char* bytes, std::size_t size, std::size_t count, void* body) {
    static_cast<std::string*>(body)->append(bytes, size * count);
    return size * count;
}

/// Keeps connections from one fetch to the next, as the session does.
class BareLoop {
public:
    ~BareLoop() { curl_multi_cleanup(multi_); }

    /// Returns the number of answers.
    std::size_t askFor(const std::vector<RequestRecord>& requests) {
        std::vector<std::vector<std::size_t>> followers(requests.size());
        bodies_.assign(requests.size(), {});
        running_ = 0;
        answers_ = 0;
        for (std::size_t i = 0; i < requests.size(); ++i) {
            if (const auto before = awaited(requests, i)) {
                followers[*before].push_back(i);
            } else {
                begin(requests[i], i);
            }
        }
        while (running_ > 0) {
            int ignored = 0;
            curl_multi_perform(multi_, &ignored);
            while (const auto ended = nextEnded()) {
                for (const std::size_t follower : followers[*ended]) {
                    begin(requests[follower], follower);
                }
            }
            if (running_ > 0) {
                curl_multi_poll(multi_, nullptr, 0, 1000, nullptr);
            }
        }
        return answers_;
    }

    /// Decodes those of the last answers that are images, with the same code as the program's
    /// decoder, but in this process. Keeps nothing of them: no scaled picture, no edges.
    void decodeImages() const {
        for (const std::string& body : bodies_) {
            doubles::InProcessImageDecoder().decodeWhole(body);
        }
    }

private:
    void begin(const RequestRecord& request, std::size_t index) {
        CURL* easy = curl_easy_init();
        curl_easy_setopt(easy, CURLOPT_URL, request.url.c_str());
        curl_easy_setopt(easy, CURLOPT_PATH_AS_IS, 1L);
        curl_easy_setopt(easy, CURLOPT_FOLLOWLOCATION, 1L);
        curl_easy_setopt(easy, CURLOPT_MAXREDIRS, 20L);
        curl_easy_setopt(easy, CURLOPT_ACCEPT_ENCODING, "");
        curl_easy_setopt(easy, CURLOPT_USERAGENT, "bare");
        curl_easy_setopt(easy, CURLOPT_COOKIEFILE, "");
        curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
        if (trustedAuthorities() != nullptr) {  // as the session does
            curl_easy_setopt(easy, CURLOPT_CAINFO, nullptr);
            curl_easy_setopt(easy, CURLOPT_CAPATH, trustedAuthorities());
        }
        curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, append);
        curl_easy_setopt(easy, CURLOPT_WRITEDATA, &bodies_[index]);
        curl_easy_setopt(easy, CURLOPT_PRIVATE, &bodies_[index]);
        curl_multi_add_handle(multi_, easy);
        ++running_;
    }

    std::optional<std::size_t> nextEnded() {
        int left = 0;
        const CURLMsg* const message = curl_multi_info_read(multi_, &left);
        if (message == nullptr) {
            return std::nullopt;
        }
        CURL* easy = message->easy_handle;
        const std::string* body = nullptr;
        curl_easy_getinfo(easy, CURLINFO_PRIVATE, &body);
        answers_ += message->data.result == CURLE_OK ? 1 : 0;
        curl_multi_remove_handle(multi_, easy);
        curl_easy_cleanup(easy);
        --running_;
        return static_cast<std::size_t>(body - bodies_.data());
    }

    CURLM* multi_ = curl_multi_init();
    std::vector<std::string> bodies_;  ///< One for each request.
    int running_ = 0;
    std::size_t answers_ = 0;
};

// ---- one fetch

std::vector<IconCandidate> candidatesOf(const URL& url) {
    const auto found = std::make_shared<std::promise<std::vector<IconCandidate>>>();
    FaviconFetcher::collectCandidates(url, *url.host(),
                                      [found](std::vector<IconCandidate> candidates) {
                                          found->set_value(std::move(candidates));
                                      });
    return found->get_future().get();
}

bool isAnswered(const RequestRecord& request) { return request.status.has_value(); }

/// What a recorded fetch shows, without its images.
struct Record {
    URL url;
    std::vector<RequestRecord> requests;
    ordered_json line;
};

Record recordOf(const URL& url, const link::FetchReport& report) {
    Record record{url, report.requests, {}};
    record.line = {{"link", url.absoluteString()},
                   {"icon", nullptr},
                   {"requests", report.requests.size()},
                   {"answers", std::ranges::count_if(report.requests, isAnswered)}};
    if (report.winner) {
        const auto& image = report.candidates[*report.winner].image;
        const auto request = std::ranges::find(report.requests, image, &RequestRecord::image);
        record.line["icon"] =
            request != report.requests.end() ? ordered_json(request->url) : nullptr;
    }
    for (RequestRecord& request : record.requests) {
        request.image = nullptr;
    }
    return record;
}

/// The peak memory of this process or of its children, in megabytes.
double peakMegabytes(int whose) {
    rusage usage{};
    getrusage(whose, &usage);
    return static_cast<double>(usage.ru_maxrss) / 1024;
}

/// The processor time of all children. Waits for their end.
Milliseconds timeOfEndedChildren() {
    while (waitpid(-1, nullptr, 0) > 0) {
    }
    rusage usage{};
    getrusage(RUSAGE_CHILDREN, &usage);
    return std::chrono::seconds(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           std::chrono::microseconds(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec);
}

/// Knows no image.
class BlindDecoder final : public platform::ImageDecoder {
public:
    std::shared_ptr<platform::ImageBatch> makeBatch() override {
        return std::make_shared<platform::ImageBatch>();
    }
    void decode(std::string /*data*/, const std::shared_ptr<platform::ImageBatch>& /*batch*/,
                Completion completion) override {
        completion(nullptr);
    }
};

platform::CurlURLSessionOptions sessionOptions() {
    platform::CurlURLSessionOptions options{.version = "bench"};
    if (trustedAuthorities() != nullptr) {
        options.certificateDirectory = trustedAuthorities();
    }
    return options;
}

/// What the program needs to find icons.
class Finder {
public:
    explicit Finder(bool isBlind) : isBlind_(isBlind) {}

    std::vector<IconCandidate> find(const URL& url) { return find(url, session_, decoder()); }

    Record record(const URL& url) {
        link::FetchRecorder recorder(session_, decoder());
        auto candidates = find(url, recorder, recorder);
        return recordOf(url, link::FetchReport(recorder.requests(), std::move(candidates)));
    }

private:
    platform::ImageDecoder& decoder() {
        return isBlind_ ? static_cast<platform::ImageDecoder&>(blind_) : sandbox_;
    }

    std::vector<IconCandidate> find(const URL& url, platform::URLSession& session,
                                    platform::ImageDecoder& decoder) {
        const platform::Services services{
            .application = fakes_.application,
            .bundle = fakes_.bundle,
            .configuration = settings_,
            .dispatchQueues = queues_,
            .eventStreams = fakes_.eventStreams,
            .fileManager = files_,
            .imageDecoder = decoder,
            .log = fakes_.log,
            .openPanel = fakes_.openPanel,
            .statusBar = fakes_.statusBar,
            .timers = fakes_.queues,
            .urlSession = session,
            .userDefaults = fakes_.userDefaults,
            .userNotificationCenter = fakes_.notifications,
            .workspace = fakes_.workspace,
        };
        const platform::ServicesScope scope(services);
        return candidatesOf(url);
    }

    bool isBlind_;
    doubles::Fakes fakes_;
    const platform::Configuration settings_{"", ""};
    platform::LinuxDispatchQueues queues_;
    platform::PosixFileManager files_;
    platform::CurlURLSession session_{queues_.global(platform::QualityOfService::userInitiated),
                                      sessionOptions()};
    platform::SandboxedImageDecoder sandbox_{GLINTMARK_IMAGE_DECODER, session_};
    BlindDecoder blind_;
};

/// The fetches of all links of the input. None is measured meanwhile: recording costs time, and the
/// finder that records knows some answers afterwards.
std::vector<Record> recordAll(bool isBlind) {
    std::vector<Record> records;
    Finder finder(isBlind);
    for (std::string link; std::getline(std::cin, link);) {
        records.push_back(finder.record(*URL::parse(link)));
    }
    return records;
}

void measureAll(const std::vector<Record>& records, bool withBareLoop, bool isBlind) {
    Finder finder(isBlind);
    BareLoop bare;
    Milliseconds others = otherThreads();
    for (const Record& record : records) {
        ordered_json line = record.line;
        const Cost cost = costOf([&] { line["images"] = finder.find(record.url).size(); });
        line["ms"] = cost.elapsed.count();
        if (withBareLoop) {
            const Cost least = costOf([&] { line["bareAnswers"] = bare.askFor(record.requests); });
            line["bareMs"] = least.elapsed.count();
            line["bareProcessorMs"] = least.processor.count();
            line["decodingMs"] = costOf([&] { bare.decodeImages(); }).processor.count();
        }
        const Milliseconds othersUntilNow = otherThreads();
        line["processorMs"] = (cost.processor + othersUntilNow - others).count();
        others = othersUntilNow;
        std::cout << line.dump() << std::endl;
    }
}

}  // namespace
}  // namespace glintmark

int main(int argc, char** argv) {
    using namespace glintmark;
    prctl(PR_SET_CHILD_SUBREAPER, 1);  // so that this process gets the helper's figures
    const std::vector<std::string_view> options(argv + 1, argv + argc);
    const bool isBlind = std::ranges::count(options, "--blind") > 0;
    const std::vector<Record> records = recordAll(isBlind);
    const Milliseconds before = timeOfEndedChildren();
    measureAll(records, std::ranges::count(options, "--bare") > 0, isBlind);
    std::cout << ordered_json{{"decoderMs", (timeOfEndedChildren() - before).count()},
                              {"megabytes",
                               peakMegabytes(RUSAGE_SELF) + peakMegabytes(RUSAGE_CHILDREN)}}
                     .dump()
              << std::endl;
}
