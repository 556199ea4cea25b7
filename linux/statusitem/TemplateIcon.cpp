#include "linux/statusitem/TemplateIcon.h"

#include <cairo.h>
#include <dlfcn.h>
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

#include "base/system/FatalError.h"
#include "linux/glib/GLibHandles.h"

namespace glintmark::platform {

namespace {

constexpr const char* libraryName = "libcairo.so.2";

#ifdef GLINTMARK_SANITIZED
constexpr bool unloadsLibraries = false;  // what they keep would then count as lost
#else
constexpr bool unloadsLibraries = true;
#endif

/// For std::visit: one function for each kind of path element.
template <typename... Visitors>
struct Overloaded : Visitors... {
    using Visitors::operator()...;
};
template <typename... Visitors>
Overloaded(Visitors...) -> Overloaded<Visitors...>;  // Clang 14 needs the deduction guide

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

/// cairo's own functions.
struct TemplateRenderer::Functions {
    void* library;

    void trace(cairo_t* context, const BezierPath& path) const {
        const Overloaded draw{
            [&](const BezierPath::MoveTo& e) { moveTo(context, e.point.x, e.point.y); },
            [&](const BezierPath::LineTo& e) { lineTo(context, e.point.x, e.point.y); },
            [&](const BezierPath::CurveTo& e) {
                curveTo(context, e.control1.x, e.control1.y, e.control2.x, e.control2.y, e.point.x,
                        e.point.y);
            },
            [&](const BezierPath::Close&) { closePath(context); }};
        for (const auto& element : path.elements()) {
            std::visit(draw, element);
        }
    }

    decltype(&cairo_create) create = find(library, "cairo_create");
    decltype(&cairo_destroy) destroy = find(library, "cairo_destroy");
    decltype(&cairo_translate) translate = find(library, "cairo_translate");
    decltype(&cairo_scale) scale = find(library, "cairo_scale");
    decltype(&cairo_move_to) moveTo = find(library, "cairo_move_to");
    decltype(&cairo_line_to) lineTo = find(library, "cairo_line_to");
    decltype(&cairo_curve_to) curveTo = find(library, "cairo_curve_to");
    decltype(&cairo_close_path) closePath = find(library, "cairo_close_path");
    decltype(&cairo_set_fill_rule) setFillRule = find(library, "cairo_set_fill_rule");
    decltype(&cairo_fill) fill = find(library, "cairo_fill");
    decltype(&cairo_image_surface_create_for_data) imageSurfaceCreateForData =
        find(library, "cairo_image_surface_create_for_data");
    decltype(&cairo_format_stride_for_width) formatStrideForWidth =
        find(library, "cairo_format_stride_for_width");
    decltype(&cairo_surface_flush) surfaceFlush = find(library, "cairo_surface_flush");
    decltype(&cairo_surface_destroy) surfaceDestroy = find(library, "cairo_surface_destroy");

private:
    struct Symbol {
        void* address;

        // The member that it is assigned to has the type.
        template <typename Function>
        operator Function*() const {  // NOLINT(google-explicit-constructor)
            return reinterpret_cast<Function*>(address);
        }
    };

    static Symbol find(void* library, const char* name) {
        void* const found = library == nullptr ? nullptr : ::dlsym(library, name);
        if (found == nullptr) {
            // A linked library that is missing also ends the program.
            // NOLINTNEXTLINE(concurrency-mt-unsafe)
            fatalError(::dlerror());
        }
        return {found};
    }
};

TemplateRenderer::TemplateRenderer()
    : library_(::dlopen(libraryName, RTLD_LAZY | RTLD_LOCAL)), cairo_(new Functions{library_}) {}

TemplateRenderer::~TemplateRenderer() {
    if (unloadsLibraries) {
        ::dlclose(library_);
    }
}

std::vector<std::uint8_t> TemplateRenderer::render(const TemplateImage& image, int pixels) const {
    const auto side = static_cast<std::size_t>(pixels);
    const int stride = cairo_->formatStrideForWidth(CAIRO_FORMAT_A8, pixels);
    const auto rowBytes = static_cast<std::size_t>(stride);
    std::vector<unsigned char> coverage(rowBytes * side);  // of each pixel by the shape
    cairo_surface_t* const surface =
        cairo_->imageSurfaceCreateForData(coverage.data(), CAIRO_FORMAT_A8, pixels, pixels, stride);
    cairo_t* const context = cairo_->create(surface);
    // The image's y axis points up, cairo's down.
    cairo_->translate(context, 0, pixels);
    cairo_->scale(context, pixels / image.size.width, -pixels / image.size.height);
    cairo_->trace(context, image.filledPath);
    cairo_->setFillRule(context, image.filledPath.windingRule() == WindingRule::evenOdd
                                     ? CAIRO_FILL_RULE_EVEN_ODD
                                     : CAIRO_FILL_RULE_WINDING);
    cairo_->fill(context);
    cairo_->surfaceFlush(surface);
    cairo_->destroy(context);
    cairo_->surfaceDestroy(surface);
    std::vector<std::uint8_t> argb;
    argb.reserve(side * side * 4);
    for (std::size_t y = 0; y < side; ++y) {
        for (std::size_t x = 0; x < side; ++x) {
            argb.insert(argb.end(),
                        {coverage[y * rowBytes + x], neutralGrey, neutralGrey, neutralGrey});
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
