#pragma once

#include <chrono>
#include <cstddef>
#include <list>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

#include "platform/URLSession.h"

namespace glintmark::platform {

/// Answers that are used again while they are fresh (RFC 9111), in memory. The least recently used
/// make room for new ones. For one thread.
class HTTPCache {
public:
    using Time = std::chrono::steady_clock::time_point;

    static constexpr std::size_t maximumBytes = std::size_t{8} << 20;         ///< All together.
    static constexpr std::size_t maximumBytesOfOne = std::size_t{512} << 10;  ///< One answer.

    struct Answer {
        int status = 0;
        std::optional<std::string> location{};  ///< Of a redirect.
        std::string body{};                     ///< Decoded.
        std::optional<AddressSpace> space{};    ///< Of the address that answered; absent: reserved.
    };

    /// The fresh answer to `request`; null if there is none. Valid until the next `keep`.
    ///
    /// `request` is all that tells a request from others (section 2): the method is always GET.
    const Answer* find(const std::string& request, Time now);

    /// Does nothing if the answer is too large.
    void keep(std::string request, Answer answer, Time freshUntil);

    std::size_t bytes() const { return bytes_; }

private:
    struct Entry {
        std::size_t bytes() const;

        std::string request;
        Answer answer;
        Time freshUntil;
    };
    using Entries = std::list<Entry>;

    void remove(Entries::iterator entry);

    Entries entries_;  ///< The last used first.
    std::unordered_map<std::string_view, Entries::iterator> byRequest_;
    std::size_t bytes_ = 0;
};

}  // namespace glintmark::platform
