/// The version, written once.
#pragma once

#include <cstdint>

inline constexpr char VEXA_U50_VERSION_NUMBER[] = "1.1.1.33";
