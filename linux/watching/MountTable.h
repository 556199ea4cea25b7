#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/system/FileDescriptor.h"

namespace glintmark::platform {

/// Tells where file systems are mounted and unmounted: proc(5), /proc/[pid]/mountinfo.
class MountTable {
public:
    MountTable();

    /// Reports an exceptional condition (POLLPRI of poll(2)) once for each change of the table. -1
    /// where the system has no table.
    int descriptor() const { return file_.get(); }

    /// The mount points that were added or removed since the last call, or since construction.
    std::vector<std::string> readChanged();

private:
    using Entries =
        std::set<std::pair<std::string, std::uint64_t>>;  // mount point and mount's number

    Entries read() const;

    FileDescriptor file_;
    Entries entries_;
};

/// The mount points in the text of a table, with the numbers of their mounts.
std::vector<std::pair<std::string, std::uint64_t>> parseMountTable(std::string_view text);

}  // namespace glintmark::platform
