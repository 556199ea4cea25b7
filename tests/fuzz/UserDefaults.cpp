#include <cstdio>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "app/AppDelegate.h"
#include "linux/files/JSONFileUserDefaults.h"
#include "tests/doubles/TestPlatform.h"
#include "tests/fuzz/FuzzTarget.h"
#include "tests/support/TemporaryDirectory.h"

using namespace glintmark;
using platform::JSONFileUserDefaults;

namespace {

constexpr auto key = "extraFolders";
constexpr auto name = "defaults.json";
constexpr auto nameOfBad = "defaults.json.bad";

using Folders = std::vector<std::string>;

/// The folders that the program watches with these settings, and those after the menu removed the
/// one at `index`.
Folders watchedWithout(const std::optional<Folders>& stored, std::int64_t index) {
    doubles::TestPlatform platform;
    if (stored) {
        platform.userDefaults.set(key, *stored);
    }
    const auto delegate = std::make_shared<AppDelegate>();
    delegate->applicationDidFinishLaunching();
    platform::MenuItem sender;
    sender.tag = index;
    delegate->removeFolder(sender);
    platform.queues.runPending();
    const auto folders = delegate->watchedFolders();
    fuzz::require(folders.size() >= 2);
    fuzz::require(folders.size() <= 2 + (stored ? stored->size() : 0));
    fuzz::require(platform.statusBar.items().size() == 1);
    return folders;
}

/// Everything else in the file is still there, or the whole old file was kept beside the new one.
void requireNothingLost(const test::TemporaryDirectory& folder, const std::string& text) {
    if (std::filesystem::exists(folder / nameOfBad)) {
        fuzz::require(folder.read(nameOfBad) == text);
        folder.remove(nameOfBad);
        return;
    }
    auto before = nlohmann::json::parse(text, nullptr, false);
    auto after = nlohmann::json::parse(folder.read(name), nullptr, false);
    fuzz::require(before.is_object() && after.is_object());
    before.erase(key);
    after.erase(key);
    fuzz::require(before == after);
}

}  // namespace

/// Rule: whatever the settings file holds, the program starts, and reads back what it stores.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const test::TemporaryDirectory folder;
    const std::string text(fuzz::text(data, size));
    const auto path = folder.write(name, text);
    JSONFileUserDefaults defaults(path);
    const auto stored = defaults.stringArray(key);
    auto folders = watchedWithout(stored, static_cast<std::int64_t>(size % 8));
    folders.push_back(text);  // any bytes
    defaults.set(key, folders);
    fuzz::require(JSONFileUserDefaults(path).stringArray(key) == folders);
    requireNothingLost(folder, text);
    return 0;
}
