#pragma once

#include <functional>
#include <string>

namespace glintmark::test {

/// True if this process may make a mount namespace (mount_namespaces(7)) and mount in it.
bool mayMount();

/// Runs `body` on a thread with its own mount namespace, in which `type` is mounted at `path`. The
/// mount ends with the thread.
void withMount(const std::string& path, const char* type, const char* options,
               const std::function<void()>& body);

}  // namespace glintmark::test
