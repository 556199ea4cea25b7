#include "base/text/UUID.h"

#include <glib.h>

#include <memory>

#include "base/system/ReleaseWith.h"

namespace glintmark {

std::string randomUUIDString() {
    const std::unique_ptr<char, ReleaseWith<g_free>> lowerCase(g_uuid_string_random());
    const std::unique_ptr<char, ReleaseWith<g_free>> upperCase(g_ascii_strup(lowerCase.get(), -1));
    return upperCase.get();
}

}  // namespace glintmark
