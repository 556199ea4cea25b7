#pragma once

#include <memory>

#include "platform/Log.h"
#include "platform/UserDefaults.h"

namespace glintmark::platform {

/// The settings as one JSON object in a file. Values keep their types, and unknown keys are kept. A
/// string holds bytes that are not UTF-8 in the form of `escapedAsUTF8`. Each change replaces the
/// whole file and flushes it to the disk. A symbolic link stays; the file that it leads to is
/// replaced.
class JSONFileUserDefaults : public UserDefaults {
public:
    /// `path` is absolute; the file need not exist. A file that cannot be read counts as empty and
    /// gets the suffix ".bad" before the first change would replace it. A change that cannot be
    /// stored stays in force for this object, and leaves one line in `log` at debug level.
    explicit JSONFileUserDefaults(std::string path, Log* log = nullptr);
    ~JSONFileUserDefaults() override;

    std::optional<std::vector<std::string>> stringArray(const std::string& key) override;
    void set(const std::string& key, const std::vector<std::string>& value) override;

private:
    struct Content;

    bool save();

    const std::string path_;
    Log* const log_;
    const std::unique_ptr<Content> content_;
};

}  // namespace glintmark::platform
