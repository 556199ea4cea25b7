#include "tests/doubles/TestPlatform.h"

namespace glintmark::doubles {

namespace {

template <typename Service>
Service& chosen(Service* replacement, Service& fake) {
    return replacement != nullptr ? *replacement : fake;
}

}  // namespace

platform::Services Fakes::servicesWith(const Replacements& replacements) {
    return {
        .application = application,
        .bundle = bundle,
        .configuration = configuration,
        .dispatchQueues = chosen<platform::DispatchQueues>(replacements.dispatchQueues, queues),
        .eventStreams =
            chosen<platform::EventStreamFactory>(replacements.eventStreams, eventStreams),
        .fileManager = chosen<platform::FileManager>(replacements.fileManager, files),
        .imageDecoder = chosen<platform::ImageDecoder>(replacements.imageDecoder, imageDecoder),
        .log = log,
        .openPanel = openPanel,
        .statusBar = statusBar,
        .timers = chosen<platform::Timers>(replacements.timers, queues),
        .urlSession = chosen<platform::URLSession>(replacements.urlSession, urlSession),
        .userDefaults = userDefaults,
        .userNotificationCenter = notifications,
        .workspace = chosen<platform::Workspace>(replacements.workspace, workspace),
    };
}

void PlatformTest::TearDown() {
    queues().runPending();
    EXPECT_EQ(queues().pendingWork(), 0U) << "work is left when the services are destroyed";
    EXPECT_EQ(queues().activeTimers(), 0U) << "a timer is left when the services are destroyed";
}

}  // namespace glintmark::doubles
