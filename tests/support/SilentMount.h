#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "base/system/FileDescriptor.h"

namespace glintmark::test {

/// A file system that can stop to answer, as that of a server that is gone: fuse(4), without a
/// library. It holds one directory with regular files. Calls into it really hang in the kernel.
class SilentMount {
public:
    /// A kind of call: opcodes of <linux/fuse.h>.
    enum class Call : std::uint32_t {
        lookup = 1,
        attributes = 3,
        openFile = 14,
        read = 15,
        openDirectory = 27
    };

    /// Mounts at `directory`, which must exist. Null if this process may not mount.
    static std::unique_ptr<SilentMount> make(const std::string& directory);

    /// Unmounts. Calls that still hang fail.
    ~SilentMount();

    SilentMount(const SilentMount&) = delete;
    SilentMount& operator=(const SilentMount&) = delete;

    void addFile(const std::string& name, const std::string& bytes = "");

    void stopAnswering(Call call);  ///< Calls of this kind hang from now on.
    void answer();                  ///< Those that hang, and all from now on.
    std::size_t hanging() const;

private:
    struct Request;

    SilentMount(std::string directory, FileDescriptor device);

    void serve();
    void handle(const Request& request);
    void reply(const Request& request, int error, std::string_view payload = {}) const;
    std::string attributes(std::uint64_t node) const;
    std::string entries(std::uint64_t offset) const;

    const std::string directory_;
    const FileDescriptor device_;
    const FileDescriptor ending_;
    mutable std::mutex mutex_;  // guards all below
    std::vector<std::pair<std::string, std::string>> files_;
    std::set<Call> silent_;
    std::vector<Request> held_;
    std::thread thread_;
};

}  // namespace glintmark::test
