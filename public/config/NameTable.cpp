// A hash table with open addressing, never more than three quarters full.
// Invariant: which names share a hash is not known outside the process, so that no file can make the search long.
#include "public/config/NameTable.h"

#include <sys/random.h>

#include <cstring>

namespace {

constexpr std::size_t PLACES_MIN = 64;

uint64_t RandomSeed() {
    uint64_t seed{};
    [[maybe_unused]] const ssize_t count = getrandom(&seed, sizeof seed, GRND_NONBLOCK);
    return seed;
}

/// Multiplies and folds both halves of the product: each bit reaches all others.
uint64_t Mix(uint64_t value) {
    __extension__ using Product = unsigned __int128;
    const Product product = Product{value} * 0x9E3779B97F4A7C15;
    return static_cast<uint64_t>(product) ^ static_cast<uint64_t>(product >> 64);
}

}  // namespace

CNameTable::CNameTable() : m_seed(RandomSeed()), m_places(PLACES_MIN) {}

// Names that differ by zeros at their end alone may share a hash, eight at most.
uint32_t CNameTable::HashOf(std::string_view name) const {
    uint64_t hash = m_seed;
    while (!name.empty()) {
        uint64_t word{};
        const std::string_view part = name.substr(0, sizeof word);
        std::memcpy(&word, part.data(), part.size());
        hash = Mix(hash ^ word);
        name.remove_prefix(part.size());
    }
    return static_cast<uint32_t>(Mix(hash) >> 32);
}

/// Where the name is, or the free place where it would be.
std::size_t CNameTable::PlaceOf(std::string_view name, uint32_t hash) const {
    std::size_t place = hash & (m_places.size() - 1);
    for (; m_places[place].taken != 0; place = (place + 1) & (m_places.size() - 1)) {
        if (m_places[place].hash == hash && m_names[m_places[place].taken - 1] == name) break;
    }
    return place;
}

// The number in a free place wraps round to NONE.
uint32_t CNameTable::Find(std::string_view name) const { return m_places[PlaceOf(name, HashOf(name))].taken - 1; }

uint32_t CNameTable::Add(std::string_view name) {
    const uint32_t hash = HashOf(name);
    Place& place = m_places[PlaceOf(name, hash)];
    if (place.taken != 0) return place.taken - 1;
    m_names.push_back(name);
    const auto count = static_cast<uint32_t>(m_names.size());
    place = {count, hash};
    Reserve(count);
    return count - 1;
}

void CNameTable::Reserve(std::size_t names) {
    while (names > m_places.size() / 4 * 3) Widen();
    m_names.reserve(names);
}

void CNameTable::Widen() {
    std::vector<Place> wider(m_places.size() * 2);
    for (const Place& place : m_places) {
        if (place.taken != 0) {
            std::size_t at = place.hash & (wider.size() - 1);
            while (wider[at].taken != 0) at = (at + 1) & (wider.size() - 1);
            wider[at] = place;
        }
    }
    m_places.swap(wider);
}
