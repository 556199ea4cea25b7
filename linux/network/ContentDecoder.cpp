#include "linux/network/ContentDecoder.h"

#include <brotli/decode.h>
#include <dlfcn.h>
#include <zlib.h>
#include <zstd.h>

#include <algorithm>
#include <array>
#include <cstdint>

#include "base/text/TextCase.h"

namespace glintmark::platform {

namespace {

using Outcome = ContentDecoder::Outcome;
using Buffer = std::array<char, std::size_t{16} << 10>;

constexpr std::size_t maximumSteps = 4;

bool append(std::string& result, const Buffer& buffer, std::size_t count, std::size_t maximum) {
    if (count > maximum - std::min(result.size(), maximum)) {
        return false;
    }
    result.append(buffer.data(), count);
    return true;
}

/// "gzip" (RFC 1952), and "deflate" with the header of zlib (RFC 1950) or, as some servers send it,
/// without (RFC 1951).
class Inflate final : public ContentDecoder::Step {
public:
    explicit Inflate(bool isGzip) : isGzip_(isGzip) {}
    ~Inflate() override {
        if (begun_) {
            ::inflateEnd(&stream_);
        }
    }
    Inflate(const Inflate&) = delete;
    Inflate& operator=(const Inflate&) = delete;

    Outcome decode(std::string_view bytes, std::string& result, std::size_t maximum) override {
        std::string withHead;
        if (!begun_) {
            constexpr std::size_t headBytes = 2;
            head_ += bytes;
            if (head_.size() < headBytes) {
                return Outcome::good;
            }
            withHead = std::move(head_);
            bytes = withHead;
            begun_ = ::inflateInit2(&stream_, windowBits(bytes)) == Z_OK;
        }
        stream_.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
        stream_.avail_in = static_cast<uInt>(bytes.size());
        Buffer buffer;
        while (begun_ && !ended_) {
            stream_.next_out = reinterpret_cast<Bytef*>(buffer.data());
            stream_.avail_out = buffer.size();
            const int outcome = ::inflate(&stream_, Z_NO_FLUSH);
            if (!append(result, buffer, buffer.size() - stream_.avail_out, maximum)) {
                return Outcome::tooLarge;
            }
            ended_ = outcome == Z_STREAM_END;
            if (outcome == Z_BUF_ERROR || (outcome == Z_OK && stream_.avail_out != 0)) {
                return Outcome::good;  // all input is used
            }
            if (outcome != Z_OK && !ended_) {
                return Outcome::wrong;
            }
        }
        return begun_ ? Outcome::good : Outcome::wrong;
    }

private:
    int windowBits(std::string_view head) const {
        constexpr int gzip = 16;
        const auto first = static_cast<unsigned char>(head[0]);
        const auto second = static_cast<unsigned char>(head[1]);
        const bool hasZlibHeader = (first & 0x0F) == Z_DEFLATED && (first << 8 | second) % 31 == 0;
        return isGzip_ ? MAX_WBITS + gzip : hasZlibHeader ? MAX_WBITS : -MAX_WBITS;
    }

    bool isGzip_;
    bool begun_ = false;
    bool ended_ = false;
    std::string head_;
    z_stream stream_{};
};

/// A function of a library that libcurl has loaded anyway; null if it is missing.
template <typename Function>
Function loaded(const char* library, const char* name) {
    void* const handle = ::dlopen(library, RTLD_LAZY | RTLD_LOCAL);
    return reinterpret_cast<Function>(handle == nullptr ? nullptr : ::dlsym(handle, name));
}

struct BrotliLibrary {
    static constexpr const char* name = "libbrotlidec.so.1";
    decltype(&BrotliDecoderCreateInstance) create =
        loaded<decltype(&BrotliDecoderCreateInstance)>(name, "BrotliDecoderCreateInstance");
    decltype(&BrotliDecoderDestroyInstance) destroy =
        loaded<decltype(&BrotliDecoderDestroyInstance)>(name, "BrotliDecoderDestroyInstance");
    decltype(&BrotliDecoderDecompressStream) decode =
        loaded<decltype(&BrotliDecoderDecompressStream)>(name, "BrotliDecoderDecompressStream");

    bool isThere() const { return create != nullptr && destroy != nullptr && decode != nullptr; }
    static const BrotliLibrary& get() {
        static const BrotliLibrary library;
        return library;
    }
};

/// "br" (RFC 7932).
class Brotli final : public ContentDecoder::Step {
public:
    ~Brotli() override { BrotliLibrary::get().destroy(state_); }
    Brotli() = default;
    Brotli(const Brotli&) = delete;
    Brotli& operator=(const Brotli&) = delete;

    Outcome decode(std::string_view bytes, std::string& result, std::size_t maximum) override {
        const auto* next = reinterpret_cast<const std::uint8_t*>(bytes.data());
        std::size_t left = bytes.size();
        Buffer buffer;
        auto status = BROTLI_DECODER_RESULT_NEEDS_MORE_OUTPUT;
        while (!ended_ && status == BROTLI_DECODER_RESULT_NEEDS_MORE_OUTPUT) {
            auto* out = reinterpret_cast<std::uint8_t*>(buffer.data());
            std::size_t space = buffer.size();
            status = BrotliLibrary::get().decode(state_, &left, &next, &space, &out, nullptr);
            if (!append(result, buffer, buffer.size() - space, maximum)) {
                return Outcome::tooLarge;
            }
            ended_ = status == BROTLI_DECODER_RESULT_SUCCESS;
        }
        return status == BROTLI_DECODER_RESULT_ERROR ? Outcome::wrong : Outcome::good;
    }

private:
    bool ended_ = false;
    BrotliDecoderState* state_ = BrotliLibrary::get().create(nullptr, nullptr, nullptr);
};

struct ZstandardLibrary {
    static constexpr const char* name = "libzstd.so.1";
    decltype(&ZSTD_createDStream) create =
        loaded<decltype(&ZSTD_createDStream)>(name, "ZSTD_createDStream");
    decltype(&ZSTD_freeDStream) destroy =
        loaded<decltype(&ZSTD_freeDStream)>(name, "ZSTD_freeDStream");
    decltype(&ZSTD_DCtx_setParameter) set =
        loaded<decltype(&ZSTD_DCtx_setParameter)>(name, "ZSTD_DCtx_setParameter");
    decltype(&ZSTD_decompressStream) decode =
        loaded<decltype(&ZSTD_decompressStream)>(name, "ZSTD_decompressStream");
    decltype(&ZSTD_isError) isError = loaded<decltype(&ZSTD_isError)>(name, "ZSTD_isError");

    bool isThere() const {
        return create != nullptr && destroy != nullptr && set != nullptr && decode != nullptr &&
               isError != nullptr;
    }
    static const ZstandardLibrary& get() {
        static const ZstandardLibrary library;
        return library;
    }
};

/// "zstd" (RFC 8878).
class Zstandard final : public ContentDecoder::Step {
public:
    Zstandard() {
        constexpr int maximumWindowLog = 23;  // 8 MiB (RFC 9659, section 3)
        ZstandardLibrary::get().set(state_, ZSTD_d_windowLogMax, maximumWindowLog);
    }
    ~Zstandard() override { ZstandardLibrary::get().destroy(state_); }
    Zstandard(const Zstandard&) = delete;
    Zstandard& operator=(const Zstandard&) = delete;

    Outcome decode(std::string_view bytes, std::string& result, std::size_t maximum) override {
        ZSTD_inBuffer in{bytes.data(), bytes.size(), 0};
        Buffer buffer;
        bool isFull = true;
        while (!ended_ && (isFull || in.pos < in.size)) {
            ZSTD_outBuffer out{buffer.data(), buffer.size(), 0};
            const std::size_t left = ZstandardLibrary::get().decode(state_, &out, &in);
            if (ZstandardLibrary::get().isError(left) != 0) {
                return Outcome::wrong;
            }
            if (!append(result, buffer, out.pos, maximum)) {
                return Outcome::tooLarge;
            }
            ended_ = left == 0;
            isFull = out.pos == out.size;
        }
        return Outcome::good;
    }

private:
    bool ended_ = false;
    ZSTD_DStream* state_ = ZstandardLibrary::get().create();
};

std::unique_ptr<ContentDecoder::Step> stepFor(std::string_view coding) {
    if (coding == "gzip" || coding == "x-gzip") {
        return std::make_unique<Inflate>(true);
    }
    if (coding == "deflate") {
        return std::make_unique<Inflate>(false);
    }
    if (coding == "br" && BrotliLibrary::get().isThere()) {
        return std::make_unique<Brotli>();
    }
    if (coding == "zstd" && ZstandardLibrary::get().isThere()) {
        return std::make_unique<Zstandard>();
    }
    return nullptr;
}

}  // namespace

std::unique_ptr<ContentDecoder> ContentDecoder::make(std::string_view codings) {
    constexpr std::string_view blanks = " \t";
    if (codings.empty()) {
        return nullptr;  // as for most answers
    }
    auto decoder = std::make_unique<ContentDecoder>();
    while (!codings.empty()) {
        std::string_view name = codings.substr(0, codings.find(','));
        codings.remove_prefix(std::min(name.size() + 1, codings.size()));
        name.remove_prefix(std::min(name.find_first_not_of(blanks), name.size()));
        name = name.substr(0, name.find_last_not_of(blanks) + 1);
        const std::string coding = lowercasedASCII(std::string(name));
        if (coding.empty() || coding == "identity") {
            continue;
        }
        auto step = stepFor(coding);
        if (!step || decoder->steps_.size() == maximumSteps) {
            return nullptr;
        }
        decoder->steps_.insert(decoder->steps_.begin(), std::move(step));
    }
    return decoder->steps_.empty() ? nullptr : std::move(decoder);
}

Outcome ContentDecoder::decode(std::string_view bytes, std::string& result, std::size_t maximum) {
    std::string input;
    for (std::size_t i = 0; i + 1 < steps_.size(); ++i) {
        std::string output;
        const Outcome outcome = steps_[i]->decode(bytes, output, maximum);
        if (outcome != Outcome::good) {
            return outcome;
        }
        input = std::move(output);
        bytes = input;
    }
    return steps_.back()->decode(bytes, result, maximum);
}

}  // namespace glintmark::platform
