#include "public/config/NameTable.h"

#include <gtest/gtest.h>

#include <ctime>
#include <deque>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr uint32_t NONE = 4294967295;

/// Numbered by a map beside the table; all that was added is found again in the end, and nothing else.
class Numbered {
public:
    void Add(const std::string& name) {
        const auto [found, isNew] = m_numbers.try_emplace(name, static_cast<uint32_t>(m_numbers.size()));
        ASSERT_EQ(m_table.Add(found->first), found->second) << testing::PrintToString(name);
        if (isNew) m_order.push_back(found->first);
    }
    void Expect(std::size_t names) { m_table.Reserve(names); }
    bool Has(const std::string& name) const { return m_numbers.count(name) > 0; }
    void Verify() const {
        ASSERT_EQ(m_table.Names(), m_order);
        for (const auto& [name, number] : m_numbers) {
            ASSERT_EQ(m_table.Find(name), number) << testing::PrintToString(name);
            const std::string longer = name + '\0';
            ASSERT_EQ(m_table.Find(longer) == NONE, !Has(longer)) << testing::PrintToString(longer);
        }
    }

private:
    CNameTable m_table;
    std::map<std::string, uint32_t> m_numbers;
    std::vector<std::string_view> m_order;
};

TEST(NameTable, EmptyOneFindsNothing) {
    EXPECT_EQ(CNameTable().Find("a"), NONE);
    EXPECT_EQ(CNameTable().Find(""), NONE);
}

TEST(NameTable, NamesOfAllLengthsAreNumberedInTheirOrder) {
    std::mt19937 random(5);
    Numbered names;
    for (int i = 0; i < 50'000; ++i) {
        std::string name(random() % 41, 'a');
        for (char& c : name) c = static_cast<char>("ab\0z"[random() % 4]);
        names.Add(name);
        if (i % 5'000 == 2'500) names.Expect(static_cast<std::size_t>(i) * 2);
    }
    names.Verify();
}

TEST(NameTable, FindsNothingBeforeItWidensAndAfter) {
    const std::deque<std::string> names = [] {
        std::deque<std::string> made;
        for (int i = 0; i < 400; ++i) made.push_back("name" + std::to_string(i));
        return made;
    }();
    CNameTable table;
    for (uint32_t i = 0; i < names.size(); ++i) {
        EXPECT_EQ(table.Find(names[i]), NONE);
        EXPECT_EQ(table.Add(names[i]), i);
        EXPECT_EQ(table.Find(names[i]), i);
    }
}

/// Names whose words differ in few places, as `make` numbers them, cost no more than in a sorted tree; if many shared a
/// place, they would cost a hundred times as much.
void AddQuickly(uint32_t count, std::string (*make)(uint32_t)) {
    std::vector<std::string> names;
    for (uint32_t i = 0; i < count; ++i) names.push_back(make(i));
    std::clock_t start = std::clock();
    std::map<std::string_view, uint32_t> tree;
    for (uint32_t i = 0; i < count; ++i) tree.emplace(names[i], i);
    const std::clock_t limit = 10 * (std::clock() - start);
    CNameTable table;
    start = std::clock();
    for (uint32_t i = 0; i < count; ++i) {
        ASSERT_TRUE(table.Add(names[i]) == i);
        ASSERT_TRUE(i % 1'024 != 0 || std::clock() - start < limit) << "after " << i << " names";
    }
    for (uint32_t i = 0; i < count; ++i) ASSERT_TRUE(table.Find(names[i]) == i);
}

TEST(NameTable, NamesThatDifferInTheHighestBytesOfTheirWordsAreFoundAtOnce) {
    AddQuickly(200'000, [](uint32_t number) {
        std::string name(24, 'k');
        for (const std::size_t place : {23U, 15U, 7U}) {
            name[place] = static_cast<char>(number % 100);
            number /= 100;
        }
        return name;
    });
}

TEST(NameTable, NamesThatDifferInTheLowestBytesOfTheirWordsAreFoundAtOnce) {
    AddQuickly(200'000, [](uint32_t number) {
        std::string name(24, 'k');
        for (const std::size_t place : {0U, 8U, 16U}) {
            name[place] = static_cast<char>(number % 100);
            number /= 100;
        }
        return name;
    });
}

TEST(NameTable, NamesThatDifferInSingleBitsOfAWordAreFoundAtOnce) {
    AddQuickly(1 << 18, [](uint32_t number) {
        std::string name(16, 'p');
        for (std::size_t bit = 0; bit < 18; ++bit)
            name[bit % 9 + 4] ^= static_cast<char>((number >> bit & 1) << bit / 9);
        return name;
    });
}

}  // namespace
