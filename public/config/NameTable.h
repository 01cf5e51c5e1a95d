/// Numbers names in the order in which they come, each found again in constant time whatever the names are.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

class CNameTable {
public:
    static constexpr uint32_t NONE = UINT32_MAX;

    CNameTable();

    /// The name's number; a new one is the count of those before it. The text must stay where it is.
    uint32_t Add(std::string_view name);

    /// Makes room for so many names in all.
    void Reserve(std::size_t names);

    /// The name is about to be added.
    void Expect(std::string_view name) const { __builtin_prefetch(&m_places[HashOf(name) & (m_places.size() - 1)]); }

    /// Its number, or NONE.
    uint32_t Find(std::string_view name) const;

    /// In the order of their numbers. Valid until the next one is added.
    const std::vector<std::string_view>& Names() const { return m_names; }

private:
    /// Holds the number of a name plus one; 0 is free.
    struct Place {
        uint32_t taken;
        uint32_t hash;
    };

    uint32_t HashOf(std::string_view name) const;
    std::size_t PlaceOf(std::string_view name, uint32_t hash) const;
    void Widen();

    uint64_t m_seed;
    std::vector<Place> m_places;
    std::vector<std::string_view> m_names;
};
