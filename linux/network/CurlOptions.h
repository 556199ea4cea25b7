#pragma once

#include <curl/curl.h>

#include <type_traits>

namespace glintmark::platform {

/// True if the option with the number `option` takes an `Argument`. In libcurl, an option's number
/// is the number of its type plus a counter.
template <typename Argument>
constexpr bool fitsCurlOption(int option) {
    switch (option - option % CURLOPTTYPE_OBJECTPOINT) {
        case CURLOPTTYPE_LONG:
            return std::is_same_v<Argument, long>;
        case CURLOPTTYPE_OBJECTPOINT:
            return std::is_null_pointer_v<Argument> ||
                   (std::is_pointer_v<Argument> &&
                    !std::is_function_v<std::remove_pointer_t<Argument>>);
        case CURLOPTTYPE_FUNCTIONPOINT:
            return std::is_function_v<std::remove_pointer_t<Argument>>;
        case CURLOPTTYPE_OFF_T:
            return std::is_same_v<Argument, curl_off_t>;
        default:
            return false;
    }
}

/// curl_easy_setopt(3) with the type of its argument checked.
template <CURLoption option, typename Argument>
void setCurlOption(CURL* handle, Argument argument) {
    static_assert(fitsCurlOption<Argument>(option));
    curl_easy_setopt(handle, option, argument);
}

/// The same for curl_multi_setopt(3).
template <CURLMoption option, typename Argument>
void setCurlOption(CURLM* multi, Argument argument) {
    static_assert(fitsCurlOption<Argument>(option));
    curl_multi_setopt(multi, option, argument);
}

}  // namespace glintmark::platform
