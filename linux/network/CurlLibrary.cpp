// libcurl's functions, which load libcurl when one of them is called for the first time. libcurl
// brings thirty libraries with it, a third of the program's memory and half of its start-up time.
// A program that waits for links needs none of them.

#include <curl/curl.h>
#include <dlfcn.h>

#include <cstdarg>

#include "base/system/FatalError.h"

// libcurl defines macros of the same names over its functions with variable arguments.
#undef curl_easy_getinfo
#undef curl_easy_setopt
#undef curl_multi_setopt
#undef curl_share_setopt

namespace {

constexpr const char* libraryName = "libcurl.so.4";

void* symbol(const char* name) {
    static void* const library = ::dlopen(libraryName, RTLD_LAZY | RTLD_LOCAL);
    void* const found = library == nullptr ? nullptr : ::dlsym(library, name);
    if (found == nullptr) {
        // A linked library that is missing also ends the program.
        // NOLINTNEXTLINE(concurrency-mt-unsafe)
        glintmark::fatalError(::dlerror());
    }
    return found;
}

/// libcurl's own function `name`, which has the type of `function`.
template <auto function>
auto real(const char* name) {
    static const auto found = reinterpret_cast<decltype(function)>(symbol(name));
    return found;
}

/// Its result is the type of the first argument of `function`.
template <typename Result, typename First, typename... Rest>
First firstOf(Result (*function)(First, Rest...));
using ReadURL = decltype(firstOf(&curl_url_get));  // `const` in later versions

// The functions with variable arguments take one argument more than they name. A va_list does not
// tell the type of that argument; the number of the option does.

/// Calls `function` with the next of `arguments`, which has the type `Argument`.
template <typename Argument, typename Function, typename Object, typename Option>
auto call(Function function, Object object, Option option, std::va_list arguments) {
    return function(object, option, va_arg(arguments, Argument));
}

/// For curl_easy_setopt(3) and curl_multi_setopt(3), whose option numbers are the number of the
/// type plus a counter.
template <typename Function, typename Object, typename Option>
auto setOption(Function function, Object object, Option option, std::va_list arguments) {
    switch (option - option % CURLOPTTYPE_OBJECTPOINT) {
        case CURLOPTTYPE_LONG:
            return call<long>(function, object, option, arguments);
        case CURLOPTTYPE_FUNCTIONPOINT:
            return call<void (*)()>(function, object, option, arguments);
        case CURLOPTTYPE_OFF_T:
            return call<curl_off_t>(function, object, option, arguments);
        default:
            return call<void*>(function, object, option, arguments);
    }
}

/// For curl_easy_getinfo(3), which writes through a pointer to the type of the information.
template <typename Function>
CURLcode getInfo(Function function, CURL* handle, CURLINFO info, std::va_list arguments) {
    switch (info & CURLINFO_TYPEMASK) {
        case CURLINFO_LONG:
            return call<long*>(function, handle, info, arguments);
        case CURLINFO_DOUBLE:
            return call<double*>(function, handle, info, arguments);
        case CURLINFO_SOCKET:
            return call<curl_socket_t*>(function, handle, info, arguments);
        case CURLINFO_OFF_T:
            return call<curl_off_t*>(function, handle, info, arguments);
        default:  // a pointer to a text or a list
            return call<void*>(function, handle, info, arguments);
    }
}

/// For curl_share_setopt(3). The types are from its manual, because its option numbers do not tell
/// them.
template <typename Function>
CURLSHcode setShareOption(Function function, CURLSH* share, CURLSHoption option,
                          std::va_list arguments) {
    switch (option) {
        case CURLSHOPT_SHARE:
        case CURLSHOPT_UNSHARE:
            return call<int>(function, share, option, arguments);  // a curl_lock_data
        case CURLSHOPT_LOCKFUNC:
        case CURLSHOPT_UNLOCKFUNC:
            return call<void (*)()>(function, share, option, arguments);
        default:
            return call<void*>(function, share, option, arguments);
    }
}

}  // namespace

// The names and types are libcurl's.
// NOLINTBEGIN(readability-identifier-naming, cert-dcl50-cpp)
#define REAL(name) real<&name>(#name)

CURLcode curl_global_init(long flags) { return REAL(curl_global_init)(flags); }
void curl_free(void* memory) { REAL(curl_free)(memory); }

CURL* curl_easy_init() { return REAL(curl_easy_init)(); }
void curl_easy_cleanup(CURL* handle) { REAL(curl_easy_cleanup)(handle); }
const char* curl_easy_strerror(CURLcode code) { return REAL(curl_easy_strerror)(code); }
CURLHcode curl_easy_header(CURL* handle, const char* name, size_t index, unsigned origin,
                           int request, curl_header** header) {
    return REAL(curl_easy_header)(handle, name, index, origin, request, header);
}

curl_slist* curl_slist_append(curl_slist* list, const char* text) {
    return REAL(curl_slist_append)(list, text);
}
void curl_slist_free_all(curl_slist* list) { REAL(curl_slist_free_all)(list); }

CURLM* curl_multi_init() { return REAL(curl_multi_init)(); }
CURLMcode curl_multi_cleanup(CURLM* multi) { return REAL(curl_multi_cleanup)(multi); }
CURLMcode curl_multi_add_handle(CURLM* multi, CURL* handle) {
    return REAL(curl_multi_add_handle)(multi, handle);
}
CURLMcode curl_multi_remove_handle(CURLM* multi, CURL* handle) {
    return REAL(curl_multi_remove_handle)(multi, handle);
}
CURLMsg* curl_multi_info_read(CURLM* multi, int* left) {
    return REAL(curl_multi_info_read)(multi, left);
}
CURLMcode curl_multi_socket_action(CURLM* multi, curl_socket_t socket, int events, int* running) {
    return REAL(curl_multi_socket_action)(multi, socket, events, running);
}
CURLMcode curl_multi_timeout(CURLM* multi, long* milliseconds) {
    return REAL(curl_multi_timeout)(multi, milliseconds);
}

CURLSH* curl_share_init() { return REAL(curl_share_init)(); }
CURLSHcode curl_share_cleanup(CURLSH* share) { return REAL(curl_share_cleanup)(share); }

CURLU* curl_url() { return REAL(curl_url)(); }
void curl_url_cleanup(CURLU* url) { REAL(curl_url_cleanup)(url); }
CURLU* curl_url_dup(ReadURL url) { return REAL(curl_url_dup)(url); }
CURLUcode curl_url_get(ReadURL url, CURLUPart part, char** text, unsigned flags) {
    return REAL(curl_url_get)(url, part, text, flags);
}
CURLUcode curl_url_set(CURLU* url, CURLUPart part, const char* text, unsigned flags) {
    return REAL(curl_url_set)(url, part, text, flags);
}

// va_start is called with an enumeration, as libcurl's declarations require. It promotes to an
// integer of the same width, so the call works.
#pragma GCC diagnostic ignored "-Wvarargs"

#define PASS_ON(how, name, object, option)                          \
    std::va_list arguments;                                         \
    va_start(arguments, option);                                    \
    const auto result = how(REAL(name), object, option, arguments); \
    va_end(arguments);                                              \
    return result

CURLcode curl_easy_setopt(CURL* handle, CURLoption option, ...) {
    PASS_ON(setOption, curl_easy_setopt, handle, option);
}
CURLcode curl_easy_getinfo(CURL* handle, CURLINFO info, ...) {
    PASS_ON(getInfo, curl_easy_getinfo, handle, info);
}
CURLMcode curl_multi_setopt(CURLM* multi, CURLMoption option, ...) {
    PASS_ON(setOption, curl_multi_setopt, multi, option);
}
CURLSHcode curl_share_setopt(CURLSH* share, CURLSHoption option, ...) {
    PASS_ON(setShareOption, curl_share_setopt, share, option);
}
// NOLINTEND(readability-identifier-naming, cert-dcl50-cpp)
