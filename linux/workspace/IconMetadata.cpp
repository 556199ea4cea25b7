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

/// The state that the thread uses. Outlives the `IconMetadata` while a call is stuck.
struct IconMetadata::Worker : std::enable_shared_from_this<IconMetadata::Worker> {
    Writer writer;
    IconMetadata* owner = nullptr;  ///< Main thread only; null once it is destroyed.

    std::mutex mutex;  ///< Guards the rest.
    std::condition_variable answered;
    std::deque<std::shared_ptr<Request>> requests;
    bool running = false;

    void submit(const std::shared_ptr<Request>& request);
    bool isAnswered(const Request& request, std::chrono::milliseconds timeout);
    void run();
    void notifyMainThread();
};

/// A file for which `done` has not been called yet.
struct IconMetadata::Pending {
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

bool IconMetadata::Worker::isAnswered(const Request& request, std::chrono::milliseconds timeout) {
    std::unique_lock lock(mutex);
    return answered.wait_for(lock, timeout, [&] { return request.written.has_value(); });
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
        notifyMainThread();
    }
    running = false;
}

void IconMetadata::Worker::notifyMainThread() {
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

IconMetadata::IconMetadata(Writer writer, std::chrono::milliseconds answerTimeout)
    : answerTimeout_(answerTimeout), worker_(std::make_shared<Worker>()) {
    worker_->writer = std::move(writer);
    worker_->owner = this;
}

IconMetadata::~IconMetadata() {
    worker_->owner = nullptr;
    const std::scoped_lock lock(worker_->mutex);
    worker_->requests.clear();
}

void IconMetadata::set(const std::string& path, const std::string& iconURI,
                       std::chrono::milliseconds blockFor, Done done) {
    auto request = std::make_shared<Request>(Request{path, iconURI, std::nullopt});
    worker_->submit(request);
    if (worker_->isAnswered(*request, isOverdue_ ? std::chrono::milliseconds(0) : blockFor)) {
        done(*request->written);
        return;
    }
    auto pending = std::make_unique<Pending>(Pending{this, request, std::move(done), GSourceId()});
    const auto atTimeout = [](gpointer data) -> gboolean {
        auto* late = static_cast<Pending*>(data);
        late->timeout.forget();
        late->owner->giveUp(late->request.get());
        return G_SOURCE_REMOVE;
    };
    pending->timeout = GSourceId(
        g_timeout_add(static_cast<guint>(answerTimeout_.count()), atTimeout, pending.get()));
    pending_.push_back(std::move(pending));
}

void IconMetadata::collectAnswers() {
    isOverdue_ = false;
    std::vector<std::unique_ptr<Pending>> settled;
    const auto isOpen = [this](const auto& pending) {
        return !worker_->isAnswered(*pending->request, std::chrono::milliseconds(0));
    };
    const auto firstSettled = std::stable_partition(pending_.begin(), pending_.end(), isOpen);
    std::move(firstSettled, pending_.end(), std::back_inserter(settled));
    pending_.erase(firstSettled, pending_.end());
    for (const auto& pending : settled) {
        pending->done(*pending->request->written);
    }
}

void IconMetadata::giveUp(const Request* request) {
    isOverdue_ = true;
    const auto found = std::find_if(pending_.begin(), pending_.end(), [&](const auto& pending) {
        return pending->request.get() == request;
    });
    const auto pending = std::move(*found);
    pending_.erase(found);
    pending->done(false);
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
