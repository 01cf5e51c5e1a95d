// What the provider library exports.
#include "software_board/SoftwareBoard.h"

extern "C" __attribute__((visibility("default"))) const VexaBoardProvider* vexa_board_provider();

const VexaBoardProvider* vexa_board_provider() { return &software_board::Provider(); }
