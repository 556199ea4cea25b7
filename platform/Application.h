#pragma once

namespace glintmark::platform {

/// How the program shows among others: an accessory has no window list entry of its own.
enum class ActivationPolicy { accessory = 1 };

/// What an application tells its owner, on the main thread.
class ApplicationDelegate {
public:
    virtual ~ApplicationDelegate() = default;

    /// Once, when the event loop has begun.
    virtual void applicationDidFinishLaunching() = 0;

    /// The system asks the program to end (a termination signal, the session's end).
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

    /// Ends the event loop; harmless when it is not running.
    virtual void terminate() = 0;
};

}  // namespace glintmark::platform
