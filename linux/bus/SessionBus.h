#pragma once

#include <gio/gio.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "linux/glib/GLibHandles.h"

namespace glintmark::platform {

enum class NameOwnership { owned, takenByAnother, noBus };

/// The program's one connection to the session bus, which may be absent, go away and come back.
///
/// Main thread only, default main context. Losing the bus does not end the process. While there is
/// none, a new connection is tried after a pause that triples up to a minute, and then as soon as
/// the main loop wakes up anyway, at the latest when as long again has passed.
class SessionBus {
public:
    /// Receives each new connection, and null when it is lost.
    using Observer = std::function<void(GDBusConnection* connection)>;
    using Subscription = std::shared_ptr<const Observer>;  ///< Ends when the last copy goes away.

    static constexpr auto programName = "com.quorvel.Glintmark";

    /// Connects. Waits for that at most `patience` and otherwise goes on without a bus, which is
    /// then taken up like one that appears later.
    explicit SessionBus(std::chrono::milliseconds patience = std::chrono::seconds(5));
    ~SessionBus();
    SessionBus(const SessionBus&) = delete;
    SessionBus& operator=(const SessionBus&) = delete;

    /// The present connection, null without a bus. Borrowed: valid until control returns to the
    /// main loop.
    GDBusConnection* connection() const { return connection_.get(); }

    /// Calls `observer` at once when there is a connection, then at every change.
    Subscription observe(Observer observer);

    /// Asks for `programName`, which one process of a session can own; asks again by itself on
    /// each later connection. Waits for the bus's answer, at most five seconds.
    NameOwnership acquireName();

    /// Waits until what was sent has gone to the bus, at most `patience`. What a process has not
    /// sent when it ends, such as the answer to the call that ended it, is lost.
    void flush(std::chrono::milliseconds patience) const;

    /// Why the program should not go on.
    enum class End {
        sessionIsOver,  ///< The bus is lost, and so is whoever led the process's session.
        nameIsTaken,    ///< Another process has the name on a bus that came later.
    };

    /// `handler` runs from the main loop. Without one there are no such ends.
    void setEndHandler(std::function<void(End)> handler) { endHandler_ = std::move(handler); }

private:
    void open();
    void openPrivately();
    void opened(GObjectHandle<GDBusConnection> connection);
    void lost();
    void release();
    void retryLater();
    void retry();
    void notify();
    void requestName();
    void end(End why) const;

    GObjectHandle<GCancellable> cancellable_;  ///< Guards `this` in the calls under way.
    GObjectHandle<GDBusConnection> connection_;
    gulong closedHandler_ = 0;
    std::vector<std::weak_ptr<const Observer>> observers_;
    std::chrono::milliseconds pause_;
    GSourceId retry_;
    std::function<void(End)> endHandler_;
    bool opening_ = false;
    bool wasLed_ = false;  ///< The session had its leader when the last connection came.
    bool wantsName_ = false;
};

}  // namespace glintmark::platform
