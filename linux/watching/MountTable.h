#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/system/FileDescriptor.h"

namespace glintmark::platform {

/// Tells where file systems come and go: proc(5), /proc/[pid]/mountinfo.
class MountTable {
public:
    MountTable();

    /// Has an exceptional condition (POLLPRI of poll(2)), told once, when the table has changed.
    /// -1 where the system shows no table.
    int descriptor() const { return file_.get(); }

    /// The mount points that came or went since the last call or the beginning.
    std::vector<std::string> readChanged();

private:
    using Entries = std::set<std::pair<std::string, std::uint64_t>>;  // place and mount's number

    Entries read() const;

    FileDescriptor file_;
    Entries entries_;
};

/// The mount points in a table's text, with their mounts' numbers.
std::vector<std::pair<std::string, std::uint64_t>> parseMountTable(std::string_view text);

}  // namespace glintmark::platform
