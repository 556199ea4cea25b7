#pragma once

#include <gio/gio.h>

#include <memory>

namespace glintmark::platform {

/// Calls a C function on what a handle owns when the handle goes away.
template <auto release>
struct ReleaseWith {
    template <typename T>
    void operator()(T* pointer) const {
        release(pointer);
    }
};

/// Owns one reference of a GObject.
template <typename T>
using GObjectHandle = std::unique_ptr<T, ReleaseWith<g_object_unref>>;

using GVariantHandle = std::unique_ptr<GVariant, ReleaseWith<g_variant_unref>>;
using GErrorHandle = std::unique_ptr<GError, ReleaseWith<g_error_free>>;
using GStringHandle = std::unique_ptr<gchar, ReleaseWith<g_free>>;
using GMainContextHandle = std::unique_ptr<GMainContext, ReleaseWith<g_main_context_unref>>;
using GMainLoopHandle = std::unique_ptr<GMainLoop, ReleaseWith<g_main_loop_unref>>;

/// Receives the GError of a call: `call(..., error.out())`, then `error.get()`.
class GErrorOut {
public:
    ~GErrorOut() { g_clear_error(&error_); }
    GErrorOut() = default;
    GErrorOut(const GErrorOut&) = delete;
    GErrorOut& operator=(const GErrorOut&) = delete;

    GError** out() {
        g_clear_error(&error_);
        return &error_;
    }
    const GError* get() const { return error_; }
    explicit operator bool() const { return error_ != nullptr; }

private:
    GError* error_ = nullptr;
};

}  // namespace glintmark::platform
