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

/// The program's one connection to the session bus, which may be absent, be lost and be opened
/// again.
///
/// Main thread only, default main context. Losing the bus does not end the process. Without a bus,
/// this class tries to connect again after a pause, which triples up to a minute
/// (`addCoalescedTimeout`).
class SessionBus {
public:
    /// Receives each new connection, and null when the connection is lost.
    using Observer = std::function<void(GDBusConnection* connection)>;
    using Subscription = std::shared_ptr<const Observer>;  ///< Ends with its last copy.

    static constexpr auto programName = "com.quorvel.Glintmark";

    /// Waits at most `timeout` for a connection. A later one is reported to the observers.
    /// `isLeaderGone` tells whether the leader of the process's session (setsid(2)) has ended.
    explicit SessionBus(std::chrono::milliseconds timeout = std::chrono::seconds(5),
                        bool (*isLeaderGone)() = isSessionLeaderGone);
    ~SessionBus();
    SessionBus(const SessionBus&) = delete;
    SessionBus& operator=(const SessionBus&) = delete;

    /// The current connection, or null without a bus. Borrowed: valid until control returns to the
    /// main loop.
    GDBusConnection* connection() const { return connection_.get(); }

    /// Calls `observer` at once if there is a connection, then at each change.
    Subscription observe(Observer observer);

    /// Requests `programName`, which only one process of a session can own. Waits for the bus's
    /// answer, at most five seconds. Requests the name again on each later connection.
    NameOwnership acquireName();

    /// Waits at most `timeout` until all messages are written to the bus. Messages that are still
    /// queued when the process ends are lost, such as the answer to the call that ended it.
    void flush(std::chrono::milliseconds timeout) const;

    /// Why the program should end.
    enum class End {
        sessionIsOver,  ///< The bus is lost, the leader of the process's session has ended, and
                        ///< so has the login session, if a login manager knows of it.
        nameIsTaken,    ///< Another process owns the name on a later connection.
    };

    /// `handler` runs from the main loop. Without a handler the program continues.
    void setEndHandler(std::function<void(End)> handler) { endHandler_ = std::move(handler); }

    /// True if the leader of this process's session, see setsid(2), has ended. At a desktop login
    /// the leader is the session manager or the process that started it. The kernel does not reuse
    /// its process id while the session has members.
    static bool isSessionLeaderGone();

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

    GObjectHandle<GCancellable> cancellable_;  ///< Cancels the pending calls, which use `this`.
    GObjectHandle<GDBusConnection> connection_;
    gulong closedHandler_ = 0;
    std::vector<std::weak_ptr<const Observer>> observers_;
    std::chrono::milliseconds pause_;
    GSourceId retry_;
    std::function<void(End)> endHandler_;
    bool (*isLeaderGone_)();
    bool isAsking_ = false;  ///< Whether the login session is over.
    bool opening_ = false;
    bool hadSessionLeader_ = false;  ///< When the last connection was made.
    bool wantsName_ = false;
};

}  // namespace glintmark::platform
