#include "linux/process/StartNotice.h"

#include <utility>

namespace glintmark::platform {

using std::chrono::milliseconds;

StartNotice::StartNotice(Ask isShown, std::function<void()> show, Patience patience)
    : isShown_(std::move(isShown)), show_(std::move(show)), patience_(patience) {}

void StartNotice::started(DesktopApplication::Start start) {
    const auto patience =
        start == DesktopApplication::Start::byDesktop ? patience_.withDesktop : patience_.atLogin;
    const auto age = std::chrono::steady_clock::now() - begin_;
    const auto rest = std::chrono::ceil<milliseconds>(patience - age);
    if (rest <= milliseconds::zero()) {
        ask();
        return;
    }
    const auto run = [](gpointer data) -> gboolean {
        auto* self = static_cast<StartNotice*>(data);
        self->timer_.forget();
        self->ask();
        return G_SOURCE_REMOVE;
    };
    timer_ = GSourceId(g_timeout_add(static_cast<guint>(rest.count()), run, this));
}

void StartNotice::ask() {
    isShown_([this](bool isShown) {
        if (!isShown) {
            show_();
        }
    });
}

}  // namespace glintmark::platform
