// The time and memory that reading one large link file takes: a process reads its address and ends.
// Fails if it takes more than 3 s of processor time or 200 MB.
//
// LinkFileBench [--json FILE] [--smoke] [MEGABYTES [FOLDER]]: how large each file is (100), and
// where to make it ($TMPDIR).

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "bench/Figures.h"
#include "bench/TemporaryFolder.h"
#include "linux/files/PosixFileManager.h"
#include "tests/doubles/TestPlatform.h"
#include "webloc/WeblocParser.h"

namespace glintmark {
namespace {

constexpr double maximumMilliseconds = 3000;
constexpr double maximumMegabytes = 200;
constexpr double megabyte = 1e6;

constexpr const char* address = "https://site.example/";

/// A link file: `part` again and again between `begin` and `end`.
struct Kind {
    const char* name;
    std::string begin;
    std::string part;
    std::string end;
};

std::string inUTF16(const std::string& text) {
    std::string bytes;
    for (const char c : text) {
        bytes += {c, '\0'};
    }
    return bytes;
}

std::vector<Kind> kinds() {
    const std::string head = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
    const std::string latinHead = "<?xml version=\"1.0\" encoding=\"windows-1252\"?>\n";
    const std::string entry =
        "<key>URL</key><string>" + std::string(address) + "</string></dict></plist>\n";
    const std::string open = "<plist version=\"1.0\"><dict>";
    return {
        {"one comment", head + open + "<!--", "a comment ", "-->" + entry},
        {"blanks before the root", head, "\r\n\t  ", open + entry},
        {"blanks in the root", head + open, "\n", entry},
        {"ignored keys", head + open, "<key>an ignored key</key><string>its value</string>", entry},
        {"ignored arrays", head + open + "<key>a</key><array>", "<array/>", "</array>" + entry},
        {"one ignored string", head + open + "<key>a</key><string>", "a text ",
         "</string>" + entry},
        {"ignored data", head + open + "<key>a</key><data>", "AAAAAAAAAAAAAAAA\n",
         "</data>" + entry},
        {"an ignored text of references", head + open + "<key>a</key><string>", "&amp;",
         "</string>" + entry},
        {"a decoded text", latinHead + open + "<key>a</key><string>", "caf\xE9 ",
         "</string>" + entry},
        {"UTF-16", "\xFF\xFE" + inUTF16(open + "<key>a</key><string>"), inUTF16("a text "),
         inUTF16("</string>" + entry)},
        {"old text form, ignored keys", "{", "key = \"value\"; ",
         "URL = \"" + std::string(address) + "\"; }"},
        {"old text form, ignored string", "{ a = \"", "a text ",
         "\"; URL = \"" + std::string(address) + "\"; }"},
        {"old text form, blanks", "{", "  \n", "URL = \"" + std::string(address) + "\"; }"},
    };
}

std::string bigEndian(std::size_t number, std::size_t size) {
    std::string bytes(size, '\0');
    for (std::size_t i = size; i-- > 0; number >>= 8U) {
        bytes[i] = static_cast<char>(number & 0xFFU);
    }
    return bytes;
}

void write(const std::string& path, const Kind& kind, std::size_t bytes) {
    std::ofstream file(path, std::ios::binary);
    file << kind.begin;
    for (std::size_t written = 0; written < bytes; written += kind.part.size()) {
        file << kind.part;
    }
    file << kind.end;
}

/// A dictionary with as many ignored keys as fit. Each is an object of its own, and so is its
/// value.
void writeBinary(const std::string& path, std::size_t bytes) {
    constexpr std::size_t width = 4;
    const std::size_t bytesPerEntry = 9 + 2 + 4 * width;  // key, value, two references, two offsets
    const std::size_t entries = bytes / bytesPerEntry;
    const std::string link = address;
    std::ofstream file(path, std::ios::binary);
    file << "bplist00"
         << "\xDF\x12" << bigEndian(entries + 1, 4);
    for (std::size_t reference = 1; reference <= 2 * (entries + 1); ++reference) {
        file << bigEndian(reference, width);
    }
    const auto objects = static_cast<std::size_t>(file.tellp());
    for (std::size_t entry = 0; entry < entries; ++entry) {
        file << '\x58' << bigEndian(entry, 4) << "abcd";
    }
    file << "\x53URL";
    for (std::size_t entry = 0; entry < entries; ++entry) {
        file << "\x51v";
    }
    file << "\x5F\x10" << static_cast<char>(link.size()) << link;
    const auto table = static_cast<std::size_t>(file.tellp());
    file << bigEndian(8, width);
    for (std::size_t entry = 0; entry <= entries; ++entry) {
        file << bigEndian(objects + 9 * entry, width);
    }
    for (std::size_t entry = 0; entry <= entries; ++entry) {
        file << bigEndian(objects + 9 * entries + 4 + 2 * entry, width);
    }
    file << std::string(6, '\0') << static_cast<char>(width) << static_cast<char>(width)
         << bigEndian(2 * entries + 3, 8) << bigEndian(0, 8) << bigEndian(table, 8);
}

void measure(bench::Figures& figures, const std::string& name, const std::string& path) {
    const pid_t child = ::fork();
    if (child == 0) {
        const auto link = WeblocParser::extractURL(URL::fileURL(path));
        std::_Exit(link == address ? EXIT_SUCCESS : EXIT_FAILURE);
    }
    int status = 0;
    rusage usage{};
    ::wait4(child, &status, 0, &usage);
    const auto milliseconds = [](const timeval& time) {
        return 1e3 * static_cast<double>(time.tv_sec) + 1e-3 * static_cast<double>(time.tv_usec);
    };
    constexpr double maximumFailures = 0;
    figures.add({.what = "not read",
                 .value = status == 0 ? 0.0 : 1.0,
                 .maximum = maximumFailures,
                 .at = name});
    figures.add({.what = "processor time",
                 .value = milliseconds(usage.ru_utime) + milliseconds(usage.ru_stime),
                 .unit = "ms",
                 .maximum = maximumMilliseconds,
                 .at = name});
    figures.add({.what = "memory",
                 .value = static_cast<double>(usage.ru_maxrss) * 1024 / megabyte,
                 .unit = "MB",
                 .maximum = maximumMegabytes,
                 .at = name});
}

}  // namespace
}  // namespace glintmark

int main(int argc, char** argv) {
    using namespace glintmark;
    const bench::Options options(argc, argv);
    const auto bytes = static_cast<std::size_t>(options.count(options.smoke ? 5 : 100)) * 1'000'000;
    const bench::TemporaryFolder folder(options.place());
    doubles::Fakes fakes;
    platform::PosixFileManager files;
    const platform::Services services = fakes.servicesWith({.fileManager = &files});
    const platform::ServicesScope scope(services);
    bench::Figures figures;
    const auto path = folder.path() + "/large.webloc";
    for (const auto& kind : kinds()) {
        write(path, kind, bytes);
        measure(figures, kind.name, path);
    }
    writeBinary(path, bytes);
    measure(figures, "binary form, ignored keys", path);
    return figures.finish(options);
}
