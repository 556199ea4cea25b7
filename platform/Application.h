#pragma once

namespace glintmark::platform {

/// How the desktop lists the program. An accessory is not in the list of windows.
enum class ActivationPolicy { accessory = 1 };

/// Receives an application's events, on the main thread.
class ApplicationDelegate {
public:
    virtual ~ApplicationDelegate() = default;

    /// Called once, after the event loop has started.
    virtual void applicationDidFinishLaunching() = 0;

    /// The user asks for the command from outside the program's menu (the desktop's launcher).
    virtual void addFolder() = 0;

    /// The system or the user asks the program to quit (a termination signal, the end of the
    /// session, the desktop's launcher).
    virtual void quit() = 0;
};

/// The process as the desktop sees it. Main thread only.
class Application {
public:
    virtual ~Application() = default;

    virtual void setActivationPolicy(ActivationPolicy policy) = 0;
    virtual void setDelegate(ApplicationDelegate& delegate) = 0;  ///< Must outlive `run()`.

    /// Runs the event loop until `terminate()`.
    virtual void run() = 0;

    /// Ends the event loop. Does nothing when it is not running.
    virtual void terminate() = 0;
};

}  // namespace glintmark::platform
