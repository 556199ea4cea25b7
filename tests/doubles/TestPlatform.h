#pragma once

#include <gtest/gtest.h>

#include "platform/Configuration.h"
#include "platform/Platform.h"
#include "tests/doubles/FakeDesktop.h"
#include "tests/doubles/FakeEventStream.h"
#include "tests/doubles/FakeFileManager.h"
#include "tests/doubles/FakeImageDecoder.h"
#include "tests/doubles/FakeLog.h"
#include "tests/doubles/FakeStatusBar.h"
#include "tests/doubles/FakeURLSession.h"
#include "tests/doubles/FakeUserDefaults.h"
#include "tests/doubles/FakeUserNotificationCenter.h"
#include "tests/doubles/VirtualQueues.h"

namespace glintmark::doubles {

/// The services that a test uses in place of fakes. Null leaves the fake.
struct Replacements {
    platform::DispatchQueues* dispatchQueues = nullptr;
    platform::EventStreamFactory* eventStreams = nullptr;
    platform::FileManager* fileManager = nullptr;
    platform::ImageDecoder* imageDecoder = nullptr;
    platform::Timers* timers = nullptr;
    platform::URLSession* urlSession = nullptr;
    platform::Workspace* workspace = nullptr;
};

/// One fake for every service.
struct Fakes {
    VirtualQueues queues;
    FakeApplication application;
    FakeBundle bundle;
    platform::Configuration configuration{"https://icons.example", "https://product.example/"};
    FakeEventStreamFactory eventStreams;
    FakeFileManager files;
    FakeImageDecoder imageDecoder;
    FakeLog log;
    FakeOpenPanel openPanel;
    FakeStatusBar statusBar;
    FakeURLSession urlSession{queues};
    FakeUserDefaults userDefaults;
    FakeUserNotificationCenter notifications{queues};
    FakeWorkspace workspace;

    /// The fakes, but for the services that are replaced. Refers to both.
    platform::Services servicesWith(const Replacements& replacements);

    platform::Services services = servicesWith({});
};

/// The fakes, installed for the lifetime of this object.
struct TestPlatform : Fakes {
    platform::ServicesScope scope{services};
};

/// A fixture with the fakes installed. At the end of a test, work that is due runs; the test fails
/// if delayed work or a valid timer is left. A fixture that owns objects with work releases them in
/// its own `TearDown()` before it calls this one.
class PlatformTest : public testing::Test {
protected:
    void TearDown() override;

    TestPlatform& platform() { return platform_; }
    VirtualQueues& queues() { return platform_.queues; }
    FakeFileManager& files() { return platform_.files; }
    FakeLog& log() { return platform_.log; }
    FakeURLSession& session() { return platform_.urlSession; }

private:
    TestPlatform platform_;
};

}  // namespace glintmark::doubles
