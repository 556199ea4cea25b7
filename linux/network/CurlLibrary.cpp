// Stands in for libcurl, which is loaded when one of its functions is called for the first time. It
// brings thirty libraries with it, a third of the program's memory and half of its start, and a
// program that waits for links needs none of them.

#include <curl/curl.h>
#include <dlfcn.h>

#include <cstdarg>

#include "base/system/FatalError.h"

// Macros over the functions with variable arguments.
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
        // As where a linked library is missing. NOLINTNEXTLINE(concurrency-mt-unsafe)
        glintmark::fatalError(::dlerror());
    }
    return found;
}

template <auto StandIn>
auto real(const char* name) {
    static const auto function = reinterpret_cast<decltype(StandIn)>(symbol(name));
    return function;
}

/// The first argument's type of a function.
template <typename Result, typename First, typename... Rest>
First firstOf(Result (*function)(First, Rest...));
using ReadURL = decltype(firstOf(&curl_url_get));  // to a constant in later versions

}  // namespace

// What follows has libcurl's names and types, so it has no others to give.
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
CURLMcode curl_multi_perform(CURLM* multi, int* running) {
    return REAL(curl_multi_perform)(multi, running);
}
CURLMsg* curl_multi_info_read(CURLM* multi, int* left) {
    return REAL(curl_multi_info_read)(multi, left);
}
CURLMcode curl_multi_poll(CURLM* multi, curl_waitfd extra[], unsigned count, int milliseconds,
                          int* ready) {
    return REAL(curl_multi_poll)(multi, extra, count, milliseconds, ready);
}
CURLMcode curl_multi_wakeup(CURLM* multi) { return REAL(curl_multi_wakeup)(multi); }

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

// An option promotes to a type of its own width, which harms nothing; the declarations are
// libcurl's.
#pragma GCC diagnostic ignored "-Wvarargs"

// Each takes one argument more, a long, a pointer or a 64-bit number, which all travel alike.
#define PASS_ON(name, object, option)                \
    std::va_list arguments;                          \
    va_start(arguments, option);                     \
    void* const argument = va_arg(arguments, void*); \
    va_end(arguments);                               \
    return REAL(name)(object, option, argument)
static_assert(sizeof(long) == sizeof(void*) && sizeof(curl_off_t) == sizeof(void*));

CURLcode curl_easy_setopt(CURL* handle, CURLoption option, ...) {
    PASS_ON(curl_easy_setopt, handle, option);
}
CURLcode curl_easy_getinfo(CURL* handle, CURLINFO info, ...) {
    PASS_ON(curl_easy_getinfo, handle, info);
}
CURLMcode curl_multi_setopt(CURLM* multi, CURLMoption option, ...) {
    PASS_ON(curl_multi_setopt, multi, option);
}
CURLSHcode curl_share_setopt(CURLSH* share, CURLSHoption option, ...) {
    PASS_ON(curl_share_setopt, share, option);
}
// NOLINTEND(readability-identifier-naming, cert-dcl50-cpp)
