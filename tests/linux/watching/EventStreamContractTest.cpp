#include "linux/watching/InotifyEventStream.h"
#include "tests/linux/watching/EventStreamFixture.h"
#include "tests/platform/EventStreamContract.h"
#include "tests/support/Subject.h"

namespace glintmark::platform {
namespace {

class InotifySubject : public EventStreamSubject {
public:
    EventStreamFactory& factory() override { return factory_; }
    DispatchQueue& queue() override { return queue_; }
    std::string folder() override { return directory_.path(); }
    void change() override { directory_.write(std::to_string(++changes_)); }
    bool runUntil(const std::function<bool()>& condition) override { return waitFor(condition); }

private:
    test::TemporaryDirectory directory_;
    DebugLog log_;
    InotifyEventStreamFactory factory_{log_};
    ThreadPoolQueue queue_{"contract", 1};
    int changes_ = 0;
};

INSTANTIATE_TEST_SUITE_P(Inotify, EventStreamContract,
                         testing::Values(&test::makeSubject<EventStreamSubject, InotifySubject>));

}  // namespace
}  // namespace glintmark::platform
