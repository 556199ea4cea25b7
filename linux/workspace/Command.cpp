#include "linux/workspace/Command.h"

#include <glib.h>
#include <sys/prctl.h>

namespace glintmark::platform {

namespace {

/// `arguments` begins with the program and ends with a null pointer.
bool start(char** arguments) {
    constexpr auto flags = static_cast<GSpawnFlags>(
        G_SPAWN_SEARCH_PATH | G_SPAWN_STDOUT_TO_DEV_NULL | G_SPAWN_STDERR_TO_DEV_NULL);
    return g_spawn_async(nullptr, arguments, nullptr, flags, nullptr, nullptr, nullptr, nullptr) !=
           FALSE;
}

}  // namespace

bool startCommand(std::string program, std::string argument) {
    char* arguments[] = {program.data(), argument.data(), nullptr};
    return start(arguments);
}

bool limitsChildren() { return prctl(PR_GET_NO_NEW_PRIVS, 0, 0, 0, 0) == 1; }

bool startServiceOf(std::string program, std::string argument) {
    std::string words[] = {"systemd-run", "--user", "--quiet", "--collect", "--"};
    char* arguments[] = {words[0].data(), words[1].data(), words[2].data(), words[3].data(),
                         words[4].data(), program.data(),  argument.data(), nullptr};
    return start(arguments);
}

}  // namespace glintmark::platform
