#pragma once

#include <array>
#include <string>
#include <string_view>

namespace glintmark::platform {

/// The user's Desktop and Downloads folders, by the text of user-dirs.dirs(5): those that
/// XDG_DESKTOP_DIR and XDG_DOWNLOAD_DIR name, if they are absolute and not the home folder, else
/// `home` + "/Desktop" and `home` + "/Downloads". Always two different paths: if both names lead to
/// one folder, it is the first, and the second is a default.
///
/// A value stands in double quotes and may begin with "$HOME"; a backslash takes the next character
/// as it is. Of several values, the last one counts. Lines of another form are ignored.
std::array<std::string, 2> desktopAndDownloads(std::string_view userDirs, const std::string& home);

/// The path of that file: in `$XDG_CONFIG_HOME` if that is absolute, else in `home` + "/.config".
std::string userDirsFile(const std::string& home);

}  // namespace glintmark::platform
