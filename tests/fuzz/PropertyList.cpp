#include "base/plist/PropertyList.h"

#include "base/text/TextEncoding.h"
#include "tests/fuzz/FuzzTarget.h"

using namespace glintmark;

namespace {

void requireUTF8(const PropertyList& list) {
    if (const auto* text = list.string()) {
        fuzz::require(isUTF8(*text));
    } else if (const auto* elements = list.array()) {
        for (const auto& element : *elements) {
            requireUTF8(element);
        }
    } else if (const auto* entries = list.dictionary()) {
        for (const auto& [key, value] : *entries) {
            fuzz::require(isUTF8(key));
            requireUTF8(value);
        }
    }
}

}  // namespace

/// Rule: every text in a property list that was read is UTF-8.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (const auto list = PropertyList::parse(fuzz::text(data, size))) {
        requireUTF8(*list);
    }
    return 0;
}
