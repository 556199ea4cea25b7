#include "base/json/JSON.h"
#include "tests/base/work/DispatchQueueContract.h"
#include "tests/doubles/FakeEventStream.h"
#include "tests/doubles/FakeFileManager.h"
#include "tests/doubles/FakeURLSession.h"
#include "tests/doubles/FakeUserDefaults.h"
#include "tests/doubles/VirtualQueues.h"
#include "tests/platform/EventStreamContract.h"
#include "tests/platform/FileManagerContract.h"
#include "tests/platform/URLSessionContract.h"
#include "tests/platform/UserDefaultsContract.h"
#include "tests/support/Subject.h"

namespace glintmark::platform {
namespace {

class FakeFileManagerSubject : public FileManagerSubject {
public:
    FakeFileManagerSubject() { manager_.createDirectory("/folder"); }

    FileManager& manager() override { return manager_; }
    std::string folder() override { return "/folder"; }
    void createFile(const std::string& path, const std::string& bytes) override {
        manager_.create(path, bytes);
    }
    void createDirectory(const std::string& path) override { manager_.createDirectory(path); }
    void createLink(const std::string& path, const std::string& target) override {
        manager_.createLink(path, target);
    }
    void remove(const std::string& path) override { manager_.remove(path); }

private:
    doubles::FakeFileManager manager_;
};

INSTANTIATE_TEST_SUITE_P(
    Fake, FileManagerContract,
    testing::Values(&test::makeSubject<FileManagerSubject, FakeFileManagerSubject>));

class FakeUserDefaultsSubject : public UserDefaultsSubject {
public:
    UserDefaults& defaults() override { return defaults_; }
    void store(const std::string& json) override {
        const auto stored = JSON::parse(json);
        for (const auto& [key, value] : *stored->object()) {
            defaults_.store(key, value);
        }
    }

private:
    doubles::FakeUserDefaults defaults_;
};

INSTANTIATE_TEST_SUITE_P(
    Fake, UserDefaultsContract,
    testing::Values(&test::makeSubject<UserDefaultsSubject, FakeUserDefaultsSubject>));

class VirtualQueueSubject : public DispatchQueueSubject {
public:
    DispatchQueue& queue() override { return *queue_; }
    void destroyQueue() override { queue_.reset(); }
    std::chrono::nanoseconds now() override { return queues_.now(); }
    bool runUntil(const std::function<bool()>& condition) override {
        queues_.runUntilIdle();
        return condition();
    }

private:
    doubles::VirtualQueues queues_;
    std::unique_ptr<DispatchQueue> queue_ = queues_.makeSerial("contract");
};

class FakeURLSessionSubject : public URLSessionSubject {
public:
    URLSession& session() override { return session_; }
    std::string answering(int status, const std::string& body) override {
        const std::string url = "http://site.example/" + std::to_string(++answers_);
        session_.answer(url, status, body);
        return url;
    }
    std::string unreachable() override {
        session_.fail("http://gone.example/", "refused");
        return "http://gone.example/";
    }
    std::string silent() override {
        session_.staySilent("http://silent.example/");
        return "http://silent.example/";
    }
    bool runUntil(const std::function<bool()>& condition) override {
        for (int i = 0; i < maximumSteps && !condition(); ++i) {
            queues_.advance(std::chrono::milliseconds(10));
        }
        return condition();
    }

private:
    static constexpr int maximumSteps = 1000;

    doubles::VirtualQueues queues_;
    doubles::FakeURLSession session_{queues_};
    int answers_ = 0;
};

INSTANTIATE_TEST_SUITE_P(
    Fake, URLSessionContract,
    testing::Values(&test::makeSubject<URLSessionSubject, FakeURLSessionSubject>));

INSTANTIATE_TEST_SUITE_P(
    Virtual, DispatchQueueContract,
    testing::Values(&test::makeSubject<DispatchQueueSubject, VirtualQueueSubject>));

class FakeEventStreamSubject : public EventStreamSubject {
public:
    EventStreamFactory& factory() override { return factory_; }
    DispatchQueue& queue() override { return *queue_; }
    std::string folder() override { return "/folder"; }
    void change() override { factory_.report("/folder"); }
    bool runUntil(const std::function<bool()>& condition) override {
        queues_.runUntilIdle();
        return condition();
    }

private:
    doubles::VirtualQueues queues_;
    std::unique_ptr<DispatchQueue> queue_ = queues_.makeSerial("contract");
    doubles::FakeEventStreamFactory factory_;
};

INSTANTIATE_TEST_SUITE_P(
    Fake, EventStreamContract,
    testing::Values(&test::makeSubject<EventStreamSubject, FakeEventStreamSubject>));

}  // namespace
}  // namespace glintmark::platform
