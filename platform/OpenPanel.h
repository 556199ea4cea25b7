#pragma once

#include <optional>
#include <string>

namespace glintmark::platform {

enum class ModalResponse { cancel = 0, ok = 1 };

/// A dialog in which the user chooses a file or folder. Main thread only.
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
        std::optional<std::string> path;  ///< The bytes of the path as the desktop sent them.
    };

    virtual ~OpenPanel() = default;

    /// Shows the dialog and runs a nested event loop until the user answers. If the desktop has no
    /// dialog or its service ends, the result is `cancel`.
    virtual Result runModal(const Settings& settings) = 0;
};

}  // namespace glintmark::platform
