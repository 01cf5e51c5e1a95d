/// Names for the texts of the configuration. Capacities include the terminator.
#pragma once

#include "public/string/qel_string_base.h"

using CConfigFileNameType = CQelCharArray<256>;
using CAddressType = CQelCharArray<256>;
using CMACType = CQelCharArray<256>;
using CIPType = CQelCharArray<256>;
using CInstrumentType = CQelCharArray<32>;
using CInstrumentListType = CQelCharArray<4096>;
