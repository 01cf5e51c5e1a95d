/// Names a process so that a later one of the same number is told from it.
#pragma once

#include <cstdint>
#include <string>

namespace software_board {

/// The number in the low half, the start time (clock ticks since boot, low 32 bits) in the high half; never 0.
using ProcessId = uint64_t;

constexpr int32_t ProcessNumber(ProcessId process) { return static_cast<int32_t>(process & 0xFFFFFFFFU); }

ProcessId OwnProcessId();

/// False once the process has ended, also if its number was given to another since.
bool IsAlive(ProcessId process);

}  // namespace software_board
