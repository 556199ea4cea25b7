#include "base/json/JSON.h"

#include <nlohmann/json.hpp>

#include "tests/fuzz/FuzzTarget.h"

using namespace glintmark;

/// Rule: UTF-8 that our reader accepts is accepted by a validating reader, too.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto text = fuzz::text(data, size);
    const auto json = JSON::parse(text);
    if (json && text.find('\0') == std::string_view::npos && !text.starts_with("\xFE") &&
        !text.starts_with("\xFF")) {
        fuzz::require(nlohmann::json::accept(text.begin(), text.end()));
    }
    return 0;
}
