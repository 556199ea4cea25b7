#include <gtest/gtest.h>
#include <uriparser/Uri.h>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/url/URL.h"
#include "base/url/URLSyntax.h"

namespace glintmark {
namespace {

/// A text as an independent implementation of RFC 3986 reads it.
class Reference {
public:
    explicit Reference(const std::string& text) {
        parses_ = uriParseSingleUriExA(&uri_, text.data(), text.data() + text.size(), nullptr) ==
                  URI_SUCCESS;
    }
    ~Reference() {
        if (parses_) {
            uriFreeUriMembersA(&uri_);
        }
    }
    Reference(const Reference&) = delete;
    Reference& operator=(const Reference&) = delete;

    bool parses() const { return parses_; }
    std::optional<std::string> scheme() const { return text(uri_.scheme); }
    std::optional<std::string> host() const { return text(uri_.hostText); }
    std::optional<std::string> query() const { return text(uri_.query); }
    std::optional<std::string> fragment() const { return text(uri_.fragment); }

    /// `this` resolved against `base`, which must have a scheme and an authority.
    std::optional<std::string> resolved(const Reference& base) const {
        UriUriA target;
        if (uriAddBaseUriA(&target, &uri_, &base.uri_) != URI_SUCCESS) {
            uriFreeUriMembersA(&target);
            return std::nullopt;
        }
        int length = 0;
        uriToStringCharsRequiredA(&target, &length);
        std::string result(static_cast<std::size_t>(length) + 1, '\0');
        uriToStringA(result.data(), &target, length + 1, nullptr);
        result.pop_back();
        uriFreeUriMembersA(&target);
        // The library puts a dot segment before a path that begins with two slashes. The path needs
        // it only without an authority.
        const auto path = result.find_first_of("/?#", std::string_view("http://").size());
        if (path != std::string::npos && result.compare(path, 4, "/.//") == 0) {
            result.erase(path, 2);
        }
        return result;
    }

private:
    static std::optional<std::string> text(const UriTextRangeA& range) {
        return range.first == nullptr ? std::nullopt
                                      : std::optional(std::string(range.first, range.afterLast));
    }

    UriUriA uri_{};
    bool parses_ = false;
};

std::optional<std::string> owned(std::optional<std::string_view> text) {
    return text ? std::optional(std::string(*text)) : std::nullopt;
}

void expectSameParts(const std::string& text) {
    SCOPED_TRACE(text);
    const Reference reference(text);
    const auto parts = splitURL(text);
    ASSERT_EQ(parts.has_value(), reference.parses());
    if (parts) {
        EXPECT_EQ(owned(parts->scheme), reference.scheme());
        EXPECT_EQ(owned(parts->query), reference.query());
        EXPECT_EQ(owned(parts->fragment), reference.fragment());
    }
}

/// Every text of `length` pieces.
template <typename Visit>
void forAllTexts(const std::vector<std::string>& pieces, std::size_t length, const Visit& visit,
                 const std::string& begin = "") {
    if (length == 0) {
        visit(begin);
        return;
    }
    for (const auto& piece : pieces) {
        forAllTexts(pieces, length - 1, visit, begin + piece);
    }
}

TEST(URLSyntaxTest, SplitsAllShortTextsAsAnIndependentParserDoes) {
    const std::vector<std::string> pieces = {"a", "1", ":", "/", "?",   "#", "@",
                                             "[", "]", ".", "%", "%41", "-", " "};
    for (std::size_t length = 0; length <= 4; ++length) {
        forAllTexts(pieces, length, expectSameParts);
        forAllTexts(pieces, length, [](const std::string& text) { expectSameParts("//" + text); });
    }
}

TEST(URLSyntaxTest, SplitsAllBytesAsAnIndependentParserDoes) {
    for (int byte = 0; byte < 256; ++byte) {
        const std::string text(1, static_cast<char>(byte));
        for (const auto* before :
             {"", "a", "a:", "//", "//a@", "//a:", "//[", "/", "?", "#", "%4"}) {
            expectSameParts(before + text);
        }
    }
}

TEST(URLSyntaxTest, ResolvesAsAnIndependentParserDoes) {
    const std::vector<std::string> pieces = {"a", ".", "..", "/", "?q", "#f", ":", "//"};
    for (const std::string base :
         {"http://h", "http://h/", "http://u@h:8/a/b/c?x#y", "http://h/a/../b/./c"}) {
        const Reference referenceBase(base);
        const auto url = URL::parse(base).value();
        const auto compare = [&](const std::string& text) {
            SCOPED_TRACE(testing::Message() << base << " " << text);
            const Reference reference(text);
            // Skips texts with another scheme, whose result may have no authority.
            const auto resolved = URL::parse(text, url);
            if (resolved && resolved->absoluteString().starts_with("http://")) {
                EXPECT_EQ(resolved->absoluteString(), reference.resolved(referenceBase));
            }
        };
        for (std::size_t length = 1; length <= 4; ++length) {
            forAllTexts(pieces, length, compare);
        }
    }
}

}  // namespace
}  // namespace glintmark
