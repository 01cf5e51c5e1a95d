/// The levels of a record's book, so that loops walk them; in the order of a slot's.
#pragma once

#include "common/FpgaStructCommon.h"
#include "interface/VexaShfeMdStruct.h"

struct RecordLevel {
    int32_t VexaShfeMdType::*price;
    uint32_t VexaShfeMdType::*volume;
};

inline constexpr std::array<std::array<RecordLevel, BOOK_LEVELS>, 2> RECORD_LEVELS{
    {{{{&VexaShfeMdType::bid1_px, &VexaShfeMdType::bid1_vol},
       {&VexaShfeMdType::bid2_px, &VexaShfeMdType::bid2_vol},
       {&VexaShfeMdType::bid3_px, &VexaShfeMdType::bid3_vol},
       {&VexaShfeMdType::bid4_px, &VexaShfeMdType::bid4_vol},
       {&VexaShfeMdType::bid5_px, &VexaShfeMdType::bid5_vol}}},
     {{{&VexaShfeMdType::ask1_px, &VexaShfeMdType::ask1_vol},
       {&VexaShfeMdType::ask2_px, &VexaShfeMdType::ask2_vol},
       {&VexaShfeMdType::ask3_px, &VexaShfeMdType::ask3_vol},
       {&VexaShfeMdType::ask4_px, &VexaShfeMdType::ask4_vol},
       {&VexaShfeMdType::ask5_px, &VexaShfeMdType::ask5_vol}}}}};
