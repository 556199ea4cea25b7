#pragma once

#include <gio/gio.h>

#include <memory>
#include <utility>

#include "base/system/ReleaseWith.h"

namespace glintmark::platform {

/// Owns one reference of a GObject.
template <typename T>
using GObjectHandle = std::unique_ptr<T, ReleaseWith<g_object_unref>>;

using GVariantHandle = std::unique_ptr<GVariant, ReleaseWith<g_variant_unref>>;
using GErrorHandle = std::unique_ptr<GError, ReleaseWith<g_error_free>>;
using GStringHandle = std::unique_ptr<gchar, ReleaseWith<g_free>>;
using GMainContextHandle = std::unique_ptr<GMainContext, ReleaseWith<g_main_context_unref>>;
using GMainLoopHandle = std::unique_ptr<GMainLoop, ReleaseWith<g_main_loop_unref>>;
using GBytesHandle = std::unique_ptr<GBytes, ReleaseWith<g_bytes_unref>>;
using GStrvHandle = std::unique_ptr<gchar*, ReleaseWith<g_strfreev>>;

/// Another reference of `object`.
template <typename T>
GObjectHandle<T> shareGObject(T* object) {
    return GObjectHandle<T>(static_cast<T*>(g_object_ref(object)));
}

/// A source of the default main context, removed when the handle is destroyed. A callback that
/// returns G_SOURCE_REMOVE must call `forget()` first, since GLib then removes the source itself.
class GSourceId {
public:
    GSourceId() = default;
    explicit GSourceId(guint id) : id_(id) {}
    GSourceId(GSourceId&& other) noexcept : id_(std::exchange(other.id_, 0)) {}
    GSourceId& operator=(GSourceId&& other) noexcept {
        if (this != &other) {
            reset();
            id_ = std::exchange(other.id_, 0);
        }
        return *this;
    }
    ~GSourceId() { reset(); }

    explicit operator bool() const { return id_ != 0; }
    void forget() { id_ = 0; }
    void reset() {
        if (id_ != 0) {
            g_source_remove(std::exchange(id_, 0));
        }
    }

private:
    guint id_ = 0;
};

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

/// True for the error of a cancelled operation; false for null.
inline bool isCancelled(const GError* error) {
    return g_error_matches(error, G_IO_ERROR, G_IO_ERROR_CANCELLED) != FALSE;
}

}  // namespace glintmark::platform
