#include "link/CommandLine.h"

#include <glib.h>

#include <algorithm>
#include <array>
#include <deque>
#include <memory>
#include <string_view>
#include <utility>

#include "base/system/ReleaseWith.h"
#include "link/Texts.h"
#include "linux/glib/GLibHandles.h"

namespace glintmark::link {

namespace {

constexpr auto program = "glintmark-link";

/// A command as it is typed, its arguments, and how many of them it needs.
struct VerbInfo {
    Command::Verb verb;
    std::string_view name;
    const char* arguments;
    std::size_t minimumArguments;
    std::size_t maximumArguments;
};

constexpr std::size_t anyNumber = SIZE_MAX;
constexpr std::array<VerbInfo, 4> verbs{{
    {Command::Verb::open, "open", "FILE…", 1, anyNumber},
    {Command::Verb::icon, "icon", "FILE|FOLDER…", 1, anyNumber},
    {Command::Verb::explain, "explain", "LINK|FILE", 1, 1},
    {Command::Verb::create, "new", "LINK [FILE|FOLDER]", 1, 2},
}};

/// The options of one command, read by GLib.
class Options {
public:
    explicit Options(const std::string& usage) : context_(g_option_context_new(usage.c_str())) {
        g_option_context_set_help_enabled(context_.get(), FALSE);  // it would end the process
        addSwitch("help", 'h', wantsHelp_);
    }

    void addSwitch(const char* name, char letter, bool& value) {
        switches_.emplace_back(&value, FALSE);
        add({name, letter, 0, G_OPTION_ARG_NONE, &switches_.back().second, nullptr, nullptr});
    }

    void addFile(const char* name, std::string& value) {
        files_.emplace_back(&value, nullptr);
        add({name, 0, 0, G_OPTION_ARG_FILENAME, &files_.back().second, nullptr, "FILE"});
    }

    /// The error's text, or nothing.
    std::optional<std::string> parse(const std::vector<std::string>& arguments,
                                     std::vector<std::string>& others);

    bool wantsHelp() const { return wantsHelp_; }

    std::string help(const std::string& name, const std::string& summary) const {
        g_set_prgname(name.c_str());  // which the usage line begins with
        g_option_context_set_summary(context_.get(), summary.c_str());
        const platform::GStringHandle help(
            g_option_context_get_help(context_.get(), FALSE, nullptr));
        return help.get();
    }

private:
    void add(GOptionEntry entry) {
        texts_.push_back(text(std::string("option.") + entry.long_name));
        entry.description = texts_.back().c_str();
        const std::array<GOptionEntry, 2> entries{entry, GOptionEntry{}};
        g_option_context_add_main_entries(context_.get(), entries.data(), nullptr);
    }

    std::deque<std::string> texts_;
    std::deque<std::pair<bool*, gboolean>> switches_;
    std::deque<std::pair<std::string*, char*>> files_;
    std::unique_ptr<GOptionContext, ReleaseWith<g_option_context_free>> context_;
    bool wantsHelp_ = false;
};

std::optional<std::string> Options::parse(const std::vector<std::string>& arguments,
                                          std::vector<std::string>& others) {
    char** rest = nullptr;
    const std::array<GOptionEntry, 2> remaining{
        GOptionEntry{G_OPTION_REMAINING, 0, 0, G_OPTION_ARG_FILENAME_ARRAY, &rest, nullptr,
                     nullptr},
        GOptionEntry{}};
    g_option_context_add_main_entries(context_.get(), remaining.data(), nullptr);

    const platform::GStrvHandle vector(g_new0(char*, arguments.size() + 2));
    vector.get()[0] = g_strdup(program);
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        vector.get()[i + 1] = g_strdup(arguments[i].c_str());
    }
    char** given = g_strdupv(vector.get());
    platform::GErrorOut error;
    g_option_context_parse_strv(context_.get(), &given, error.out());
    const platform::GStrvHandle owner(given);
    const platform::GStrvHandle restOwner(rest);
    for (auto& [value, parsed] : switches_) {
        *value = parsed != FALSE;
    }
    for (auto& [value, parsed] : files_) {
        const platform::GStringHandle file(parsed);
        *value = file != nullptr ? file.get() : "";
    }
    for (char** at = rest; at != nullptr && *at != nullptr; ++at) {
        others.emplace_back(*at);
    }
    return error ? std::optional<std::string>(error.get()->message) : std::nullopt;
}

void addOptions(Options& options, Command& command) {
    switch (command.verb) {
        case Command::Verb::open:
            break;
        case Command::Verb::icon:
            options.addSwitch("recursive", 'r', command.isRecursive);
            options.addSwitch("missing-only", 'm', command.isMissingOnly);
            options.addSwitch("dry-run", 'n', command.isDryRun);
            options.addSwitch("notify", 0, command.isNotifying);
            options.addSwitch("json", 0, command.asJSON);
            break;
        case Command::Verb::explain:
            options.addSwitch("json", 0, command.asJSON);
            options.addFile("html", command.htmlFile);
            break;
        case Command::Verb::create:
            options.addSwitch("force", 'f', command.mayReplace);
            options.addSwitch("from", 0, command.fromFiles);
            options.addSwitch("desktop", 0, command.onDesktop);
            break;
    }
}

std::string overview() {
    std::string lines = text("help.usage") + "\n  " + program + " COMMAND [OPTION…] ARGUMENT…\n\n" +
                        text("help.summary") + "\n\n" + text("help.commands") + "\n";
    for (const auto& info : verbs) {
        const std::string name(info.name);
        lines += "  " + name + " " + info.arguments + "\n      " + text("help." + name) + "\n";
    }
    return lines + "\n" + text("help.more", {program}) + "\n";
}

CommandLine parseVerb(const VerbInfo& info, const std::vector<std::string>& arguments) {
    const std::string name(info.name);
    Command command{.verb = info.verb};
    Options options(info.arguments);
    addOptions(options, command);
    const auto error = options.parse(arguments, command.arguments);
    if (error) {
        return {.error = *error};
    }
    if (options.wantsHelp()) {
        return {.output = options.help(std::string(program) + " " + name, text("help." + name))};
    }
    const bool takesMany = command.fromFiles || command.onDesktop;
    const std::size_t maximum = takesMany ? anyNumber : info.maximumArguments;
    if (command.arguments.size() < info.minimumArguments || command.arguments.size() > maximum) {
        return {.error = text(command.onDesktop ? "error.nothingDropped" : "error.arguments",
                              {std::string(program) + " " + name + " --help"})};
    }
    return {.command = std::move(command)};
}

}  // namespace

CommandLine parseCommandLine(const std::vector<std::string>& arguments,
                             const std::string& version) {
    const std::string help = std::string(program) + " --help";
    if (arguments.empty()) {
        return {.error = text("error.arguments", {help})};
    }
    const std::string& first = arguments.front();
    if (first == "--version") {
        return {.output = std::string(program) + " " + version + "\n"};
    }
    if (first == "--help" || first == "-h") {
        return {.output = overview()};
    }
    const auto* const info = std::ranges::find(verbs, first, &VerbInfo::name);
    if (info == verbs.end()) {
        return {.error = text("error.command", {first, help})};
    }
    return parseVerb(*info, {arguments.begin() + 1, arguments.end()});
}

}  // namespace glintmark::link
