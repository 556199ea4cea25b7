// How a transfer uses the cache: what it keeps there, and what it takes from there.

#include <algorithm>
#include <array>
#include <chrono>
#include <utility>

#include "base/text/TextCase.h"
#include "linux/network/CurlRedirect.h"
#include "linux/network/CurlTaskGroup.h"
#include "linux/network/CurlTransfer.h"
#include "linux/network/HTTPCacheFields.h"

namespace glintmark::platform {

namespace {

/// Equal requests go themselves if an answer has not begun within this time.
constexpr std::chrono::seconds maximumWait{1};

/// True for header fields of a request whose answer is for one user, a part of something, or not to
/// come from a cache (RFC 9111, sections 3.5, 4, 5.2.1).
bool excludesSharing(const std::pair<std::string, std::string>& field) {
    static constexpr std::array names{"authorization", "cookie", "cache-control", "pragma",
                                      "range"};
    const std::string name = lowercasedASCII(field.first);
    return std::ranges::find(names, name) != names.end() || name.starts_with("if-");
}

}  // namespace

/// The link's host, the address, and the header fields that Vary can name (RFC 9111, sections 2 and
/// 4.1). A request has no others, but cookies.
std::string CurlTransfer::describeRequest() const {
    if (group_->host().empty() || addressCredentials(url_) ||
        std::ranges::any_of(headers_, excludesSharing)) {
        return "";
    }
    std::string text = group_->host() + '\n' + url_.substr(0, url_.find('#'));
    for (const auto& [name, value] : headers_) {
        text.append("\n").append(name).append(":").append(value);
    }
    return text;
}

bool CurlTransfer::maySendCookies() const { return group_->mayHaveCookiesFor(host_); }

bool CurlTransfer::mayUse(const HTTPCache::Answer& answer) const {
    return allowsConnection(answer.space) && !maySendCookies();
}

bool CurlTransfer::endHopWith(const HTTPCache::Answer& answer) {
    result_.addressSpace = answer.space.value_or(AddressSpace::everyone);
    if (answer.location) {
        namedFrom_ = result_.addressSpace;
        return follow(*answer.location);
    }
    result_.response = URLResponse{answer.status};
    result_.body = answer.body;
    return false;
}

bool CurlTransfer::isTooLargeToShare() const {
    return std::max(declaredLength(), body_.size()) > HTTPCache::maximumBytesOfOne;
}

TransferClock::Time CurlTransfer::sharedUntil() const {
    if (!hop_) {
        return TransferClock::Time::max();
    }
    if (!hop_->status) {
        return hop_->begunAt + maximumWait;
    }
    return hop_->freshFor && !isTooLargeToShare() ? TransferClock::Time::max()
                                                  : TransferClock::Time::min();
}

/// Call when the whole head has arrived.
void CurlTransfer::noteFreshness() {
    // RFC 9111, section 7.3: Set-Cookie alone does not forbid it, but cookies belong to one link.
    if (sharedRequest_.empty() || hop_->maySendCookies || hop_->cookieBytes > 0) {
        return;
    }
    hop_->freshFor = freshnessOfAnswer(
        *hop_->status, {fieldValues("Cache-Control"), fieldValues("Expires"), fieldValues("Date"),
                        fieldValues("Age"), fieldValues("Vary")});
}

/// Keeps only whole answers (RFC 9111, section 3.3). `location`: of a redirect.
void CurlTransfer::noteAnswerToKeep(CURLcode outcome, const std::optional<std::string>& location) {
    if (outcome != CURLE_OK || hop_->cancelled || !hop_->freshFor || isTooLargeToShare()) {
        return;
    }
    // Section 4.2.3: the time on the way counts as the answer's age.
    kept_.emplace(HTTPCache::Answer{*hop_->status, location, body_, hop_->space},
                  hop_->begunAt + *hop_->freshFor);
}

void CurlTransfer::keepAnswer(HTTPCache& cache) {
    if (kept_) {
        cache.keep(sharedRequest_, std::move(kept_->first), kept_->second);
        kept_.reset();
    }
}

}  // namespace glintmark::platform
