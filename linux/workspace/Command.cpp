#include "linux/workspace/Command.h"

#include <glib.h>

namespace glintmark::platform {

bool startCommand(std::string program, std::string argument) {
    char* arguments[] = {program.data(), argument.data(), nullptr};
    constexpr auto flags = static_cast<GSpawnFlags>(
        G_SPAWN_SEARCH_PATH | G_SPAWN_STDOUT_TO_DEV_NULL | G_SPAWN_STDERR_TO_DEV_NULL);
    return g_spawn_async(nullptr, arguments, nullptr, flags, nullptr, nullptr, nullptr, nullptr) !=
           FALSE;
}

}  // namespace glintmark::platform
