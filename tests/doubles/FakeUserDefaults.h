#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "base/json/JSON.h"
#include "platform/UserDefaults.h"

namespace glintmark::doubles {

/// Settings in memory, of any type.
class FakeUserDefaults final : public platform::UserDefaults {
public:
    std::optional<std::vector<std::string>> stringArray(const std::string& key) override;
    void set(const std::string& key, const std::vector<std::string>& value) override;

    void store(const std::string& key, JSON value);  ///< As an earlier run would.
    bool contains(const std::string& key) const { return values_.contains(key); }
    int writes() const { return writes_; }  ///< Made by the program.

private:
    std::map<std::string, JSON> values_;
    int writes_ = 0;
};

}  // namespace glintmark::doubles
