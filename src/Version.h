/// The version: of the library, the package and every program. The build and ./dev read it from here, too.
#pragma once

inline constexpr char VEXA_U50_VERSION_NUMBER[] = "1.1.1.33";
