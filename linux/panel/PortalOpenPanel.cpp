#include "linux/panel/PortalOpenPanel.h"

#include <memory>
#include <optional>
#include <utility>

#include "linux/panel/DialogProgram.h"
#include "linux/panel/PortalFileChooser.h"

namespace glintmark::platform {

/// One dialog, from its start to its result.
class PortalOpenPanel::Dialog {
public:
    Dialog(SessionBus& bus, const Settings& settings)
        : bus_(bus), settings_(settings), loop_(g_main_loop_new(nullptr, FALSE)) {
        show();
    }

    /// Closes what is shown, if anything, and shows it anew.
    void show() {
        portal_.reset();
        program_.reset();
        if (bus_.connection() == nullptr) {
            startProgram();
            return;
        }
        portal_ = std::make_unique<PortalFileChooser>(bus_.connection(), settings_,
                                                      [this](std::optional<Result> result) {
                                                          if (result) {
                                                              finish(*std::move(result));
                                                          } else {
                                                              startProgram();
                                                          }
                                                      });
    }

    Result run(MainLoops& loops) {
        if (!result_) {
            loops.run(loop_.get());
        }
        return result_.value_or(Result{});
    }

private:
    void startProgram() {
        program_ =
            DialogProgram::start(settings_, [this](Result result) { finish(std::move(result)); });
        if (program_ == nullptr) {
            finish({});
        }
    }

    void finish(Result result) {
        result_ = std::move(result);
        g_main_loop_quit(loop_.get());
    }

    SessionBus& bus_;
    const Settings& settings_;
    GMainLoopHandle loop_;
    std::unique_ptr<PortalFileChooser> portal_;
    std::unique_ptr<DialogProgram> program_;
    std::optional<Result> result_;
};

OpenPanel::Result PortalOpenPanel::runModal(const Settings& settings) {
    if (open_ != nullptr) {
        open_->show();
        return {};
    }
    Dialog dialog(bus_, settings);
    open_ = &dialog;
    Result result = dialog.run(loops_);
    open_ = nullptr;
    return result;
}

}  // namespace glintmark::platform
