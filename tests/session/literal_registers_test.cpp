// Every register that a session touches, by number: a start of all four feeds, a loss and the rebuild after it,
// compared whole and in order.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "tests/session/LiteralWorld.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace literal {
namespace {

/// Walks along what was recorded; stops at the first access that is another.
class Script {
public:
    explicit Script(const std::vector<Access>& recorded) : m_recorded(recorded) {}

    void Expect(const Access& access) {
        if (m_isOff) return;
        if (m_next < m_recorded.size() && m_recorded[m_next] == access) {
            ++m_next;
            return;
        }
        m_isOff = true;
        std::ostringstream before;
        for (std::size_t i = m_next < 4 ? 0 : m_next - 4; i < m_next; ++i) before << " " << m_recorded[i];
        const auto found = m_next < m_recorded.size() ? testing::PrintToString(m_recorded[m_next]) : "the end";
        ADD_FAILURE() << "access " << m_next << ": expected " << testing::PrintToString(access) << ", found " << found
                      << ", after" << before.str();
    }
    void Expect(std::initializer_list<Access> accesses) {
        for (const Access& access : accesses) Expect(access);
    }
    void ExpectTheEnd() {
        EXPECT_TRUE(m_isOff || m_next == m_recorded.size()) << "more than expected, from access " << m_next;
    }

private:
    const std::vector<Access>& m_recorded;
    std::size_t m_next = 0;
    bool m_isOff = false;
};

class LiteralRegisters : public testing::Test {
protected:
    uint32_t Checksum() const {
        std::ostringstream text;
        text << std::ifstream(world.file.Path()).rdbuf();
        return Crc32c(text.str());
    }

    void ExpectIdentityAndSamples(Script& script) {
        script.Expect(
            {R(0x5, 0x20260418), R(0x4, 0x17), R(0x1002, 0x0A0B0C0D), R(0x1003, 0x0E0F1011), R(0x1004, 0x12131415)});
        for (int sample = 0; sample < 2; ++sample) {
            script.Expect({R64(0x1220, 20), R64(0x1230, 30), R64(0x1240, 40), R64(0x1250, 60), R64(0x1207, 50)});
        }
        script.Expect(R(0x1001, 0xC0FFEE));
    }

    void ExpectBringUp(Script& script) {
        script.Expect({W(0x10, 1), W(0x1F11, 0x0A0B0C0D), R(0x2032, 3), W(0x1000, 15), W(0x1F14, 0), W(0x1F15, 0),
                       W(0x11112, 0xFFFFFFFF), W(0x21112, 0xFFFFFFFF), W(0x3000, 10),
                       // the four snapshot sessions
                       W(0x3001, 0x0102), W(0x3002, 0x03040506), W(0x3011, 0x0102), W(0x3012, 0x03040506),
                       W(0x3021, 0x0102), W(0x3022, 0x03040506), W(0x3031, 0x0102), W(0x3032, 0x03040506),
                       W(0x3003, 0x0A140001), W(0x3013, 0x0A140001), W(0x3023, 0x0A140001), W(0x3033, 0x0A140001),
                       W(0x3004, 33022), W(0x3014, 33022), W(0x3024, 33022), W(0x3034, 33022), W(0x3005, 0x0A0B),
                       W(0x3015, 0x0A0B), W(0x3025, 0x0A0B), W(0x3035, 0x0A0B), W(0x3006, 0x0C0D0EFE),
                       W(0x3016, 0x0C0D0EFF), W(0x3026, 0x0C0D0F00), W(0x3036, 0x0C0D0F01), W(0x3007, 0x0A140002),
                       W(0x3008, 40000), W(0x3017, 0x0A140002), W(0x3018, 40000), W(0x3027, 0x0A140002),
                       W(0x3028, 40000), W(0x3037, 0x0A140002), W(0x3038, 40000),
                       // the eight groups
                       W(0x11100, 0xEF01010B), W(0x11102, 21011), W(0x11104, 0xEF01010C), W(0x11106, 21012),
                       W(0x11101, 0xEF01011F), W(0x11103, 21031), W(0x11105, 0xEF010120), W(0x11107, 21032),
                       W(0x21100, 0xEF010115), W(0x21102, 21021), W(0x21104, 0xEF010116), W(0x21106, 21022),
                       W(0x21101, 0xEF010129), W(0x21103, 21041), W(0x21105, 0xEF01012A), W(0x21107, 21042)});
    }

    /// Packet numbers and counts as the feeds come in, the end of the phase, the four tables.
    void ExpectSnapshot(Script& script) {
        script.Expect({W(0x21110, 7002), W(0x1F14, 3), W(0x21111, 7004), W(0x1F15, 1), W(0x11111, 7003), W(0x1F15, 2),
                       W(0x11110, 7001), W(0x1F14, 4), W(0x1000, 0)});
        for (std::size_t i = 0; i < TABLES.size(); ++i) {
            std::vector<Words> slots = SnapshotSlots(i);
            slots.resize(TABLES[i].slots, Words(64));
            for (uint32_t word = 0; word < 64 * TABLES[i].slots; ++word) {
                script.Expect(W(TABLES[i].writeData, slots[word / 64][word % 64]));
                script.Expect(W(TABLES[i].writeAddr, word));
            }
        }
    }

    /// `slots` is what the board's tables hold in use, and hold afterwards.
    using Slots = std::array<std::vector<Words>, 4>;

    static Slots SlotsInUse() {
        Slots slots{SnapshotSlots(0), SnapshotSlots(1), SnapshotSlots(2), SnapshotSlots(3)};
        slots[1].resize(4, Words(64));  // one count for both tables of an exchange
        slots[3].resize(2, Words(64));
        return slots;
    }

    static void ExpectUnsubscription(Script& script, uint32_t channel, Slots& slots) {
        script.Expect({R(0x1F14, 4), R(0x1F15, 2)});
        for (std::size_t i = 0; i < TABLES.size(); ++i) {
            for (uint32_t slot = 0; slot < slots[i].size(); ++slot) {
                for (uint32_t word = 0; word < 64; ++word) {
                    script.Expect(
                        {W(TABLES[i].readAddr, slot * 64 + word), R(TABLES[i].readData, slots[i][slot][word])});
                }
                slots[i][slot][0] &= ~(1U << channel);
                script.Expect({W(TABLES[i].writeData, slots[i][slot][0]), W(TABLES[i].writeAddr, slot * 64)});
            }
        }
    }

    static void ExpectSubscription(Script& script, std::size_t table, uint32_t slot, uint32_t value, Slots& slots) {
        const Table& at = TABLES[table];
        uint32_t& config = slots[table][slot][0];
        script.Expect({W(at.readAddr, slot * 64), R(at.readData, config), W(at.writeData, value),
                       W(at.writeAddr, slot * 64), W(at.readAddr, slot * 64), R(at.readData, value)});
        config = value;
    }

    void ExpectSubscriptions(Script& script) {
        Slots slots = SlotsInUse();
        for (uint32_t channel = 0; channel < 16; ++channel) {
            ExpectUnsubscription(script, channel, slots);
            if (channel == 0) {
                for (uint32_t slot = 0; slot < 4; ++slot) {
                    ExpectSubscription(script, 0, slot, slot == 3 ? 0xC0000001 : 0x80000001, slots);
                    ExpectSubscription(script, 1, slot, 0x80000001, slots);
                }
                for (uint32_t slot = 0; slot < 2; ++slot) {
                    ExpectSubscription(script, 2, slot, 0x80000001, slots);
                    ExpectSubscription(script, 3, slot, 0x80000001, slots);
                }
            }
            if (channel == 3) {
                ExpectSubscription(script, 0, 1, 0x80000009, slots);
                ExpectSubscription(script, 1, 2, 0x80000009, slots);
            }
            if (channel == 15) ExpectSubscription(script, 0, 3, 0xC0008001, slots);
        }
    }

    void ExpectEngineStart(Script& script) {
        script.Expect({W(0x1005, 82000), W(0x1006, 82101), W(0x1007, 86000), W(0x1008, 86101), W(0x1009, 6),
                       W(0x1010, 1), W(0x100, 1), W(0x101, 0),
                       // the four tables closed
                       W(0x21001, 1), W(0x21000, 0xFFFFFFFF), W(0x11001, 1), W(0x11000, 0xFFFFFFFF), W(0x11005, 1),
                       W(0x11004, 0xFFFFFFFF), W(0x21005, 1), W(0x21004, 0xFFFFFFFF), W(0x11120, 1), W(0x21120, 1)});
    }

    void ExpectVersionCheck(Script& script) {
        script.Expect({W(0x102, 0x01010133), R(0x101, 0x20260421), R(0x103, 1)});
    }

    World world{15};
};

TEST_F(LiteralRegisters, OfAStartOfAllFeedsInOrder) {
    ASSERT_EQ(world.Start(), 0);
    EXPECT_EQ(world.board.bus, 3);
    EXPECT_EQ(world.board.core, 474);
    EXPECT_EQ(world.board.streamName, "CUSTOM_CHAN0_DATA");
    Script script(world.board.accesses);
    ExpectIdentityAndSamples(script);
    ExpectBringUp(script);
    ExpectSnapshot(script);
    ExpectVersionCheck(script);
    script.Expect(W(0x1001, Checksum()));
    script.Expect({R(0x1F14, 4), R(0x1F15, 2)});  // the index file, before any subscription
    ExpectSubscriptions(script);
    ExpectEngineStart(script);
    script.ExpectTheEnd();
}

TEST_F(LiteralRegisters, OfALossAndTheRebuildAfterItInOrder) {
    ASSERT_EQ(world.Start(), 0);
    world.Forget();
    world.board.messages.push_back(Event({0x80000000, 0, 0, 0, 0, 0}));
    EXPECT_EQ(world.api->VexaRecv(), 0);
    EXPECT_THAT(world.board.accesses, ElementsAre(R(0x2030, 0x2030), R(0x2031, 0x2031), R(0x2032, 3), R(0x12015, 0x15),
                                                  R(0x1201B, 0x1B), R(0x22015, 0x25), R(0x2201B, 0x2B)));
    world.Forget();
    EXPECT_EQ(world.api->VexaRecv(), 0);
    // Neither identity nor counters, and the checksum is left as it was.
    Script script(world.board.accesses);
    ExpectBringUp(script);
    ExpectSnapshot(script);
    ExpectVersionCheck(script);
    script.Expect({R(0x1F14, 4), R(0x1F15, 2)});
    ExpectSubscriptions(script);
    ExpectEngineStart(script);
    script.ExpectTheEnd();
}

}  // namespace
}  // namespace literal
