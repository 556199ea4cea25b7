#include "app/AdmissionGate.h"

#include <algorithm>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <utility>
#include <vector>

#include "platform/DispatchQueues.h"
#include "platform/Platform.h"

namespace glintmark {

namespace {

constexpr int looksPerWait = 2;  // a run that begins right after a look waits for two more

DispatchQueue& globalQueue() {
    return platform::services().dispatchQueues.global(platform::QualityOfService::userInitiated);
}

}  // namespace

/// Every place holds a reference, so the state can outlive the gate. The delayed looks hold none.
struct AdmissionGate::State : std::enable_shared_from_this<AdmissionGate::State> {
    struct Waiting {
        Run run;
        std::size_t size;
        std::function<void()> expired;
    };
    struct Active {
        std::size_t size;
        std::function<void()> expired;
        std::uint64_t period;  ///< The value of `periods` when it began.
    };
    using Begin = std::pair<Run, Place>;

    explicit State(Limits allowed) : limits(allowed) {}

    bool fits(std::size_t size, std::size_t places) const { return taken + size <= places; }
    Begin begin(Waiting next);
    std::vector<Begin> beginWaiting();
    void leave(std::uint64_t number);
    void lend();
    void expire();
    void lookLater(bool& isPlanned, std::chrono::nanoseconds delay, void (State::*look)());

    /// Only without the lock: the end of a run's place may take it.
    static void runLater(std::vector<Begin>&& beginning) {
        for (Begin& each : beginning) {
            globalQueue().async([each = std::move(each)] { each.first(each.second); });
        }
    }

    const Limits limits;
    std::mutex mutex;  // guards all below
    std::size_t taken = 0;
    std::deque<Waiting> waiting;
    std::map<std::uint64_t, Active> active;  ///< By number, which grows.
    std::uint64_t lastNumber = 0;
    std::uint64_t beginnings = 0;      ///< Of runs that had waited.
    std::uint64_t beginningsSeen = 0;  ///< At the last look of `lend`.
    std::uint64_t periods = 0;         ///< How often `expire` has looked.
    bool isLendingPlanned = false;
    bool isExpiryPlanned = false;
};

void AdmissionGate::State::lookLater(bool& isPlanned, std::chrono::nanoseconds delay,
                                     void (State::*look)()) {
    if (isPlanned) {
        return;
    }
    isPlanned = true;
    globalQueue().asyncAfter(delay, [weak = weak_from_this(), look] {
        if (const auto self = weak.lock()) {
            (self.get()->*look)();
        }
    });
}

AdmissionGate::State::Begin AdmissionGate::State::begin(Waiting next) {
    const auto number = ++lastNumber;
    taken += next.size;
    active.emplace(number, Active{next.size, std::move(next.expired), periods});
    lookLater(isExpiryPlanned, minimumHold, &State::expire);
    return {std::move(next.run),
            Place(static_cast<void*>(this),
                  [self = shared_from_this(), number](void*) { self->leave(number); })};
}

/// Gives free places to the runs that have waited longest.
std::vector<AdmissionGate::State::Begin> AdmissionGate::State::beginWaiting() {
    std::vector<Begin> beginning;
    while (!waiting.empty() && fits(waiting.front().size, limits.places)) {
        beginning.push_back(begin(std::move(waiting.front())));
        waiting.pop_front();
        ++beginnings;
    }
    return beginning;
}

void AdmissionGate::State::leave(std::uint64_t number) {
    std::vector<Begin> beginning;
    Active ended{};  // its destructor runs without the lock
    {
        const std::lock_guard lock(mutex);
        const auto found = active.find(number);
        if (found == active.end()) {
            return;
        }
        ended = std::move(found->second);
        active.erase(found);
        taken -= ended.size;
        beginning = beginWaiting();
    }
    runLater(std::move(beginning));
}

void AdmissionGate::State::lend() {
    std::vector<Begin> beginning;
    {
        const std::lock_guard lock(mutex);
        isLendingPlanned = false;
        if (waiting.empty()) {
            return;
        }
        if (beginnings == beginningsSeen &&
            fits(waiting.front().size, limits.places + limits.placesToLend)) {
            beginning.push_back(begin(std::move(waiting.front())));
            waiting.pop_front();
            ++beginnings;
        }
        beginningsSeen = beginnings;
        if (!waiting.empty()) {
            lookLater(isLendingPlanned, maximumWait / looksPerWait, &State::lend);
        }
    }
    runLater(std::move(beginning));
}

void AdmissionGate::State::expire() {
    std::vector<Active> ended;
    std::vector<Begin> beginning;
    {
        const std::lock_guard lock(mutex);
        isExpiryPlanned = false;
        ++periods;
        // The numbers of the oldest come first. A run that began in the last period may have held
        // its place for less than `minimumHold`.
        while (!active.empty() && active.begin()->second.period + 1 < periods) {
            taken -= active.begin()->second.size;
            ended.push_back(std::move(active.begin()->second));
            active.erase(active.begin());
        }
        if (!active.empty()) {
            lookLater(isExpiryPlanned, minimumHold, &State::expire);
        }
        beginning = beginWaiting();
    }
    runLater(std::move(beginning));
    for (const auto& run : ended) {
        if (run.expired) {
            run.expired();
        }
    }
}

AdmissionGate::AdmissionGate(Limits limits) : state_(std::make_shared<State>(limits)) {}

void AdmissionGate::enter(Run run, std::size_t size, std::function<void()> expired) {
    if (size == 0) {
        run(nullptr);
        return;
    }
    State::Begin beginning;
    {
        const std::lock_guard lock(state_->mutex);
        State::Waiting next{std::move(run), std::min(size, state_->limits.places),
                            std::move(expired)};
        if (!state_->waiting.empty() || !state_->fits(next.size, state_->limits.places)) {
            state_->waiting.push_back(std::move(next));
            if (state_->limits.placesToLend > 0) {
                state_->lookLater(state_->isLendingPlanned, maximumWait / looksPerWait,
                                  &State::lend);
            }
            return;
        }
        beginning = state_->begin(std::move(next));
    }
    beginning.first(beginning.second);
}

}  // namespace glintmark
