#include "linux/panel/PortalOpenPanel.h"

#include <memory>
#include <optional>
#include <utility>

#include "linux/panel/DialogProgram.h"
#include "linux/panel/PortalFileChooser.h"

namespace glintmark::platform {

namespace {

/// One dialog, from its start to its result.
class Dialog {
public:
    Dialog(GDBusConnection* connection, const OpenPanel::Settings& settings)
        : settings_(settings), loop_(g_main_loop_new(nullptr, FALSE)) {
        if (connection == nullptr) {
            startProgram();
            return;
        }
        portal_ = std::make_unique<PortalFileChooser>(
            connection, settings, [this](std::optional<OpenPanel::Result> result) {
                if (result) {
                    finish(*std::move(result));
                } else {
                    startProgram();
                }
            });
    }

    OpenPanel::Result run(MainLoops& loops) {
        if (!result_) {
            loops.run(loop_.get());
        }
        return result_.value_or(OpenPanel::Result{});
    }

private:
    void startProgram() {
        program_ = DialogProgram::start(
            settings_, [this](OpenPanel::Result result) { finish(std::move(result)); });
        if (program_ == nullptr) {
            finish({});
        }
    }

    void finish(OpenPanel::Result result) {
        result_ = std::move(result);
        g_main_loop_quit(loop_.get());
    }

    const OpenPanel::Settings& settings_;
    GMainLoopHandle loop_;
    std::unique_ptr<PortalFileChooser> portal_;
    std::unique_ptr<DialogProgram> program_;
    std::optional<OpenPanel::Result> result_;
};

}  // namespace

OpenPanel::Result PortalOpenPanel::runModal(const Settings& settings) {
    if (open_) {
        return {};
    }
    open_ = true;
    Result result = Dialog(bus_.connection(), settings).run(loops_);
    open_ = false;
    return result;
}

}  // namespace glintmark::platform
