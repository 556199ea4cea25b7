// How a transfer takes an answer: its head, its body, and the content coding.

#include <curl/curl.h>

#include <new>
#include <string>
#include <string_view>
#include <utility>

#include "base/text/TextCase.h"
#include "linux/network/CurlRedirect.h"
#include "linux/network/CurlTransfer.h"
#include "linux/network/CurlURLSession.h"

namespace glintmark::platform {

namespace {

/// All heads of one hop together: those of interim answers, of the answer, and the trailers.
constexpr std::size_t maximumHeadBytes = std::size_t{256} << 10;
/// The rest of a short redirect body is read, so that the connection can be reused. For a long body
/// a new connection is cheaper.
constexpr std::size_t maximumRedirectBodyBytes = std::size_t{64} << 10;

}  // namespace

std::optional<std::string> CurlTransfer::location() const {
    curl_header* field = nullptr;
    if (curl_easy_header(hop_->handle.get(), "Location", 0, CURLH_HEADER, -1, &field) !=
        CURLHE_OK) {
        return std::nullopt;
    }
    const std::string_view value(field->value);  // libcurl keeps the line end of an empty one
    const std::size_t end = value.find_last_not_of(" \t\r\n");
    return end == std::string_view::npos ? std::nullopt
                                         : std::optional<std::string>(value.substr(0, end + 1));
}

bool CurlTransfer::takeHeader(std::string_view line) {
    clock_.dataArrived(options_.now());
    hop_->headBytes += line.size();
    if (startsWithIgnoringCase(line, "set-cookie:")) {
        hop_->cookieBytes += line.size();
    }
    const bool headEnds = line == "\r\n" || line == "\n";
    if (headEnds && !hop_->status) {
        noteStatus();
    }
    return hop_->headBytes <= maximumHeadBytes && !(hop_->status && declaresTooMuch());
}

void CurlTransfer::noteStatus() {
    long status = 0;
    curl_easy_getinfo(hop_->handle.get(), CURLINFO_RESPONSE_CODE, &status);
    if (status >= 200) {  // otherwise an interim answer (RFC 9110, section 15.2)
        hop_->status = static_cast<int>(status);
        hop_->isRedirect = isRedirect(status) && location();
        hop_->decoder = ContentDecoder::make(fieldValues("Content-Encoding"));
        noteFreshness();
    }
}

std::size_t CurlTransfer::declaredLength() const {
    curl_off_t length = 0;  // -1 when unknown
    curl_easy_getinfo(hop_->handle.get(), CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &length);
    return static_cast<std::size_t>(std::max<curl_off_t>(length, 0));
}

bool CurlTransfer::declaresTooMuch() const {
    return declaredLength() >
           (hop_->isRedirect ? maximumRedirectBodyBytes : options_.maximumBodyBytes);
}

bool CurlTransfer::takeBody(std::string_view bytes) {
    clock_.dataArrived(options_.now());
    if (hop_->isRedirect) {
        hop_->redirectBodyBytes += bytes.size();
        return hop_->redirectBodyBytes <= maximumRedirectBodyBytes;
    }
    if (hop_->cancelled) {
        return false;
    }
    const std::size_t before = heldBytes();
    const bool fits = hop_->decoder ? append(coded_, bytes) && decode(bytes) : append(body_, bytes);
    if (heldBytes() < before) {  // what was decoded is dropped
        hop_->budget->shrunk(before - heldBytes());
    } else {
        hop_->budget->grown(heldBytes() - before);
    }
    return fits && !hop_->cancelled;
}

bool CurlTransfer::append(std::string& to, std::string_view bytes) const {
    if (bytes.size() > options_.maximumBodyBytes - to.size()) {
        return false;
    }
    try {
        if (to.empty()) {
            to.reserve(declaredLength());
        }
        to.append(bytes);
    } catch (const std::bad_alloc&) {
        return false;
    }
    return true;
}

/// Decodes the next part of a coded body. False if the body is too large.
bool CurlTransfer::decode(std::string_view bytes) {
    try {
        switch (hop_->decoder->decode(bytes, body_, options_.maximumBodyBytes)) {
            case ContentDecoder::Outcome::tooLarge:
                return false;
            case ContentDecoder::Outcome::wrong:
                useBodyAsItCame();
                break;
            case ContentDecoder::Outcome::good:
                break;
        }
    } catch (const std::bad_alloc&) {
        return false;
    }
    return true;
}

void CurlTransfer::useBodyAsItCame() {
    hop_->decoder.reset();
    body_ = std::exchange(coded_, {});
}

/// All fields of that name as one list (RFC 9110, section 5.3).
std::string CurlTransfer::fieldValues(const char* name) const {
    std::string list;
    curl_header* field = nullptr;
    for (std::size_t i = 0;
         curl_easy_header(hop_->handle.get(), name, i, CURLH_HEADER, -1, &field) == CURLHE_OK;
         ++i) {
        list += (list.empty() ? "" : ",") + std::string(field->value);
    }
    std::erase_if(list, [](char c) { return c == '\r' || c == '\n'; });
    return list;
}

std::size_t CurlTransfer::headerArrived(const char* bytes, std::size_t size, std::size_t count,
                                        void* self) {
    const std::string_view line(bytes, size * count);
    return static_cast<CurlTransfer*>(self)->takeHeader(line) ? line.size() : 0;
}

std::size_t CurlTransfer::bodyArrived(const char* bytes, std::size_t size, std::size_t count,
                                      void* self) {
    const std::string_view part(bytes, size * count);
    return static_cast<CurlTransfer*>(self)->takeBody(part) ? part.size() : 0;
}

}  // namespace glintmark::platform
