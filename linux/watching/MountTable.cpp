#include "linux/watching/MountTable.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <iterator>

#include "linux/files/WholeFile.h"

namespace glintmark::platform {

namespace {

constexpr int fieldsBeforeMountPoint = 4;  // numbers of the mount and its parent, device, root
constexpr std::size_t expectedBytes = std::size_t{16} * 1024;

std::string_view cutUpTo(std::string_view& text, char end) {
    const auto piece = text.substr(0, text.find(end));
    text.remove_prefix(std::min(text.size(), piece.size() + 1));
    return piece;
}

/// Decodes blanks, line ends and backslashes, which the table writes as a backslash and three octal
/// digits.
std::string unescaped(std::string_view text) {
    std::string plain;
    for (std::size_t i = 0; i < text.size(); ++i) {
        unsigned byte = 0;
        const auto* const digits = text.data() + i + 1;
        if (text[i] == '\\' && text.size() - i > 3 &&
            std::from_chars(digits, digits + 3, byte, 8).ptr == digits + 3) {
            plain += static_cast<char>(static_cast<unsigned char>(byte));
            i += 3;
        } else {
            plain += text[i];
        }
    }
    return plain;
}

}  // namespace

MountTable::MountTable() : file_(::open("/proc/self/mountinfo", O_RDONLY | O_CLOEXEC)) {
    entries_ = read();
}

std::vector<std::string> MountTable::readChanged() {
    auto now = read();
    Entries changed;
    std::set_symmetric_difference(entries_.begin(), entries_.end(), now.begin(), now.end(),
                                  std::inserter(changed, changed.end()));
    entries_ = std::move(now);
    std::vector<std::string> places;
    for (const auto& [place, number] : changed) {
        places.push_back(place);
    }
    return places;
}

MountTable::Entries MountTable::read() const {
    ::lseek(file_.get(), 0, SEEK_SET);
    const auto entries = parseMountTable(readToEnd(file_.get(), expectedBytes).value_or(""));
    return {entries.begin(), entries.end()};
}

std::vector<std::pair<std::string, std::uint64_t>> parseMountTable(std::string_view text) {
    std::vector<std::pair<std::string, std::uint64_t>> entries;
    while (!text.empty()) {
        auto line = cutUpTo(text, '\n');
        std::uint64_t number = 0;
        std::from_chars(line.data(), line.data() + line.size(), number);
        for (int i = 0; i < fieldsBeforeMountPoint; ++i) {
            cutUpTo(line, ' ');
        }
        entries.emplace_back(unescaped(cutUpTo(line, ' ')), number);
    }
    return entries;
}

}  // namespace glintmark::platform
