#pragma once

#include <gio/gio.h>

#include <functional>

namespace glintmark::platform {

/// What systemd-logind says about the user's login session (org.freedesktop.login1(5)).
enum class LoginSession {
    open,      ///< The user is logged in.
    over,      ///< The session has ended or is about to, or the user has none.
    noAnswer,  ///< The login manager does not answer.
    noManager  ///< There is no system bus or no login manager on it.
};

/// Asks for the session that XDG_SESSION_ID names; without it for that of this process, or, if it
/// belongs to none, for all sessions of the user. Returns at once. `answer` runs once, later, in
/// the caller's main context; not after `cancellable` was cancelled.
void askLoginSession(GCancellable* cancellable, std::function<void(LoginSession)> answer);

}  // namespace glintmark::platform
