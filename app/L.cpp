#include "app/L.h"

#include "platform/Bundle.h"
#include "platform/Platform.h"

namespace glintmark {

std::string L(const std::string& key) { return platform::services().bundle.localizedString(key); }

}  // namespace glintmark
