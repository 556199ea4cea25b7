// The time to search a page for icon links, for every kind of page that is hard for a pattern or a
// parser, and the time that parsers take that read the whole page into a tree. Fails if 10 MB take
// more than a second, or if a page of twice the size takes more than 2.2 times as long.
#include <gumbo.h>
#include <libxml/HTMLparser.h>
#include <malloc.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdlib>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include "bench/Figures.h"
#include "favicon/FaviconFetcher.h"

namespace glintmark {
namespace {

constexpr std::size_t hugePage = 10'000'000;
constexpr double maximumMilliseconds = 1000;
constexpr double maximumRatio = 2.2;
constexpr int repetitions = 7;              // The quickest counts: the others were disturbed.
constexpr int comparisons = 15;             // of a page with its half. Their median counts.
constexpr rlim_t patience = 10;             // seconds for a peer
constexpr rlim_t peerMemory = 4ULL << 30U;  // bytes

std::string filled(std::string_view begin, std::string_view filler, std::string_view end,
                   std::size_t bytes) {
    std::string page(begin);
    page.reserve(bytes + filler.size() + end.size());
    while (page.size() + end.size() < bytes) {
        page += filler;
    }
    return page.append(end);
}

struct Kind {
    const char* name;
    std::string_view begin;
    std::string_view filler;
    std::string_view end;
};

constexpr std::array kinds{
    Kind{"ordinary markup", "<html>",
         "<div class=\"a b\"><p>Some text, <b>bold</b>.</p><a href=\"/x?y=1\">x</a></div>\n"
         "<link rel=\"stylesheet\" href=\"/a.css\"><img src=\"i.png\" alt=\"\">\n",
         "</html>"},
    Kind{"<link without end", "", "<link ", ""},
    Kind{"<link, one end", "", "<link ", ">"},
    Kind{"blanks", "", " ", ""},
    Kind{"blanks in a tag", "<link", " ", "rel='icon' href='a'>"},
    Kind{"a million links", "", "<link >\n\n\n", ""},
    Kind{"icon links", "", "<link rel=\"icon\" href=\"a\">", ""},
    Kind{"touch icon links", "", "<link rel=\"apple-touch-icon\" sizes=\"9x9\" href=\"/a\">", ""},
    Kind{"one giant tag", "<link rel='icon' ", "data-a='b' ", "href='a'>"},
    Kind{"giant address", "<link rel='icon' href='", "a", "'>"},
    Kind{"giant rel value", "<link rel='shortcut", " ", "icon' href='a'>"},
    Kind{"giant size", "<link rel='icon' href='a' sizes='", "1", "x1'>"},
    Kind{"rel again and again", "<link ", "rel ", ">"},
    Kind{"rel and blanks", "<link rel", " ", ">"},
    Kind{"open values", "<link rel='icon' ", "href=\"", ">"},
    Kind{"href without value", "<link rel='icon' ", "href=", ">"},
    Kind{"< alone", "", "<", ">"},
    Kind{"> alone", "", ">", ""},
    Kind{"<link alone", "", "<link", ">"},
    Kind{"no ASCII", "<p>", "日本語 ", "<link rel='icon' href='a'>"},
};

using Search = std::size_t (*)(const std::string& page);

std::size_t searchOwn(const std::string& page) {
    static const auto base = URL::parse("https://site.example/dir/page.html");
    return FaviconFetcher::extractIconURLs(page, *base, 6).size();
}

bool isIcon(const char* rel, const char* href) {
    return rel != nullptr && href != nullptr && std::string_view(rel).ends_with("icon");
}

const char* gumboValue(const GumboNode& node, const char* name) {
    const GumboAttribute* const attribute = gumbo_get_attribute(&node.v.element.attributes, name);
    return attribute != nullptr ? attribute->value : nullptr;
}

std::size_t searchWithGumbo(const std::string& page) {
    GumboOutput* const output =
        gumbo_parse_with_options(&kGumboDefaultOptions, page.data(), page.size());
    std::size_t found = 0;
    // Not recursive: a page may nest deeper than the stack.
    std::vector<const GumboNode*> left = {output->root};
    while (!left.empty()) {
        const GumboNode* const node = left.back();
        left.pop_back();
        if (node->type != GUMBO_NODE_ELEMENT) {
            continue;
        }
        const auto& element = node->v.element;
        found += element.tag == GUMBO_TAG_LINK &&
                         isIcon(gumboValue(*node, "rel"), gumboValue(*node, "href"))
                     ? 1U
                     : 0U;
        for (unsigned i = 0; i < element.children.length; ++i) {
            left.push_back(static_cast<const GumboNode*>(element.children.data[i]));
        }
    }
    gumbo_destroy_output(&kGumboDefaultOptions, output);
    return found;
}

const xmlChar* xml(const char* text) { return reinterpret_cast<const xmlChar*>(text); }

bool isIconLink(xmlNode& node) {
    if (node.type != XML_ELEMENT_NODE || xmlStrcmp(node.name, xml("link")) != 0) {
        return false;
    }
    xmlChar* const rel = xmlGetProp(&node, xml("rel"));
    xmlChar* const href = xmlGetProp(&node, xml("href"));
    const bool found =
        isIcon(reinterpret_cast<const char*>(rel), reinterpret_cast<const char*>(href));
    xmlFree(rel);
    xmlFree(href);
    return found;
}

std::size_t searchWithLibxml2(const std::string& page) {
    htmlDocPtr document =
        htmlReadMemory(page.data(), static_cast<int>(page.size()), nullptr, "UTF-8",
                       HTML_PARSE_RECOVER | HTML_PARSE_NOERROR | HTML_PARSE_NOWARNING |
                           HTML_PARSE_NONET | XML_PARSE_HUGE);
    std::size_t found = 0;
    xmlNode* node = document != nullptr ? xmlDocGetRootElement(document) : nullptr;
    while (node != nullptr) {
        found += isIconLink(*node) ? 1U : 0U;
        xmlNode* next = node->children;
        while (node != nullptr && next == nullptr) {
            next = node->next;
            node = next != nullptr ? next : node->parent;
        }
        node = next;
    }
    xmlFreeDoc(document);
    return found;
}

struct Peer {
    const char* name;
    Search search;
};

constexpr std::array peers{Peer{"gumbo", searchWithGumbo}, Peer{"libxml2", searchWithLibxml2}};

double timeOf(Search search, const std::string& page) {
    const auto begin = bench::processorTime();
    volatile std::size_t found = search(page);  // so that the compiler keeps the search
    static_cast<void>(found);
    return (bench::processorTime() - begin).count();
}

double minimumTimeOf(Search search, const std::string& page, int times) {
    double minimum = timeOf(search, page);
    for (int i = 1; i < times; ++i) {
        minimum = std::min(minimum, timeOf(search, page));
    }
    return minimum;
}

/// Runs the peer in a child process, because some pages make it crash or exceed its limits.
/// Negative if that happens.
double timeOfPeer(Search search, const std::string& page, int times) {
    std::array<int, 2> ends{};
    if (::pipe(ends.data()) != 0) {
        std::abort();
    }
    const pid_t child = ::fork();
    if (child == 0) {
        const rlimit memory{peerMemory, peerMemory};
        const rlimit none{0, 0};
        ::alarm(patience);
        ::setrlimit(RLIMIT_AS, &memory);
        ::setrlimit(RLIMIT_CORE, &none);
        const double taken = minimumTimeOf(search, page, times);
        ::_exit(::write(ends[1], &taken, sizeof taken) == ssize_t{sizeof taken} ? 0 : 1);
    }
    ::close(ends[1]);
    double taken = -1;
    if (::read(ends[0], &taken, sizeof taken) != ssize_t{sizeof taken}) {
        taken = -1;
    }
    ::close(ends[0]);
    ::waitpid(child, nullptr, 0);
    return taken;
}

void comparePeers(const Kind& kind, const std::string& page, const std::string& what, int times,
                  bench::Figures& figures) {
    for (const Peer& peer : peers) {
        const double taken = timeOfPeer(peer.search, page, times);
        // A search that did not finish is recorded with the time limit.
        figures.add({.what = what,
                     .value = taken < 0 ? patience * 1e3 : taken,
                     .unit = "ms",
                     .of = peer.name,
                     .at = kind.name});
    }
}

void measureSize(const Kind& kind, std::size_t bytes, const char* what, int times,
                 bench::Figures& figures) {
    const std::string page = filled(kind.begin, kind.filler, kind.end, bytes);
    figures.add({.what = what,
                 .value = minimumTimeOf(searchOwn, page, times),
                 .unit = "ms",
                 .at = kind.name});
    comparePeers(kind, page, what, times, figures);
}

void measureHuge(const Kind& kind, bench::Figures& figures) {
    const std::string halfPage = filled(kind.begin, kind.filler, kind.end, hugePage / 2);
    const std::string wholePage = filled(kind.begin, kind.filler, kind.end, hugePage);
    double minimum = timeOf(searchOwn, wholePage);  // grows the heap to its final size
    // At times the machine takes twice as long for everything, so each run is compared only with
    // the runs before and after it.
    std::vector<double> ratios;
    double before = timeOf(searchOwn, halfPage);
    for (int i = 0; i < comparisons; ++i) {
        const double whole = timeOf(searchOwn, wholePage);
        const double after = timeOf(searchOwn, halfPage);
        minimum = std::min(minimum, whole);
        ratios.push_back(2 * whole / (before + after));
        before = after;
    }
    const char* const what = "10 MB";
    figures.add({.what = what,
                 .value = minimum,
                 .unit = "ms",
                 .maximum = maximumMilliseconds,
                 .at = kind.name});
    comparePeers(kind, wholePage, what, 1, figures);
    // Below 20 ms the noise of the clock decides the ratio.
    figures.add({.what = "10 MB, times 5 MB",
                 .value = minimum < 20 ? 1.0 : bench::median(ratios),
                 .maximum = maximumRatio,
                 .at = kind.name});
}

/// Keeps freed memory in the process: the system's time for new pages of memory varies.
void keepMemory() {
    mallopt(M_MMAP_MAX, 0);
    mallopt(M_TRIM_THRESHOLD, std::numeric_limits<int>::max());
}

}  // namespace
}  // namespace glintmark

int main(int argc, char** argv) {
    using namespace glintmark;
    const bench::Options options(argc, argv);
    const int times = options.smoke ? 1 : repetitions;
    keepMemory();
    bench::Figures figures;
    for (const Kind& kind : kinds) {
        measureSize(kind, 100'000, "100 kB", times, figures);
        if (options.smoke) {
            continue;
        }
        measureSize(kind, 1'000'000, "1 MB", times, figures);
        measureHuge(kind, figures);
    }
    return figures.finish(options);
}
