// A hash table with open addressing, never more than three quarters full.
// Invariant: which names share a hash is not known outside the process, so that no file can make the search long.
#include "public/config/NameTable.h"

#include <sys/random.h>

#include <cstring>

namespace {

constexpr std::size_t PLACES_MIN = 64;

uint64_t RandomSeed() {
    uint64_t seed = 0;
    (void)!getrandom(&seed, sizeof seed, GRND_NONBLOCK);
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

uint32_t CNameTable::HashOf(std::string_view name) const {
    uint64_t hash = m_seed ^ name.size();
    uint64_t word = 0;
    for (; name.size() > sizeof word; name.remove_prefix(sizeof word)) {
        std::memcpy(&word, name.data(), sizeof word);
        hash = Mix(hash ^ word);
    }
    word = 0;
    if (!name.empty()) std::memcpy(&word, name.data(), name.size());
    return static_cast<uint32_t>(Mix(Mix(hash ^ word)) >> 32);
}

/// Where the name is, or the free place where it would be.
std::size_t CNameTable::PlaceOf(std::string_view name, uint32_t hash) const {
    std::size_t place = hash & (m_places.size() - 1);
    for (; m_places[place].taken != 0; place = (place + 1) & (m_places.size() - 1)) {
        if (m_places[place].hash == hash && m_names[m_places[place].taken - 1] == name) break;
    }
    return place;
}

uint32_t CNameTable::Find(std::string_view name) const {
    const Place& place = m_places[PlaceOf(name, HashOf(name))];
    return place.taken == 0 ? NONE : place.taken - 1;
}

uint32_t CNameTable::Add(std::string_view name) {
    const uint32_t hash = HashOf(name);
    const std::size_t place = PlaceOf(name, hash);
    if (m_places[place].taken != 0) return m_places[place].taken - 1;
    m_names.push_back(name);
    const auto count = static_cast<uint32_t>(m_names.size());
    m_places[place] = {count, hash};
    if (m_names.size() > m_places.size() / 4 * 3) Widen(m_places.size() * 2);
    return count - 1;
}

void CNameTable::Reserve(std::size_t names) {
    std::size_t places = m_places.size();
    while (names > places / 4 * 3) places *= 2;
    if (places > m_places.size()) Widen(places);
    m_names.reserve(names);
}

void CNameTable::Widen(std::size_t places) {
    std::vector<Place> wider(places);
    for (const Place& place : m_places) {
        if (place.taken == 0) continue;
        std::size_t at = place.hash & (wider.size() - 1);
        while (wider[at].taken != 0) at = (at + 1) & (wider.size() - 1);
        wider[at] = place;
    }
    m_places.swap(wider);
}
