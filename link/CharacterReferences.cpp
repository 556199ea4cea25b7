#include <algorithm>
#include <array>
#include <charconv>
#include <optional>
#include <string_view>
#include <utility>

#include "base/text/TextEncoding.h"
#include "link/PageTitle.h"

namespace glintmark::link {

namespace {

/// The names for U+00A0 to U+00FF, in this order (HTML 4, section 24.2).
constexpr char32_t firstLatinCharacter = 0xA0;
constexpr std::array<std::string_view, 96> latinNames{
    "nbsp",   "iexcl",  "cent",   "pound",  "curren", "yen",    "brvbar", "sect",   "uml",
    "copy",   "ordf",   "laquo",  "not",    "shy",    "reg",    "macr",   "deg",    "plusmn",
    "sup2",   "sup3",   "acute",  "micro",  "para",   "middot", "cedil",  "sup1",   "ordm",
    "raquo",  "frac14", "frac12", "frac34", "iquest", "Agrave", "Aacute", "Acirc",  "Atilde",
    "Auml",   "Aring",  "AElig",  "Ccedil", "Egrave", "Eacute", "Ecirc",  "Euml",   "Igrave",
    "Iacute", "Icirc",  "Iuml",   "ETH",    "Ntilde", "Ograve", "Oacute", "Ocirc",  "Otilde",
    "Ouml",   "times",  "Oslash", "Ugrave", "Uacute", "Ucirc",  "Uuml",   "Yacute", "THORN",
    "szlig",  "agrave", "aacute", "acirc",  "atilde", "auml",   "aring",  "aelig",  "ccedil",
    "egrave", "eacute", "ecirc",  "euml",   "igrave", "iacute", "icirc",  "iuml",   "eth",
    "ntilde", "ograve", "oacute", "ocirc",  "otilde", "ouml",   "divide", "oslash", "ugrave",
    "uacute", "ucirc",  "uuml",   "yacute", "thorn",  "yuml"};

/// The Greek letters from U+0391 and from U+03B1 on. No letter has the place of a capital final
/// sigma.
constexpr char32_t firstCapital = 0x391;
constexpr std::array<std::string_view, 25> capitalNames{
    "Alpha", "Beta",   "Gamma",   "Delta", "Epsilon", "Zeta",    "Eta",  "Theta", "Iota",
    "Kappa", "Lambda", "Mu",      "Nu",    "Xi",      "Omicron", "Pi",   "Rho",   "",
    "Sigma", "Tau",    "Upsilon", "Phi",   "Chi",     "Psi",     "Omega"};
constexpr char32_t firstSmallLetter = 0x3B1;
constexpr std::array<std::string_view, 25> smallNames{
    "alpha", "beta",   "gamma",   "delta", "epsilon", "zeta",    "eta",  "theta", "iota",
    "kappa", "lambda", "mu",      "nu",    "xi",      "omicron", "pi",   "rho",   "sigmaf",
    "sigma", "tau",    "upsilon", "phi",   "chi",     "psi",     "omega"};

/// The other names (HTML 4, sections 24.3 and 24.4), and "apos" of XML.
constexpr std::array<std::pair<std::string_view, char32_t>, 105> otherNames{{
    {"quot", 0x22},     {"amp", 0x26},       {"lt", 0x3C},       {"gt", 0x3E},
    {"apos", 0x27},     {"OElig", 0x152},    {"oelig", 0x153},   {"Scaron", 0x160},
    {"scaron", 0x161},  {"Yuml", 0x178},     {"fnof", 0x192},    {"circ", 0x2C6},
    {"tilde", 0x2DC},   {"thetasym", 0x3D1}, {"upsih", 0x3D2},   {"piv", 0x3D6},
    {"ensp", 0x2002},   {"emsp", 0x2003},    {"thinsp", 0x2009}, {"zwnj", 0x200C},
    {"zwj", 0x200D},    {"lrm", 0x200E},     {"rlm", 0x200F},    {"ndash", 0x2013},
    {"mdash", 0x2014},  {"lsquo", 0x2018},   {"rsquo", 0x2019},  {"sbquo", 0x201A},
    {"ldquo", 0x201C},  {"rdquo", 0x201D},   {"bdquo", 0x201E},  {"dagger", 0x2020},
    {"Dagger", 0x2021}, {"bull", 0x2022},    {"hellip", 0x2026}, {"permil", 0x2030},
    {"prime", 0x2032},  {"Prime", 0x2033},   {"lsaquo", 0x2039}, {"rsaquo", 0x203A},
    {"oline", 0x203E},  {"frasl", 0x2044},   {"euro", 0x20AC},   {"image", 0x2111},
    {"weierp", 0x2118}, {"real", 0x211C},    {"trade", 0x2122},  {"alefsym", 0x2135},
    {"larr", 0x2190},   {"uarr", 0x2191},    {"rarr", 0x2192},   {"darr", 0x2193},
    {"harr", 0x2194},   {"crarr", 0x21B5},   {"lArr", 0x21D0},   {"uArr", 0x21D1},
    {"rArr", 0x21D2},   {"dArr", 0x21D3},    {"hArr", 0x21D4},   {"forall", 0x2200},
    {"part", 0x2202},   {"exist", 0x2203},   {"empty", 0x2205},  {"nabla", 0x2207},
    {"isin", 0x2208},   {"notin", 0x2209},   {"ni", 0x220B},     {"prod", 0x220F},
    {"sum", 0x2211},    {"minus", 0x2212},   {"lowast", 0x2217}, {"radic", 0x221A},
    {"prop", 0x221D},   {"infin", 0x221E},   {"ang", 0x2220},    {"and", 0x2227},
    {"or", 0x2228},     {"cap", 0x2229},     {"cup", 0x222A},    {"int", 0x222B},
    {"there4", 0x2234}, {"sim", 0x223C},     {"cong", 0x2245},   {"asymp", 0x2248},
    {"ne", 0x2260},     {"equiv", 0x2261},   {"le", 0x2264},     {"ge", 0x2265},
    {"sub", 0x2282},    {"sup", 0x2283},     {"nsub", 0x2284},   {"sube", 0x2286},
    {"supe", 0x2287},   {"oplus", 0x2295},   {"otimes", 0x2297}, {"perp", 0x22A5},
    {"sdot", 0x22C5},   {"lceil", 0x2308},   {"rceil", 0x2309},  {"lfloor", 0x230A},
    {"rfloor", 0x230B}, {"loz", 0x25CA},     {"spades", 0x2660}, {"clubs", 0x2663},
    {"hearts", 0x2665},
}};

constexpr char32_t replacementCharacter = 0xFFFD;

/// What numbers 0x80 to 0x9F mean: the characters of windows-1252 (HTML standard, 13.2.5.80).
constexpr char32_t firstOfWindows = 0x80;
constexpr std::array<char32_t, 32> windowsCharacters{
    0x20AC, 0x81,   0x201A, 0x192,  0x201E, 0x2026, 0x2020, 0x2021, 0x2C6,  0x2030, 0x160,
    0x2039, 0x152,  0x8D,   0x17D,  0x8F,   0x90,   0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x2DC,  0x2122, 0x161,  0x203A, 0x153,  0x9D,   0x17E,  0x178};

template <typename Names>
std::optional<char32_t> inOrder(const Names& names, char32_t first, std::string_view name) {
    const auto found = std::ranges::find(names, name);
    return found == names.end()
               ? std::nullopt
               : std::optional(first + static_cast<char32_t>(found - names.begin()));
}

std::optional<char32_t> named(std::string_view name) {
    if (name.empty()) {
        return std::nullopt;
    }
    const auto* const other =
        std::ranges::find(otherNames, name, &std::pair<std::string_view, char32_t>::first);
    if (other != otherNames.end()) {
        return other->second;
    }
    if (const auto latin = inOrder(latinNames, firstLatinCharacter, name)) {
        return latin;
    }
    const auto capital = inOrder(capitalNames, firstCapital, name);
    return capital ? capital : inOrder(smallNames, firstSmallLetter, name);
}

/// `digits` as in "#39" or "#x27", without the "#". Absent if it is no number.
std::optional<char32_t> numbered(std::string_view digits) {
    constexpr int decimal = 10;
    constexpr int hexadecimal = 16;
    constexpr char32_t maximumCharacter = 0x10FFFF;
    const bool isHexadecimal = digits.starts_with('x') || digits.starts_with('X');
    digits.remove_prefix(isHexadecimal ? 1 : 0);
    unsigned long number = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number,
                                              isHexadecimal ? hexadecimal : decimal);
    if (digits.empty() || end != digits.data() + digits.size() ||
        error == std::errc::invalid_argument) {
        return std::nullopt;
    }
    const bool isSurrogate = number >= 0xD800 && number <= 0xDFFF;
    if (error != std::errc() || number == 0 || number > maximumCharacter || isSurrogate) {
        return replacementCharacter;
    }
    const auto character = static_cast<char32_t>(number);
    return character >= firstOfWindows && character - firstOfWindows < windowsCharacters.size()
               ? windowsCharacters.at(character - firstOfWindows)
               : character;
}

}  // namespace

std::string withoutReferences(std::string_view text) {
    constexpr std::size_t maximumReference = 16;  // longer ones are no references
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto semicolon =
            text[i] == '&' ? text.substr(i, maximumReference).find(';') : std::string_view::npos;
        if (semicolon == std::string_view::npos) {
            result += text[i];
            continue;
        }
        const std::string_view name = text.substr(i + 1, semicolon - 1);
        const auto character = name.starts_with('#') ? numbered(name.substr(1)) : named(name);
        if (character) {
            appendUTF8(result, *character);
            i += semicolon;
        } else {
            result += text[i];
        }
    }
    return result;
}

}  // namespace glintmark::link
