#pragma once

#include <optional>
#include <string>
#include <vector>

namespace glintmark::link {

/// What the user asks for.
struct Command {
    enum class Verb { open, icon, explain, create };

    Verb verb;
    std::vector<std::string> arguments{};  ///< Bytes as given.

    // icon
    bool isRecursive = false;
    bool isDryRun = false;
    bool isNotifying = false;  ///< Posts a notification with what came of the run.
    bool isMissingOnly = false;

    // icon, explain
    bool asJSON = false;

    // explain
    std::string htmlFile{};  ///< Empty for none.

    // create
    bool mayReplace = false;
    bool fromFiles = false;
    bool onDesktop = false;
};

/// Exactly one of the three is set.
struct CommandLine {
    std::optional<Command> command{};
    std::optional<std::string> output{};  ///< For standard output: a help text or the version.
    std::optional<std::string> error{};   ///< One line.
};

/// Reads the arguments of the program, without its name.
CommandLine parseCommandLine(const std::vector<std::string>& arguments, const std::string& version);

}  // namespace glintmark::link
