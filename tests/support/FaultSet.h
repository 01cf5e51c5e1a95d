/// Faults for a test, without their names.
#pragma once

#include "exchange/Faults.h"

namespace exchange {

template <typename... Kinds>
Faults Only(Kinds... kinds) {
    Faults faults;
    (faults.Set(kinds), ...);
    return faults;
}

}  // namespace exchange
