/// The registers by name, for people.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

struct NamedRegister {
    uint32_t index;
    std::string name;
    bool is64Bit = false;
};

/// Every register that the library reads or writes, in the order of their indices.
const std::vector<NamedRegister>& NamedRegisters();

/// The register of this name or index ("CONFIG_CHECKSUM", "0x1001", "4097"); one without a name is called "-".
std::optional<NamedRegister> FindRegister(const std::string& address);
