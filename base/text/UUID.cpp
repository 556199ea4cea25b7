#include "base/text/UUID.h"

#include <unistd.h>

#include <array>
#include <cstddef>

#include "base/system/FatalError.h"

namespace glintmark {

std::string randomUUIDString() {
    std::array<unsigned char, 16> bytes{};
    if (getentropy(bytes.data(), bytes.size()) != 0) {
        fatalError("The system has no random numbers");
    }
    // Version 4 and the variant (RFC 4122, sections 4.1.3 and 4.1.1).
    bytes[6] = static_cast<unsigned char>(0x40U | (bytes[6] & 0x0FU));
    bytes[8] = static_cast<unsigned char>(0x80U | (bytes[8] & 0x3FU));

    constexpr auto* hexDigits = "0123456789ABCDEF";
    std::string text;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) {
            text += '-';
        }
        text += {hexDigits[bytes[i] >> 4U], hexDigits[bytes[i] & 15U]};
    }
    return text;
}

}  // namespace glintmark
