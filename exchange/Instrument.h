/// Static data of one instrument of a synthetic exchange.
#pragma once

#include <cstdint>
#include <string>

namespace exchange {

enum class InstrumentKind { Future, Option, Tas };

/// Prices in hundredths. `instNo` is its index in its feed's list.
struct Instrument {
    std::string id;       ///< "cu2612", "cu2612C70000", "sc2612TAS"; at most 15 characters
    std::string product;  ///< "cu"
    InstrumentKind kind = InstrumentKind::Future;
    int32_t instNo = 0;
    int32_t priceTick = 0;
    int32_t codecPrice = 0;
    int32_t volumeMultiple = 0;
    int32_t upperLimit = 0;
    int32_t lowerLimit = 0;
};

}  // namespace exchange
