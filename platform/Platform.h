#pragma once

namespace glintmark::platform {

class Application;
class Bundle;
class DispatchQueues;
class EventStreamFactory;
class FileManager;
class ImageDecoder;
class Log;
class OpenPanel;
class StatusBar;
class Timers;
class URLSession;
class UserDefaults;
class UserNotificationCenter;
class Workspace;
struct Configuration;

/// All interfaces between the program and the world outside its process, timers included.
struct Services {
    Application& application;
    Bundle& bundle;
    const Configuration& configuration;
    DispatchQueues& dispatchQueues;
    EventStreamFactory& eventStreams;
    FileManager& fileManager;
    ImageDecoder& imageDecoder;
    Log& log;
    OpenPanel& openPanel;
    StatusBar& statusBar;
    Timers& timers;
    URLSession& urlSession;
    UserDefaults& userDefaults;
    UserNotificationCenter& userNotificationCenter;
    Workspace& workspace;
};

/// The services of the current `ServicesScope`. Ends the process when there is none, which is a
/// programming error. Any thread.
const Services& services();

/// Makes `services()` return `services` while the scope exists. Scopes do not nest. A scope begins
/// and ends while no queue has work.
class ServicesScope {
public:
    explicit ServicesScope(const Services& services);
    ~ServicesScope();

    ServicesScope(const ServicesScope&) = delete;
    ServicesScope& operator=(const ServicesScope&) = delete;
};

}  // namespace glintmark::platform
