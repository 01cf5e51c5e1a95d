/// The registers by name, for people.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct NamedRegister {
    uint32_t index;
    std::string name;
    bool is64Bit = false;
};

/// Every register that the library reads or writes, in the order of their indices.
const std::vector<NamedRegister>& NamedRegisters();
