#pragma once

#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Log.h"

namespace glintmark::doubles {

/// Keeps what was logged. Any thread.
class FakeLog final : public platform::Log {
public:
    FakeLog() = default;
    // Taking the lock waits for the last writer, whose thread may not be joined.
    ~FakeLog() override { forget(); }
    FakeLog(const FakeLog&) = delete;
    FakeLog& operator=(const FakeLog&) = delete;

    void write(std::string_view message) override;
    void debug(std::string_view message) override;

    std::vector<std::string> lines() const;       ///< Expanded, as the log shows them.
    std::vector<std::string> messages() const;    ///< As written.
    std::vector<std::string> debugLines() const;  ///< Written by the platform.
    void forget();

private:
    mutable std::mutex mutex_;
    std::vector<std::string> messages_;
    std::vector<std::string> debugLines_;
};

}  // namespace glintmark::doubles
