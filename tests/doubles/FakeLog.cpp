#include "tests/doubles/FakeLog.h"

#include <algorithm>
#include <iterator>

#include "base/text/LogMessage.h"

namespace glintmark::doubles {

void FakeLog::write(std::string_view message) {
    const std::lock_guard lock(mutex_);
    messages_.emplace_back(message);
}

void FakeLog::debug(std::string_view message) {
    const std::lock_guard lock(mutex_);
    debugLines_.emplace_back(message);
}

std::vector<std::string> FakeLog::lines() const {
    const std::lock_guard lock(mutex_);
    std::vector<std::string> lines;
    std::transform(messages_.begin(), messages_.end(), std::back_inserter(lines), formatLogMessage);
    return lines;
}

std::vector<std::string> FakeLog::messages() const {
    const std::lock_guard lock(mutex_);
    return messages_;
}

std::vector<std::string> FakeLog::debugLines() const {
    const std::lock_guard lock(mutex_);
    return debugLines_;
}

void FakeLog::forget() {
    const std::lock_guard lock(mutex_);
    messages_.clear();
    debugLines_.clear();
}

}  // namespace glintmark::doubles
