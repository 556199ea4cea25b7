#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace glintmark::platform {

/// Looks up host names with getaddrinfo(3), which blocks, on a limited number of threads. A look-up
/// whose result nobody wants any more cannot be stopped and counts until it ends. Waiting names
/// hold no thread; the newest goes first.
///
/// A name server that stays silent must not hold all threads. So each name gets a quick try first,
/// in which each server has a second. A name that was not answered is tried with the system's own
/// patience only if no other name waits, and on half of the threads; otherwise it fails.
///
/// For one thread, except where stated.
class NameLookUps {
public:
    using Time = std::chrono::steady_clock::time_point;

    /// IP addresses in libcurl's spelling, best first, separated by commas. Empty if the name has
    /// none or no server answered.
    using Addresses = std::string;

    /// `now` is the clock for what is remembered.
    explicit NameLookUps(std::function<Time()> now);
    ~NameLookUps();
    NameLookUps(const NameLookUps&) = delete;
    NameLookUps& operator=(const NameLookUps&) = delete;

    /// `wake` is called when a look-up has ended, on any thread, until this is called again.
    void setWake(std::function<void()> wake);

    /// The result if it is remembered. Otherwise absent, and `takeEnded` returns the name later.
    std::optional<Addresses> ask(const std::string& name);

    struct Ended {
        std::string name;
        Addresses addresses;
    };
    /// The look-ups that have ended since the last call. Starts those that waited for a thread.
    std::vector<Ended> takeEnded();

    /// When the look-up of `name` began. Absent while it waits for a thread.
    std::optional<Time> begunAt(const std::string& name) const;

    /// The names whose look-up has begun and not ended.
    const std::vector<std::string>& begun() const { return begun_; }

    /// Forgets results, and names that wait for a thread.
    void forget();

private:
    enum class Patience { quick, full };
    struct Name {
        std::optional<Time> begunAt;
        std::optional<Addresses> result;
        Time validUntil;
    };
    struct Task {
        std::string name;
        Patience patience;
    };
    struct Outcome {
        Task task;
        Addresses addresses;
        bool isUnanswered = false;
    };
    struct Shared;

    void startWaiting();
    void start(Task task);
    void noteOutcome(Outcome outcome, std::vector<Ended>& ended);
    void forgetExpired();
    static void work(Shared& shared);
    static Outcome lookUp(Task task);

    std::function<Time()> now_;
    std::unordered_map<std::string, Name> names_;
    std::vector<std::string> begun_;
    std::deque<std::string> waiting_;  ///< The newest in front.
    std::deque<std::string> patient_;  ///< Wait for a try with full patience.
    std::size_t running_ = 0;
    std::size_t runningPatiently_ = 0;
    std::shared_ptr<Shared> shared_;  ///< With the threads, which may outlive this object.
};

}  // namespace glintmark::platform
