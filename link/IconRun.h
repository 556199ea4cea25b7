#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/graphics/Geometry.h"
#include "favicon/IconSource.h"
#include "link/LinkFile.h"

namespace glintmark {
class DispatchWorkItem;
}  // namespace glintmark

namespace glintmark::platform {
class PreparedIcon;
}  // namespace glintmark::platform

namespace glintmark::link {

/// What became of one file.
struct IconResult {
    enum class Outcome {
        set,         ///< It has the icon.
        planned,     ///< It would be asked for; nothing was done.
        present,     ///< It had an icon, and only files without one were wanted.
        unreadable,  ///< The file cannot be read.
        noLink,      ///< The file holds no link.
        noAddress,   ///< Its link is no URL with a host.
        noIcon,      ///< The site has no icon, or does not answer.
        refused,     ///< The icon cannot be written for the file.
        late,        ///< The search for an icon took too long.
        interrupted  ///< The user ended the run before.
    };

    std::string path;
    Outcome outcome = Outcome::interrupted;
    std::string link{};  ///< As stored; empty without one.
    std::optional<IconSource> source{};
    Size size{};  ///< Of the site's picture, in pixels; valid with a source.
};

/// A file to work on.
struct IconTask {
    std::string path;
    bool isNamed = true;  ///< By the user. A file from a folder that holds no link is left out.
};

/// The link files that `arguments` (paths, "file" URIs) name: each file once, and those in each
/// folder, in the order of their names; with `isRecursive` also those in its folders, except hidden
/// ones and symbolic links. Any thread.
std::vector<IconTask> iconTasks(const std::vector<std::string>& arguments, bool isRecursive);

/// Gives files the icon of their site, several at once. Main thread only; all callbacks run there.
class IconRun : public std::enable_shared_from_this<IconRun> {
public:
    struct Options {
        bool isDryRun = false;       ///< Files are read, but nothing is asked for or written.
        bool isMissingOnly = false;  ///< Files that have an icon are left alone.
        std::size_t maximumAtOnce = 32;
        std::chrono::nanoseconds maximumTime = std::chrono::minutes(3);  ///< For one file.

        /// True if the file has an icon. Called on any thread.
        std::function<bool(const std::string& path)> hasIcon;

        /// The picture's file in the store. Absent if it is not stored.
        std::function<std::optional<std::string>(const platform::PreparedIcon&)> storedPicture;
    };
    using Report = std::function<void(const IconResult&)>;

    /// `report` receives each file's result, once. `ended` is called when all files have one.
    IconRun(std::vector<IconTask> tasks, Options options, Report report,
            std::function<void()> ended);

    void start();

    /// Ends the run: files without a result get `interrupted`, and no further icon is set.
    void stop();

private:
    struct Item;

    void startNext();
    void read(const std::shared_ptr<Item>& item) const;
    void fetch(const std::shared_ptr<Item>& item, const URL& url) const;
    void apply(const std::shared_ptr<Item>& item,
               const std::shared_ptr<const platform::PreparedIcon>& icon);
    bool write(const Item& item, const std::shared_ptr<const platform::PreparedIcon>& icon) const;
    void endLater(const std::shared_ptr<Item>& item, IconResult::Outcome outcome) const;
    void end(const std::shared_ptr<Item>& item, IconResult::Outcome outcome);

    const std::vector<IconTask> tasks_;
    const Options options_;
    const Report report_;
    const std::function<void()> ended_;
    std::size_t next_ = 0;
    std::size_t endedCount_ = 0;
    bool isStopped_ = false;
    std::vector<std::shared_ptr<Item>> running_;
};

}  // namespace glintmark::link
