#include "link/IconRun.h"

#include <algorithm>
#include <set>
#include <utility>

#include "base/system/FilePath.h"
#include "base/work/DispatchWorkItem.h"
#include "favicon/FaviconFetcher.h"
#include "icon/IconApplier.h"
#include "link/FileWriting.h"
#include "link/Paths.h"
#include "platform/DispatchQueues.h"
#include "platform/FileManager.h"
#include "platform/Platform.h"
#include "platform/Workspace.h"

namespace glintmark::link {

using platform::services;

namespace {

DispatchQueue& globalQueue() {
    return services().dispatchQueues.global(platform::QualityOfService::userInitiated);
}

/// Adds the link files in `folder` to `tasks`. False if it is no folder that can be listed.
bool addFolder(const std::string& folder, bool isRecursive, std::vector<IconTask>& tasks) {
    std::set<std::string> names;
    if (!services().fileManager.contentsOfDirectory(
            folder, [&](std::string_view name) { names.emplace(name); })) {
        return false;
    }
    for (const auto& name : names) {
        const std::string path = appendPathComponent(folder, name);
        const bool isVisibleFolder = isRecursive && !name.starts_with('.') &&
                                     services().fileManager.entry(path) == platform::Entry::other;
        if (isVisibleFolder && addFolder(path, isRecursive, tasks)) {
            continue;
        }
        if (linkFileKind(name)) {
            tasks.push_back({path, false});
        }
    }
    return true;
}

}  // namespace

/// A file while it is worked on. The background threads fill in the result before they pass it to
/// the main thread.
struct IconRun::Item {
    IconTask task;
    IconResult result;
    platform::FileIdentity identity;
    std::shared_ptr<DispatchWorkItem> deadline;
    bool isEnded = false;  ///< Main thread only.
};

std::vector<IconTask> iconTasks(const std::vector<std::string>& arguments, bool isRecursive) {
    std::vector<IconTask> tasks;
    for (const auto& argument : arguments) {
        const std::string path = absolutePath(argument);
        if (!addFolder(path, isRecursive, tasks)) {
            tasks.push_back({path, true});
        }
    }
    std::set<std::string> seen;
    std::erase_if(tasks, [&](const IconTask& task) { return !seen.insert(task.path).second; });
    return tasks;
}

IconRun::IconRun(std::vector<IconTask> tasks, Options options, Report report,
                 std::function<void()> ended)
    : tasks_(std::move(tasks)),
      options_(std::move(options)),
      report_(std::move(report)),
      ended_(std::move(ended)) {}

void IconRun::start() {
    if (tasks_.empty()) {
        ended_();
        return;
    }
    startNext();
}

void IconRun::startNext() {
    while (!isStopped_ && next_ < tasks_.size() && running_.size() < options_.maximumAtOnce) {
        const auto item = std::make_shared<Item>();
        item->task = tasks_[next_++];
        item->result.path = item->task.path;
        // Weak: the item owns its deadline.
        item->deadline = std::make_shared<DispatchWorkItem>(
            [self = shared_from_this(), weak = std::weak_ptr(item)] {
                if (const auto late = weak.lock()) {
                    self->end(late, IconResult::Outcome::late);
                }
            });
        running_.push_back(item);
        services().dispatchQueues.main().asyncAfter(options_.maximumTime, item->deadline);
        globalQueue().async([self = shared_from_this(), item] { self->read(item); });
    }
}

void IconRun::read(const std::shared_ptr<Item>& item) const {
    using Outcome = IconResult::Outcome;
    LinkFileContents contents = readLinkFile(item->task.path);
    item->identity = contents.identity;
    if (!contents.link) {
        endLater(item, contents.wasRead ? Outcome::noLink : Outcome::unreadable);
        return;
    }
    // The resident program asks for any URL with a host, as it stands. So this does, too.
    auto url = URL::parse(*contents.link);
    if (!url || !url->host()) {
        url = webAddress(*contents.link).url;
    }
    item->result.link = std::move(*contents.link);
    if (!url) {
        endLater(item, Outcome::noAddress);
    } else if (options_.isMissingOnly && options_.hasIcon(item->task.path)) {
        endLater(item, Outcome::present);
    } else if (options_.isDryRun) {
        endLater(item, Outcome::planned);
    } else {
        fetch(item, *url);
    }
}

void IconRun::fetch(const std::shared_ptr<Item>& item, const URL& url) const {
    FaviconFetcher::collectCandidates(
        url, *url.host(),
        [self = shared_from_this(), item](const std::vector<IconCandidate>& candidates) {
            const auto best = FaviconFetcher::pickBest(candidates);
            if (!best) {
                self->endLater(item, IconResult::Outcome::noIcon);
                return;
            }
            item->result.source = best->source;
            item->result.size = best->image->size();
            services().dispatchQueues.main().async(
                [self, item, icon = IconApplier::prepared(best->image)] {
                    std::const_pointer_cast<IconRun>(self)->apply(item, icon);
                });
        });
}

void IconRun::apply(const std::shared_ptr<Item>& item,
                    const std::shared_ptr<const platform::PreparedIcon>& icon) {
    if (!item->isEnded) {
        const bool isSet = icon != nullptr && write(*item, icon);
        end(item, isSet ? IconResult::Outcome::set : IconResult::Outcome::refused);
    }
}

/// A desktop entry names its icon itself. It gets the marks of a link file, too: they tell that the
/// stored picture is in use.
bool IconRun::write(const Item& item,
                    const std::shared_ptr<const platform::PreparedIcon>& icon) const {
    const std::string& path = item.task.path;
    if (linkFileKind(path) != LinkFileKind::desktopEntry) {
        return services().workspace.setIcon(icon, path, item.identity);
    }
    const auto picture = options_.storedPicture(*icon);
    platform::FileIdentity identity;
    const auto bytes = services().fileManager.contents(path, &identity);
    const auto changed = picture && bytes && identity == item.identity
                             ? desktopEntryWithIcon(*bytes, *picture)
                             : std::nullopt;
    if (!changed || (*changed != *bytes && !replaceFile(path, *changed, identity))) {
        return false;
    }
    services().workspace.setIcon(icon, path, std::nullopt);
    return true;
}

void IconRun::endLater(const std::shared_ptr<Item>& item, IconResult::Outcome outcome) const {
    services().dispatchQueues.main().async([self = shared_from_this(), item, outcome] {
        std::const_pointer_cast<IconRun>(self)->end(item, outcome);
    });
}

void IconRun::end(const std::shared_ptr<Item>& item, IconResult::Outcome outcome) {
    if (std::exchange(item->isEnded, true)) {
        return;
    }
    item->deadline->cancel();
    std::erase(running_, item);
    // While the search goes on in the background, its thread may write the result's other fields.
    IconResult result{.path = item->task.path, .outcome = outcome};
    if (outcome != IconResult::Outcome::late && outcome != IconResult::Outcome::interrupted) {
        result = item->result;
        result.outcome = outcome;
    }
    if (outcome != IconResult::Outcome::noLink || item->task.isNamed) {
        report_(result);
    }
    if (++endedCount_ == tasks_.size()) {
        ended_();
    } else {
        startNext();
    }
}

void IconRun::stop() {
    isStopped_ = true;
    const auto running = running_;
    for (const auto& item : running) {
        end(item, IconResult::Outcome::interrupted);
    }
    while (next_ < tasks_.size()) {
        report_({.path = tasks_[next_++].path, .outcome = IconResult::Outcome::interrupted});
        if (++endedCount_ == tasks_.size()) {
            ended_();
        }
    }
}

}  // namespace glintmark::link
