#pragma once

#include <optional>
#include <string>

namespace glintmark::platform {

enum class ModalResponse { cancel = 0, ok = 1 };

/// A dialog that asks the user for a file or folder. Main thread only.
class OpenPanel {
public:
    struct Settings {
        bool canChooseDirectories = false;
        bool canChooseFiles = true;
        bool allowsMultipleSelection = false;
        std::string message;
    };
    struct Result {
        ModalResponse response = ModalResponse::cancel;
        std::optional<std::string> path;  ///< The chosen path's bytes, as the desktop gave them.
    };

    virtual ~OpenPanel() = default;

    /// Shows the dialog and runs an event loop of its own until it is answered. Counts as
    /// cancelled when the desktop offers no dialog or the dialog's service goes away.
    virtual Result runModal(const Settings& settings) = 0;
};

}  // namespace glintmark::platform
