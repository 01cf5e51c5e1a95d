#include "src/board/BoardIdentity.h"

#include <cstdio>
#include <iterator>

#include "common/RegisterMap.h"

void ReadIdentity(const CDrvRegEnyx& board, uint32_t (&dna)[3], CMACType& macAddress) {
    constexpr uint32_t REGISTERS[] = {reg::DNA_0, reg::DNA_1, reg::DNA_2};
    for (std::size_t word = 0; word < std::size(REGISTERS); ++word) {
        dna[word] = 0;
        board.ReadRegister(REGISTERS[word], dna[word]);
    }
    const uint64_t identity = (uint64_t{dna[0]} << 32) | dna[1];
    char text[sizeof "00:00:00:00:00:00"];
    const auto byte = [identity](int index) {
        return static_cast<unsigned int>((identity >> (56 - 8 * index)) & 0xFF);
    };
    std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", byte(0), byte(1), byte(2), byte(3), byte(4),
                  byte(5));
    macAddress.UnSafeCopyFrom(text);
}
