#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace glintmark {

/// Passes an XML document on to a parser that holds each token as a whole in memory, and reads an
/// unfinished token again with each piece. Makes long tokens that have no meaning into short ones:
/// a comment becomes several comments, blanks before the first element get comments between them.
/// Other tokens, apart from texts, have a maximum length.
///
/// Knows only what begins and ends a token (XML 1.0, sections 2.4 to 2.8), in any encoding whose
/// markup is ASCII. What is not well-formed stays so.
class XMLSplitter {
public:
    /// Takes the next bytes of the document and passes them on in parts. False if `pass` returned
    /// false or a token is too long.
    bool split(std::string_view bytes, const std::function<bool(std::string_view part)>& pass);

private:
    enum class Place { text, reference, opening, markup, comment, unparsed, instruction };

    void step(char byte);
    void stepInOpening(char byte);
    void enter(Place place);
    std::string_view breakBefore(char byte) const;

    Place place_ = Place::text;
    std::string opening_;  ///< "<" and what follows, until the kind of markup is known.
    char quote_ = 0;       ///< In markup: the open quote; 0 outside a quoted value.
    char last_ = 0;        ///< The two bytes before, of the same token.
    char beforeLast_ = 0;
    std::size_t tokenBytes_ = 0;  ///< Since the token began, or since it was last broken.
    bool hasElement_ = false;
};

}  // namespace glintmark
