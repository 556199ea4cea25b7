#include "linux/workspace/IconMetadata.h"

#include <gio/gio.h>

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <utility>

#include "linux/glib/GLibHandles.h"
#include "linux/queues/Thread.h"

namespace glintmark::platform {

namespace {

constexpr auto attribute = "metadata::custom-icon";
constexpr std::size_t stackBytes = std::size_t{512} * 1024;

GObjectHandle<GFile> fileAt(const std::string& path) {
    return GObjectHandle<GFile>(g_file_new_for_path(path.c_str()));
}

}  // namespace

struct IconMetadata::Request {
    std::string path;
    std::string iconURI;
    std::optional<bool> written;  ///< Guarded by the worker's mutex.
};

/// The thread's side. Outlives the service while a call is stuck.
struct IconMetadata::Worker : std::enable_shared_from_this<IconMetadata::Worker> {
    Writer writer;
    IconMetadata* owner = nullptr;  ///< Main thread only; null when the service is gone.

    std::mutex mutex;  ///< Guards what follows.
    std::condition_variable answered;
    std::deque<std::shared_ptr<Request>> requests;
    bool running = false;

    void submit(const std::shared_ptr<Request>& request);
    bool isAnswered(const Request& request, std::chrono::milliseconds patience);
    void run();
    void tellMainThread();
};

/// A file whose call of `done` is still to come.
struct IconMetadata::Owed {
    IconMetadata* owner;
    std::shared_ptr<Request> request;
    Done done;
    GSourceId timeout;
};

void IconMetadata::Worker::submit(const std::shared_ptr<Request>& request) {
    const std::scoped_lock lock(mutex);
    requests.push_back(request);
    if (running) {
        return;
    }
    running = Thread::startDetached("icon-metadata", stackBytes,
                                    [self = shared_from_this()] { self->run(); });
    if (!running) {
        request->written = false;
        requests.pop_back();
    }
}

bool IconMetadata::Worker::isAnswered(const Request& request, std::chrono::milliseconds patience) {
    std::unique_lock lock(mutex);
    return answered.wait_for(lock, patience, [&] { return request.written.has_value(); });
}

void IconMetadata::Worker::run() {
    std::unique_lock lock(mutex);
    while (!requests.empty()) {
        const auto request = std::move(requests.front());
        requests.pop_front();
        lock.unlock();
        const bool written = writer(request->path, request->iconURI);
        lock.lock();
        request->written = written;
        answered.notify_all();
        tellMainThread();
    }
    running = false;
}

void IconMetadata::Worker::tellMainThread() {
    using Shared = std::shared_ptr<Worker>;
    g_idle_add_full(
        G_PRIORITY_DEFAULT,
        [](gpointer data) -> gboolean {
            if (const Shared& worker = *static_cast<Shared*>(data); worker->owner != nullptr) {
                worker->owner->collectAnswers();
            }
            return G_SOURCE_REMOVE;
        },
        new Shared(shared_from_this()), [](gpointer data) { delete static_cast<Shared*>(data); });
}

IconMetadata::IconMetadata(Writer writer, std::chrono::milliseconds limit)
    : limit_(limit), worker_(std::make_shared<Worker>()) {
    worker_->writer = std::move(writer);
    worker_->owner = this;
}

IconMetadata::~IconMetadata() {
    worker_->owner = nullptr;
    const std::scoped_lock lock(worker_->mutex);
    worker_->requests.clear();
}

void IconMetadata::set(const std::string& path, const std::string& iconURI,
                       std::chrono::milliseconds patience, Done done) {
    auto request = std::make_shared<Request>(Request{path, iconURI, std::nullopt});
    worker_->submit(request);
    if (worker_->isAnswered(*request, overdue_ ? std::chrono::milliseconds(0) : patience)) {
        done(*request->written);
        return;
    }
    auto owed = std::make_unique<Owed>(Owed{this, request, std::move(done), GSourceId()});
    const auto giveUpOnIt = [](gpointer data) -> gboolean {
        auto* late = static_cast<Owed*>(data);
        late->timeout.forget();
        late->owner->giveUp(late->request.get());
        return G_SOURCE_REMOVE;
    };
    owed->timeout =
        GSourceId(g_timeout_add(static_cast<guint>(limit_.count()), giveUpOnIt, owed.get()));
    owed_.push_back(std::move(owed));
}

void IconMetadata::collectAnswers() {
    overdue_ = false;
    std::vector<std::unique_ptr<Owed>> settled;
    const auto isOpen = [this](const auto& owed) {
        return !worker_->isAnswered(*owed->request, std::chrono::milliseconds(0));
    };
    const auto firstSettled = std::stable_partition(owed_.begin(), owed_.end(), isOpen);
    std::move(firstSettled, owed_.end(), std::back_inserter(settled));
    owed_.erase(firstSettled, owed_.end());
    for (const auto& owed : settled) {
        owed->done(*owed->request->written);
    }
}

void IconMetadata::giveUp(const Request* request) {
    overdue_ = true;
    const auto found = std::find_if(owed_.begin(), owed_.end(), [&](const auto& owed) {
        return owed->request.get() == request;
    });
    const auto owed = std::move(*found);
    owed_.erase(found);
    owed->done(false);
}

bool IconMetadata::writeThroughGIO(const std::string& path, const std::string& iconURI) {
    return g_file_set_attribute_string(fileAt(path).get(), attribute, iconURI.c_str(),
                                       G_FILE_QUERY_INFO_NONE, nullptr, nullptr) != FALSE;
}

std::optional<std::string> IconMetadata::readThroughGIO(const std::string& path) {
    const GObjectHandle<GFileInfo> info(
        g_file_query_info(fileAt(path).get(), attribute, G_FILE_QUERY_INFO_NONE, nullptr, nullptr));
    if (info == nullptr) {
        return std::nullopt;
    }
    const char* uri = g_file_info_get_attribute_string(info.get(), attribute);
    return uri == nullptr ? std::nullopt : std::optional<std::string>(uri);
}

}  // namespace glintmark::platform
