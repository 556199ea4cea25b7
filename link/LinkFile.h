#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "base/url/URL.h"
#include "platform/FileIdentity.h"

namespace glintmark::link {

/// The forms of files that hold one web address.
enum class LinkFileKind {
    webloc,            ///< ".webloc": a property list.
    desktopEntry,      ///< ".desktop": a desktop entry of type Link (Desktop Entry Specification).
    internetShortcut,  ///< ".url": an INI file with the group "InternetShortcut".
};

/// By the ending of the name, in any letter case. Absent for every other name.
std::optional<LinkFileKind> linkFileKind(std::string_view path);

/// What was found in a file.
struct LinkFileContents {
    bool wasRead = false;             ///< False if the file cannot be read.
    std::optional<std::string> link;  ///< As stored, unchecked. Absent if the file holds none.
    platform::FileIdentity identity;  ///< Which file was read.
};

/// Reads the file at `path`, by its kind; as a property list if its name has none of the endings.
/// Any thread.
LinkFileContents readLinkFile(const std::string& path);

/// The value of "URL" in a desktop entry of type Link. Absent if it is none.
std::optional<std::string> linkInDesktopEntry(std::string_view bytes);

/// The value of "URL" in an Internet shortcut. Absent if there is none.
std::optional<std::string> linkInShortcut(std::string_view bytes);

/// The value of "Icon" in a desktop entry. Absent if it is missing or empty.
std::optional<std::string> iconInDesktopEntry(std::string_view bytes);

/// A desktop entry with `icon` as its icon. Every other byte stays as it is. Absent if `bytes` are
/// not a desktop entry.
std::optional<std::string> desktopEntryWithIcon(std::string_view bytes, std::string_view icon);

/// A link file for `link` in the XML form of property lists.
std::string weblocBytes(std::string_view link);

/// The web address in a link, or why there is none.
struct WebAddress {
    std::optional<URL> url;  ///< http or https with a host.
    std::string scheme;      ///< As written; empty if the link has none.
};

/// The address of `link` if it is one of the web. Blanks around it are dropped, and characters that
/// stand in no URL (RFC 3986) are escaped, as browsers do. A link with a control character is none.
WebAddress webAddress(std::string_view link);

}  // namespace glintmark::link
