#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace glintmark {

/// A URI reference by RFC 3986, kept exactly as written: nothing is trimmed, escaped or normalised.
/// One exception: square brackets in path, query and fragment are escaped, because browsers write
/// them unescaped. A value; may be used from any thread.
class URL {
public:
    /// Absent if `text` does not follow the grammar (RFC 3986, section 4.1), which excludes blanks,
    /// non-ASCII characters and bad escapes. Absent also if `text` is empty.
    static std::optional<URL> parse(std::string_view text);

    /// `text` resolved against `base` (RFC 3986, section 5.2.2), with surplus dot segments removed.
    static std::optional<URL> parse(std::string_view text, const URL& base);

    /// A "file" URL for a path of any bytes. `path()` returns these bytes without a trailing slash.
    static URL fileURL(std::string_view path);

    const std::string& absoluteString() const { return text_; }

    /// As written. Absent for a relative reference.
    const std::optional<std::string>& scheme() const { return scheme_; }

    /// With escapes undone and without the brackets of an IP literal; case as written. Absent if
    /// there is no authority or its host is empty.
    const std::optional<std::string>& host() const { return host_; }

    /// With escapes undone and without a trailing slash; "/" itself stays.
    std::string path() const;

    /// The last segment of `path()`; "/" for the root.
    std::string lastPathComponent() const;

    bool operator==(const URL& other) const { return text_ == other.text_; }

private:
    URL() = default;

    std::string text_;
    std::optional<std::string> scheme_;
    std::optional<std::string> host_;
    std::string escapedPath_;
};

}  // namespace glintmark
