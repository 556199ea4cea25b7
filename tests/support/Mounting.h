#pragma once

namespace glintmark::test {

/// Whether this run has the rights that mounting takes. mount_namespaces(7).
bool mayMount();

}  // namespace glintmark::test
