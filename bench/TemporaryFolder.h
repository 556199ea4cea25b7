#pragma once

#include <stdlib.h>  // NOLINT(modernize-deprecated-headers): mkdtemp

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

namespace glintmark::bench {

/// A new folder below `place`. The destructor deletes it with its contents.
class TemporaryFolder {
public:
    explicit TemporaryFolder(
        const std::filesystem::path& place = std::filesystem::temp_directory_path())
        : path_((place / "glintmark-bench.XXXXXX").string()) {
        if (::mkdtemp(path_.data()) == nullptr) {
            std::perror(path_.c_str());
            std::exit(EXIT_FAILURE);  // NOLINT(concurrency-mt-unsafe): no threads yet
        }
    }
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::string& path() const { return path_; }

private:
    std::string path_;
};

}  // namespace glintmark::bench
