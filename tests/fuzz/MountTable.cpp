#include "linux/watching/MountTable.h"

#include <algorithm>
#include <string>

#include "tests/fuzz/FuzzTarget.h"

using namespace glintmark;

namespace {

/// Writes a mount point as proc(5) does.
std::string escaped(std::string_view place) {
    std::string text;
    for (const char byte : place) {
        if (std::string_view(" \t\n\\").find(byte) == std::string_view::npos) {
            text += byte;
        } else {
            const auto value = static_cast<unsigned char>(byte);
            text += {'\\', static_cast<char>('0' + value / 64),
                     static_cast<char>('0' + value / 8 % 8), static_cast<char>('0' + value % 8)};
        }
    }
    return text;
}

}  // namespace

/// Rule: every line gives one mount point, and a mount point of any name survives the round trip.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto text = fuzz::text(data, size);
    const auto lines =
        std::ranges::count(text, '\n') + (text.empty() || text.ends_with('\n') ? 0 : 1);
    fuzz::require(std::ssize(platform::parseMountTable(text)) == lines);

    const auto entries = platform::parseMountTable("36 35 98:0 /root " + escaped(text) +
                                                   " rw,noatime - ext3 x rw\n");
    fuzz::require(entries.size() == 1 && entries[0].second == 36 && entries[0].first == text);
    return 0;
}
