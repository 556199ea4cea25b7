#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "base/graphics/TemplateImage.h"
#include "base/system/FileDescriptor.h"

namespace glintmark::platform {

/// The grey of a template image where the desktop does not recolour it. Its contrast is at
/// least 3.6 to 1 on usual light and dark panels.
inline constexpr std::uint8_t neutralGrey = 0x80;

/// Draws template images with cairo. The library is loaded only while this exists: it brings
/// fourteen others, and the program draws once, when it starts. Ends the program if the library is
/// missing.
class TemplateRenderer {
public:
    TemplateRenderer();
    ~TemplateRenderer();
    TemplateRenderer(const TemplateRenderer&) = delete;
    TemplateRenderer& operator=(const TemplateRenderer&) = delete;

    /// The image scaled to a square of `pixels`, row by row from the top: alpha, red, green, blue,
    /// one byte each, not premultiplied. This is the format of StatusNotifierItem.
    std::vector<std::uint8_t> render(const TemplateImage& image, int pixels) const;

private:
    struct Functions;

    void* library_;
    std::unique_ptr<const Functions> cairo_;
};

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
