// How long the search for icon links in a page takes, for pages of 10 MB of every kind that is hard
// on a pattern, and what doubling a page costs. Fails when 10 MB take more than a second or
// doubling costs more than 2.2 times.
#include <malloc.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <string>
#include <string_view>

#include "favicon/FaviconFetcher.h"

namespace glintmark {
namespace {

constexpr std::size_t pageBytes = 10'000'000;
constexpr double maximumSeconds = 1.0;
constexpr double maximumRatio = 2.2;
constexpr int repetitions = 7;  // The quickest counts: everything else is the machine's doing.

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
    Kind{"\"<link \" without end", "", "<link ", ""},
    Kind{"\"<link \", one end", "", "<link ", ">"},
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
    Kind{"\"<\" alone", "", "<", ">"},
    Kind{"\">\" alone", "", ">", ""},
    Kind{"\"<link\" alone", "", "<link", ">"},
    Kind{"no ASCII", "<p>", "日本語 ", "<link rel='icon' href='a'>"},
};

double cpuSeconds() {
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

double secondsFor(const std::string& page, const platform::URL& base) {
    const double begin = cpuSeconds();
    const auto entries = FaviconFetcher::extractIconURLs(page, base, 6);
    const double taken = cpuSeconds() - begin;
    if (entries.size() > 6) {
        std::abort();  // Uses the result, so that the search cannot be left out.
    }
    return taken;
}

bool measure(const Kind& kind, const platform::URL& base) {
    const std::string halfPage = filled(kind.begin, kind.filler, kind.end, pageBytes / 2);
    const std::string wholePage = filled(kind.begin, kind.filler, kind.end, pageBytes);
    double half = 1e9;
    double whole = secondsFor(wholePage, base);  // Makes the heap as large as it gets.
    // In turns, so that both meet the machine in the same moods.
    for (int i = 0; i < repetitions; ++i) {
        half = std::min(half, secondsFor(halfPage, base));
        whole = std::min(whole, secondsFor(wholePage, base));
    }
    // Below 20 ms the ratio is that of the clock's noise.
    const double ratio = whole < 0.02 ? 1.0 : whole / half;
    const bool holds = whole <= maximumSeconds && ratio <= maximumRatio;
    std::printf("%-24s %9.1f ms %9.1f ms %8.2f%s\n", kind.name, half * 1e3, whole * 1e3, ratio,
                holds ? "" : "  too slow");
    return holds;
}

/// The system's price for new pages of memory grows with their number and its mood: what the search
/// gives back stays with the process.
void keepMemory() {
    mallopt(M_MMAP_MAX, 0);
    mallopt(M_TRIM_THRESHOLD, std::numeric_limits<int>::max());
}

}  // namespace
}  // namespace glintmark

int main() {
    using namespace glintmark;
    keepMemory();
    const auto base = platform::URL::parse("https://site.example/dir/page.html");
    std::printf("%-24s %12s %12s %8s\n", "page", "5 MB", "10 MB", "ratio");
    bool holds = true;
    for (const Kind& kind : kinds) {
        holds = measure(kind, *base) && holds;
    }
    return holds ? 0 : 1;
}
