/// What starts and steps of a session object return, as interface/VexaShfeMdApi.h says.
#pragma once

#include <cstdint>

namespace simulation {

constexpr int32_t STARTED = 0;
constexpr int32_t START_FAILED = -2;

constexpr int32_t NO_UPDATE = 0;
constexpr int32_t ONE_UPDATE = 1;
constexpr int32_t SESSION_ENDED = -1;

}  // namespace simulation
