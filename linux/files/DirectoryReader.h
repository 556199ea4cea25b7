#pragma once

#include <cstddef>
#include <memory>
#include <string_view>

namespace glintmark::platform {

/// Reads the entries of open directories by getdents64(2), without an allocation for each entry.
/// One reader may read many directories, one after the other.
class DirectoryReader {
public:
    struct Entry {
        std::string_view name;  ///< Ends in a zero byte, which `size()` does not count.
        unsigned char type;     ///< DT_DIR and so on; DT_UNKNOWN if the file system does not say.
    };

    DirectoryReader();

    /// Begins to read the directory open at `descriptor`, which the caller owns.
    void begin(int descriptor);

    /// Reads the next entry; "." and ".." are skipped. Its name is valid until the next call. False
    /// at the end and when reading fails.
    bool next(Entry& entry);

    bool failed() const { return failed_; }

private:
    bool fill();

    std::unique_ptr<char[]> buffer_;
    int descriptor_ = -1;
    std::size_t position_ = 0;
    std::size_t end_ = 0;
    bool failed_ = false;
};

}  // namespace glintmark::platform
