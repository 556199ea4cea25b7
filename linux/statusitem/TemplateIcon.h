#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "base/graphics/TemplateImage.h"
#include "base/system/FileDescriptor.h"

namespace glintmark::platform {

/// The grey of a template image where the desktop does not recolour it. Its contrast is at
/// least 3.6 to 1 on usual light and dark panels.
inline constexpr std::uint8_t neutralGrey = 0x80;

/// The image scaled to a square of `pixels`, row by row from the top: alpha, red, green, blue, one
/// byte each, not premultiplied. This is the format of StatusNotifierItem.
std::vector<std::uint8_t> renderTemplate(const TemplateImage& image, int pixels);

/// The image as a symbolic icon that GTK and KDE recolour.
std::string symbolicSVG(const TemplateImage& image);

/// True if one of `dataFolders`, a list that ends with null, has the symbolic icon `name` in its
/// hicolor theme, in which every panel looks for names (Icon Theme Specification).
bool isSymbolicIconInstalled(const char* const* dataFolders, const std::string& name);

/// An icon theme folder with one symbolic icon, on disk while this exists. The icon is there twice,
/// in a theme and beside it: some panels read only one of them. The programs of several sessions of
/// a user share a folder; the last of them removes it.
class SymbolicIconFolder {
public:
    static constexpr auto iconName = "glintmark-symbolic";

    /// Makes `path` if it is missing. If that or writing fails, `path()` is empty.
    SymbolicIconFolder(std::string path, const TemplateImage& image);
    ~SymbolicIconFolder();
    SymbolicIconFolder(const SymbolicIconFolder&) = delete;
    SymbolicIconFolder& operator=(const SymbolicIconFolder&) = delete;

    const std::string& path() const { return path_; }

private:
    bool share();

    std::string path_;
    FileDescriptor lock_;  ///< Of the folder, shared (flock(2)) with all that use it.
};

}  // namespace glintmark::platform
