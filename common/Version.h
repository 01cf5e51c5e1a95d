/// The version: of the library, the software board, the package and every program. The build and ./dev read it from
/// here, too.
#pragma once

#include <cstdint>
#include <string_view>

inline constexpr char VEXA_U50_VERSION_NUMBER[] = "1.1.1.33";

/// As registers carry it: the first number becomes the lowest byte; each is read as hexadecimal, so that "33" is 0x33.
constexpr uint32_t PackVersion(std::string_view text) {
    uint32_t word = 0;
    uint32_t part = 0;
    uint32_t shift = 0;
    for (const char character : text) {
        if (character == '.') {
            word |= (part & 0xFFU) << shift;
            part = 0;
            shift += 8;
        } else {
            part = part * 16 + static_cast<uint32_t>(character - '0');
        }
    }
    return word | (part & 0xFFU) << shift;
}
static_assert(PackVersion("1.2.10.33") == 0x33100201);
