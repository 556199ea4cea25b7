#include "linux/statusitem/TemplateIcon.h"

#include <cairo.h>
#include <fcntl.h>
#include <glib.h>
#include <glib/gstdio.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <memory>
#include <utility>
#include <variant>

#include "linux/glib/GLibHandles.h"

namespace glintmark::platform {

namespace {

using CairoSurface = std::unique_ptr<cairo_surface_t, ReleaseWith<cairo_surface_destroy>>;
using Cairo = std::unique_ptr<cairo_t, ReleaseWith<cairo_destroy>>;

/// For std::visit: one function for each kind of path element.
template <typename... Visitors>
struct Overloaded : Visitors... {
    using Visitors::operator()...;
};
template <typename... Visitors>
Overloaded(Visitors...) -> Overloaded<Visitors...>;  // Clang 14 needs the deduction guide

void trace(cairo_t* cairo, const BezierPath& path) {
    const Overloaded draw{
        [&](const BezierPath::MoveTo& e) { cairo_move_to(cairo, e.point.x, e.point.y); },
        [&](const BezierPath::LineTo& e) { cairo_line_to(cairo, e.point.x, e.point.y); },
        [&](const BezierPath::CurveTo& e) {
            cairo_curve_to(cairo, e.control1.x, e.control1.y, e.control2.x, e.control2.y, e.point.x,
                           e.point.y);
        },
        [&](const BezierPath::Close&) { cairo_close_path(cairo); }};
    for (const auto& element : path.elements()) {
        std::visit(draw, element);
    }
}

/// The shape's coverage of each pixel, 0 to 255.
CairoSurface renderMask(const TemplateImage& image, int pixels) {
    CairoSurface surface(cairo_image_surface_create(CAIRO_FORMAT_A8, pixels, pixels));
    const Cairo cairo(cairo_create(surface.get()));
    // The image's y axis points up, cairo's down.
    cairo_translate(cairo.get(), 0, pixels);
    cairo_scale(cairo.get(), pixels / image.size.width, -pixels / image.size.height);
    trace(cairo.get(), image.filledPath);
    cairo_set_fill_rule(cairo.get(), image.filledPath.windingRule() == WindingRule::evenOdd
                                         ? CAIRO_FILL_RULE_EVEN_ODD
                                         : CAIRO_FILL_RULE_WINDING);
    cairo_fill(cairo.get());
    cairo_surface_flush(surface.get());
    return surface;
}

/// Does not depend on the locale, unlike printf(3).
std::string number(double value) {
    std::array<char, 32> text{};
    constexpr int significantDigits = 6;
    const auto end = std::to_chars(text.data(), text.data() + text.size(), value,
                                   std::chars_format::general, significantDigits);
    return {text.data(), end.ptr};
}

/// The "d" attribute of an SVG path. SVG's y axis points down.
std::string svgPathData(const TemplateImage& image) {
    const auto at = [&](Point point) {
        return number(point.x) + " " + number(image.size.height - point.y);
    };
    const Overloaded describe{[&](const BezierPath::MoveTo& e) { return "M" + at(e.point); },
                              [&](const BezierPath::LineTo& e) { return "L" + at(e.point); },
                              [&](const BezierPath::CurveTo& e) {
                                  return "C" + at(e.control1) + " " + at(e.control2) + " " +
                                         at(e.point);
                              },
                              [&](const BezierPath::Close&) { return std::string("Z"); }};
    std::string data;
    for (const auto& element : image.filledPath.elements()) {
        data += std::visit(describe, element);
    }
    return data;
}

std::string neutralColour() {
    const GStringHandle text(
        g_strdup_printf("#%02x%02x%02x", neutralGrey, neutralGrey, neutralGrey));
    return text.get();
}

/// The folders to make below an icon theme folder. The icon is in the last.
const std::array<const char*, 3> themeFolders{"/hicolor", "/hicolor/scalable",
                                              "/hicolor/scalable/apps"};
constexpr mode_t ownerOnly = 0700;

bool isSameFile(int descriptor, const std::string& path) {
    struct stat opened {};
    struct stat named {};
    return ::fstat(descriptor, &opened) == 0 && ::stat(path.c_str(), &named) == 0 &&
           opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
}

/// Lets GTK read the theme even if the system has no hicolor theme.
constexpr auto themeIndexName = "/hicolor/index.theme";
constexpr auto themeIndex =
    "[Icon Theme]\nName=Hicolor\nComment=The icon of Glintmark\nDirectories=scalable/apps\n\n"
    "[scalable/apps]\nSize=16\nMinSize=8\nMaxSize=512\nType=Scalable\nContext=Applications\n";

/// The files below `folder`, with their contents.
std::array<std::pair<std::string, std::string>, 3> filesBelow(const std::string& folder,
                                                              const std::string& svg) {
    const std::string name = std::string("/") + SymbolicIconFolder::iconName + ".svg";
    return {{{folder + themeFolders.back() + name, svg},
             {folder + name, svg},
             {folder + themeIndexName, themeIndex}}};
}

}  // namespace

std::vector<std::uint8_t> renderTemplate(const TemplateImage& image, int pixels) {
    const CairoSurface mask = renderMask(image, pixels);
    const auto stride = static_cast<std::size_t>(cairo_image_surface_get_stride(mask.get()));
    const unsigned char* coverage = cairo_image_surface_get_data(mask.get());
    const auto side = static_cast<std::size_t>(pixels);
    std::vector<std::uint8_t> argb;
    argb.reserve(side * side * 4);
    for (std::size_t y = 0; y < side; ++y) {
        for (std::size_t x = 0; x < side; ++x) {
            argb.insert(argb.end(),
                        {coverage[y * stride + x], neutralGrey, neutralGrey, neutralGrey});
        }
    }
    return argb;
}

/// GTK overrides the fill of every path. KDE replaces the style sheet with this id, and thereby the
/// colour of paths with this class.
std::string symbolicSVG(const TemplateImage& image) {
    const std::string width = number(image.size.width);
    const std::string height = number(image.size.height);
    const std::string colour = neutralColour();
    const char* rule =
        image.filledPath.windingRule() == WindingRule::evenOdd ? "evenodd" : "nonzero";
    return R"(<svg xmlns="http://www.w3.org/2000/svg" width=")" + width + R"(" height=")" + height +
           R"(" viewBox="0 0 )" + width + " " + height + R"(" color=")" + colour +
           R"(">
<style type="text/css" id="current-color-scheme">.ColorScheme-Text { color: )" +
           colour + R"(; }</style>
<path class="ColorScheme-Text" fill="currentColor" fill-rule=")" +
           rule + R"(" d=")" + svgPathData(image) + R"("/>
</svg>
)";
}

bool isSymbolicIconInstalled(const char* const* dataFolders, const std::string& name) {
    for (; *dataFolders != nullptr; ++dataFolders) {
        for (const char* folder : {"symbolic", "scalable"}) {
            const std::string file =
                std::string(*dataFolders) + "/icons/hicolor/" + folder + "/apps/" + name + ".svg";
            if (g_file_test(file.c_str(), G_FILE_TEST_IS_REGULAR) != FALSE) {
                return true;
            }
        }
    }
    return false;
}

SymbolicIconFolder::SymbolicIconFolder(std::string path, const TemplateImage& image)
    : path_(std::move(path)) {
    const auto write = [](const auto& file) {
        return g_file_set_contents(file.first.c_str(), file.second.data(),
                                   static_cast<gssize>(file.second.size()), nullptr) != FALSE;
    };
    const auto files = filesBelow(path_, symbolicSVG(image));
    if (!share() || !std::all_of(files.begin(), files.end(), write)) {
        path_.clear();
    }
}

/// Makes the folder and takes a shared lock of it.
bool SymbolicIconFolder::share() {
    // Another program may remove the folder before the lock is taken, but hardly again and again.
    constexpr int attempts = 10;
    for (int attempt = 0; attempt < attempts; ++attempt) {
        g_mkdir_with_parents((path_ + themeFolders.back()).c_str(), ownerOnly);
        lock_ = FileDescriptor(::open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        if (!lock_) {
            return false;
        }
        // Waits at most while another program removes the folder.
        if (::flock(lock_.get(), LOCK_SH) == 0 &&
            g_file_test((path_ + themeFolders.back()).c_str(), G_FILE_TEST_IS_DIR) &&
            isSameFile(lock_.get(), path_)) {
            return true;
        }
    }
    return false;
}

SymbolicIconFolder::~SymbolicIconFolder() {
    if (path_.empty() || ::flock(lock_.get(), LOCK_EX | LOCK_NB) != 0) {
        return;
    }
    for (const auto& [file, contents] : filesBelow(path_, "")) {
        g_unlink(file.c_str());
    }
    std::for_each(themeFolders.rbegin(), themeFolders.rend(),
                  [this](const char* folder) { g_rmdir((path_ + folder).c_str()); });
    g_rmdir(path_.c_str());
}

}  // namespace glintmark::platform
