#include <algorithm>
#include <array>
#include <chrono>
#include <utility>

#include "base/json/JSON.h"
#include "base/text/TextCase.h"
#include "favicon/FaviconFetcher.h"
#include "favicon/IconAddress.h"
#include "platform/Platform.h"

namespace glintmark {

using platform::services;

namespace {

constexpr std::array manifestPaths{"/manifest.json", "/site.webmanifest", "/manifest.webmanifest"};
constexpr std::chrono::seconds manifestTimeout{5};

constexpr std::int64_t defaultSize = 64;  // pixels

/// The member as a string. Null if it is missing or not a string.
const std::string* stringMember(const JSON& object, std::string_view key) {
    const JSON* const member = object.member(key);
    return member != nullptr ? member->string() : nullptr;
}

/// The "icons" of a manifest. Null unless they are an array that contains only objects.
const JSON::Array* iconObjects(const JSON& manifest) {
    const JSON* const icons = manifest.member("icons");
    const JSON::Array* const array = icons != nullptr ? icons->array() : nullptr;
    if (array == nullptr || !std::ranges::all_of(*array, &JSON::object)) {
        return nullptr;
    }
    return array;
}

bool contains(std::string_view text, std::string_view part) {
    return text.find(part) != std::string_view::npos;
}

/// True if the icon is meant only for desktops that cut icons to a shape ("maskable").
bool isMaskableOnly(const JSON& icon) {
    const std::string* const purpose = stringMember(icon, "purpose");
    if (purpose == nullptr) {
        return false;
    }
    const std::string folded = lowercased(*purpose);
    return contains(folded, "maskable") && !contains(folded, "any");
}

bool isSVG(const JSON& icon, std::string_view address) {
    const std::string* const type = stringMember(icon, "type");
    return (type != nullptr && contains(*type, "svg")) || endsWithSVG(address);
}

/// The first width in "sizes": the first text between "x"s that is not empty. The default size if
/// there is none or it is not a number.
std::int64_t sizeOf(const JSON& icon) {
    const std::string* const sizes = stringMember(icon, "sizes");
    if (sizes == nullptr) {
        return defaultSize;
    }
    std::string_view width = *sizes;
    width.remove_prefix(std::min(width.find_first_not_of('x'), width.size()));
    return decimalInteger(width.substr(0, width.find('x'))).value_or(defaultSize);
}

/// One icon of a manifest. Absent if it is not usable.
std::optional<FaviconFetcher::ManifestIcon> manifestIcon(const JSON& icon, const URL& pageURL) {
    const std::string* const src = stringMember(icon, "src");
    if (src == nullptr) {
        return std::nullopt;
    }
    // On purpose, resolved against the page and not against the manifest's own address.
    auto url = FaviconFetcher::resolveURL(*src, pageURL);
    if (!url || isSVG(icon, *src) || isMaskableOnly(icon)) {
        return std::nullopt;
    }
    return FaviconFetcher::ManifestIcon{std::move(*url), sizeOf(icon)};
}

}  // namespace

void FaviconFetcher::fetchFromManifest(const FetchContext& context, const URL& url,
                                       ImageCompletion completion) {
    const Attempt attempt = [context, url](const URL& address, ImageCompletion finish,
                                           std::function<void()> moveOn) {
        // Unlike requests for pages and images, this one has the client's own User-Agent.
        platform::URLRequest request(address);
        request.group = context.requests;
        request.timeoutInterval = manifestTimeout;
        services().urlSession.startDataTask(
            std::move(request), [context, url, finish = std::move(finish),
                                 moveOn = std::move(moveOn)](const platform::URLResult& result) {
                std::optional<ManifestIcon> icon;
                if (isOK(result)) {
                    icon = chooseManifestIcon(*result.body, url);
                }
                if (icon) {
                    downloadImage(context, icon->url, finish, result.addressSpace);
                } else {
                    moveOn();
                }
            });
    };
    tryInTurn(url, manifestPaths, attempt, std::move(completion));
}

std::optional<FaviconFetcher::ManifestIcon> FaviconFetcher::chooseManifestIcon(
    std::string_view json, const URL& pageURL) {
    const auto manifest = JSON::parse(json);
    const JSON::Array* const icons = manifest ? iconObjects(*manifest) : nullptr;
    if (icons == nullptr) {
        return std::nullopt;
    }
    std::optional<ManifestIcon> best;
    for (const JSON& object : *icons) {
        auto icon = manifestIcon(object, pageURL);
        if (icon && (!best || best->size < icon->size)) {
            best = std::move(icon);
        }
    }
    return best;
}

}  // namespace glintmark
