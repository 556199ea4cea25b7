#include "linux/network/NameLookUps.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <resolv.h>

#include <array>
#include <csignal>
#include <mutex>
#include <utility>

#include "base/system/ReleaseWith.h"
#include "linux/queues/Thread.h"

namespace glintmark::platform {

namespace {

constexpr std::size_t maximumLookUps = 16;
constexpr std::size_t maximumPatientLookUps = maximumLookUps / 2;
constexpr int quickSeconds = 1;  // for each name server
constexpr std::size_t stackBytes = std::size_t{512} << 10;

constexpr std::chrono::seconds foundLifetime{60};
constexpr std::chrono::seconds failedLifetime{10};
constexpr std::size_t maximumRemembered = 1024;

using AddressList = std::unique_ptr<addrinfo, ReleaseWith<::freeaddrinfo>>;

/// Empty for an address that needs the name of an interface, which libcurl's lists cannot hold.
std::string textOf(const sockaddr& address) {
    std::array<char, INET6_ADDRSTRLEN> text{};
    if (address.sa_family == AF_INET) {
        const auto& four = reinterpret_cast<const sockaddr_in&>(address);
        return ::inet_ntop(AF_INET, &four.sin_addr, text.data(), text.size());
    }
    const auto& six = reinterpret_cast<const sockaddr_in6&>(address);
    if (address.sa_family != AF_INET6 || six.sin6_scope_id != 0) {
        return {};
    }
    ::inet_ntop(AF_INET6, &six.sin6_addr, text.data(), text.size());
    return "[" + std::string(text.data()) + "]";
}

/// Sets the patience of this thread's look-ups: resolver(3).
void setUpResolver(bool isQuick) {
    if (::res_init() == 0 && isQuick) {  // with the system's settings
        _res.retrans = quickSeconds;
        _res.retry = 1;
    }
}

}  // namespace

struct NameLookUps::Shared {
    std::mutex mutex;
    // Guarded by the mutex.
    std::deque<Task> tasks;
    std::vector<Outcome> outcomes;
    std::size_t threads = 0;
    std::function<void()> wake;
};

NameLookUps::NameLookUps(std::function<Time()> now)
    : now_(std::move(now)), shared_(std::make_shared<Shared>()) {}

NameLookUps::~NameLookUps() { setWake(nullptr); }

void NameLookUps::setWake(std::function<void()> wake) {
    const std::lock_guard lock(shared_->mutex);
    shared_->wake = std::move(wake);
}

std::optional<NameLookUps::Addresses> NameLookUps::ask(const std::string& name) {
    const auto found = names_.find(name);
    if (found != names_.end() && (!found->second.result || found->second.validUntil > now_())) {
        return found->second.result;
    }
    names_.insert_or_assign(name, Name{});
    waiting_.push_front(name);
    startWaiting();
    return names_[name].result;
}

std::vector<NameLookUps::Ended> NameLookUps::takeEnded() {
    std::vector<Outcome> outcomes;
    {
        const std::lock_guard lock(shared_->mutex);
        outcomes.swap(shared_->outcomes);
    }
    std::vector<Ended> ended;
    for (Outcome& outcome : outcomes) {
        noteOutcome(std::move(outcome), ended);
    }
    if (!outcomes.empty()) {
        startWaiting();
    }
    return ended;
}

void NameLookUps::noteOutcome(Outcome outcome, std::vector<Ended>& ended) {
    --running_;
    runningPatiently_ -= outcome.task.patience == Patience::full ? 1 : 0;
    const auto found = names_.find(outcome.task.name);
    if (found == names_.end() || found->second.result) {
        return;  // forgotten meanwhile
    }
    if (outcome.isUnanswered && outcome.task.patience == Patience::quick && waiting_.empty()) {
        patient_.push_back(outcome.task.name);
        return;
    }
    forgetExpired();
    Name& name = names_[outcome.task.name];
    name.validUntil = now_() + (outcome.addresses.empty() ? failedLifetime : foundLifetime);
    name.result = outcome.addresses;
    std::erase(begun_, outcome.task.name);
    ended.push_back({std::move(outcome.task.name), std::move(outcome.addresses)});
}

void NameLookUps::startWaiting() {
    while (running_ < maximumLookUps && !waiting_.empty()) {
        std::string name = std::move(waiting_.front());
        waiting_.pop_front();
        start({std::move(name), Patience::quick});
    }
    while (running_ < maximumLookUps && runningPatiently_ < maximumPatientLookUps &&
           !patient_.empty()) {
        std::string name = std::move(patient_.front());
        patient_.pop_front();
        start({std::move(name), Patience::full});
    }
}

void NameLookUps::start(Task task) {
    Name& name = names_[task.name];
    if (!name.begunAt) {
        name.begunAt = now_();
        begun_.push_back(task.name);
    }
    ++running_;
    runningPatiently_ += task.patience == Patience::full ? 1 : 0;
    const std::lock_guard lock(shared_->mutex);
    shared_->tasks.push_back(std::move(task));
    if (shared_->threads == maximumLookUps) {
        return;  // one of them has ended its task and takes this one
    }
    if (Thread::startDetached("look-up", stackBytes, [shared = shared_] { work(*shared); })) {
        ++shared_->threads;
    } else if (shared_->threads == 0) {
        shared_->outcomes.push_back({std::move(shared_->tasks.back()), {}});
        shared_->tasks.pop_back();
        if (shared_->wake) {
            shared_->wake();
        }
    }
}

/// A thread's work, until there is no task.
void NameLookUps::work(Shared& shared) {
    std::unique_lock lock(shared.mutex);
    while (!shared.tasks.empty()) {
        Task task = std::move(shared.tasks.front());
        shared.tasks.pop_front();
        lock.unlock();
        Outcome outcome = lookUp(std::move(task));
        lock.lock();
        shared.outcomes.push_back(std::move(outcome));
        if (shared.wake) {
            shared.wake();
        }
    }
    --shared.threads;
}

NameLookUps::Outcome NameLookUps::lookUp(Task task) {
    setUpResolver(task.patience == Patience::quick);
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* first = nullptr;
    const int error = ::getaddrinfo(task.name.c_str(), nullptr, &hints, &first);
    const AddressList list(first);
    Addresses addresses;
    for (const addrinfo* each = first; each != nullptr; each = each->ai_next) {
        const std::string text = textOf(*each->ai_addr);
        if (!text.empty()) {
            addresses += (addresses.empty() ? "" : ",") + text;
        }
    }
    return {std::move(task), std::move(addresses), error == EAI_AGAIN};
}

std::optional<NameLookUps::Time> NameLookUps::begunAt(const std::string& name) const {
    const auto found = names_.find(name);
    return found != names_.end() ? found->second.begunAt : std::nullopt;
}

void NameLookUps::forgetExpired() {
    if (names_.size() > maximumRemembered) {
        std::erase_if(names_, [now = now_()](const auto& entry) {
            return entry.second.result && entry.second.validUntil <= now;
        });
    }
}

void NameLookUps::forget() {
    names_.clear();
    begun_.clear();
    waiting_.clear();
    patient_.clear();
}

}  // namespace glintmark::platform
