#pragma once

namespace glintmark::test {

/// True if this process may make a mount namespace (mount_namespaces(7)) and mount in it.
bool mayMount();

}  // namespace glintmark::test
