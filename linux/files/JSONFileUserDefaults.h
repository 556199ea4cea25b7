#pragma once

#include <memory>

#include "platform/UserDefaults.h"

namespace glintmark::platform {

/// The settings in one JSON object in a file of their own. Values keep their types, and keys that
/// no one here knows are kept. A string holds bytes that are not UTF-8 in the form of
/// `escapedAsUTF8`. The file is replaced whole at each change, and reaches the disk with it.
class JSONFileUserDefaults : public UserDefaults {
public:
    /// `path` is absolute; the file need not exist. One that cannot be read counts as empty and
    /// is renamed to `path` + ".bad" before it would first be replaced.
    explicit JSONFileUserDefaults(std::string path);
    ~JSONFileUserDefaults() override;

    std::optional<std::vector<std::string>> stringArray(const std::string& key) override;
    void set(const std::string& key, const std::vector<std::string>& value) override;

private:
    struct Content;

    void save();

    const std::string path_;
    const std::unique_ptr<Content> content_;
};

}  // namespace glintmark::platform
