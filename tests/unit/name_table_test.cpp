#include "public/config/NameTable.h"

#include <gtest/gtest.h>

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

}  // namespace
