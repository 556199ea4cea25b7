#pragma once

#include <gio/gio.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <span>
#include <utility>

#include "linux/glib/GLibHandles.h"

namespace glintmark::fuzz {

using platform::GBytesHandle;
using platform::GObjectHandle;
using platform::GStringHandle;
using platform::GVariantHandle;

/// Makes each warning of GLib end the run: it reports a mistake of the program.
inline void endOnWarnings() {
    g_log_set_always_fatal(
        static_cast<GLogLevelFlags>(G_LOG_LEVEL_CRITICAL | G_LOG_LEVEL_WARNING | G_LOG_FATAL_MASK));
}

/// Cuts the fuzzer's input into numbers and values of D-Bus.
class Pieces {
public:
    explicit Pieces(std::span<const std::uint8_t> bytes) : rest_(bytes) {}

    bool atEnd() const { return rest_.empty(); }

    std::uint8_t number() {
        if (rest_.empty()) {
            return 0;
        }
        const auto first = rest_.front();
        rest_ = rest_.subspan(1);
        return first;
    }

    /// A tuple of the type, or sometimes of another type: anything that a peer may send. The input
    /// is read as serialised GVariant data; GLib replaces what is malformed by default values.
    GVariantHandle tuple(const char* type) {
        constexpr std::array otherTypes{"()",      "(s)",   "(ai)", "(v)",
                                        "(a{sv})", "(uas)", "(ii)", "(o)"};
        constexpr unsigned timesOutOf = 16;
        const unsigned choice = number();
        const bool isOther = choice % timesOutOf == 0;
        auto value =
            normalValue(isOther ? otherTypes.at(choice / timesOutOf % otherTypes.size()) : type);
        return canBeSent(value.get()) ? std::move(value) : normalValue("()");
    }

private:
    GVariantHandle normalValue(const char* type) {
        const auto bytes = take(number());
        const GBytesHandle owner(g_bytes_new(bytes.data(), bytes.size()));
        const GVariantHandle value(
            g_variant_ref_sink(g_variant_new_from_bytes(G_VARIANT_TYPE(type), owner.get(), FALSE)));
        return GVariantHandle(g_variant_get_normal_form(value.get()));
    }

    /// D-Bus has neither empty tuples inside other values nor maybe types.
    static bool canBeSent(GVariant* tuple) {
        const GObjectHandle<GDBusMessage> message(
            g_dbus_message_new_method_call(nullptr, "/", nullptr, "Any"));
        g_dbus_message_set_body(message.get(), tuple);
        gsize size = 0;
        const GStringHandle blob(reinterpret_cast<gchar*>(
            g_dbus_message_to_blob(message.get(), &size, G_DBUS_CAPABILITY_FLAGS_NONE, nullptr)));
        return blob != nullptr;
    }

    std::span<const std::uint8_t> take(std::size_t most) {
        const auto piece = rest_.first(std::min(most, rest_.size()));
        rest_ = rest_.subspan(piece.size());
        return piece;
    }

    std::span<const std::uint8_t> rest_;
};

}  // namespace glintmark::fuzz
