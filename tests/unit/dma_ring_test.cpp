#include "software_board/DmaRing.h"

#include <gtest/gtest.h>

#include <cstring>
#include <deque>
#include <memory>
#include <string>
#include <thread>

#include "exchange/Random.h"

namespace software_board {
namespace {

constexpr uint32_t RECORD_BYTES = DMA_UDP_RECORD_OFFSET + 176;

class Ring : public testing::Test {
protected:
    bool Put(const std::string& text) {
        return producer.Put(text.data(), static_cast<uint32_t>(text.size()), nullptr, 0);
    }
    /// The message in front, taken; "none" when there is none.
    std::string Take() {
        uint32_t length = 0;
        const unsigned char* message = consumer.Front(length);
        if (message == nullptr) return "none";
        std::string text(reinterpret_cast<const char*>(message), length);
        consumer.Pop();
        return text;
    }
    void UseLines(uint32_t count) {
        producer = RingProducer(*ring, count);
        consumer = RingConsumer(*ring, count);
    }

    std::unique_ptr<DmaRing> ring = std::make_unique<DmaRing>();
    RingProducer producer{*ring, RING_LINES};
    RingConsumer consumer{*ring, RING_LINES};
};

TEST_F(Ring, HandsMessagesOverInOrder) {
    EXPECT_EQ(Take(), "none");
    ASSERT_TRUE(Put("first"));
    ASSERT_TRUE(Put(std::string(DMA_MESSAGE_CAPACITY, 'x')));
    ASSERT_TRUE(Put(""));
    EXPECT_EQ(Take(), "first");
    EXPECT_EQ(Take(), std::string(DMA_MESSAGE_CAPACITY, 'x'));
    EXPECT_EQ(Take(), "");
    EXPECT_EQ(Take(), "none");
}

TEST_F(Ring, LiveRecordTakesExactlyThreeCacheLines) {
    ASSERT_TRUE(Put(std::string(RECORD_BYTES, 'r')));
    EXPECT_EQ(producer.Written(), 3U);
    ASSERT_TRUE(Put(std::string(RECORD_BYTES + 1, 'r')));
    EXPECT_EQ(producer.Written(), 7U);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(ring->lines) % RING_LINE_BYTES, 0U);
}

TEST_F(Ring, MessageLongerThanAnyIsRefused) { EXPECT_FALSE(Put(std::string(DMA_MESSAGE_CAPACITY + 1, 'x'))); }

TEST_F(Ring, PollLooksAtTheEntryAlone) {
    ASSERT_TRUE(Put("message"));
    // Whatever stands in the words that tell of space, the message is there.
    ring->released = 12345;
    EXPECT_EQ(Take(), "message");
}

TEST_F(Ring, FullRingRefusesUntilLinesAreGivenBack) {
    UseLines(13);  // four records and the head behind them
    for (int i = 0; i < 4; ++i) ASSERT_TRUE(Put(std::to_string(i)));
    EXPECT_FALSE(Put("4"));
    EXPECT_EQ(Take(), "0");
    EXPECT_TRUE(Put("4"));
    for (const char* expected : {"1", "2", "3", "4", "none"}) EXPECT_EQ(Take(), expected);
}

TEST_F(Ring, LinesAreGivenBackAFewTimesALap) {
    UseLines(16'000);
    uint64_t told = 0;
    int changes = 0;
    for (int i = 0; i < 16'000 / 3; ++i) {
        ASSERT_TRUE(Put("m"));
        EXPECT_EQ(Take(), "m");
        changes += ring->released != told ? 1 : 0;
        told = ring->released;
    }
    EXPECT_GT(changes, 4);
    EXPECT_LT(changes, 10);
}

TEST_F(Ring, MessagesOfAllLengthsSurviveManyLaps) {
    UseLines(200);
    exchange::Random chance(3, "lengths");
    std::deque<std::string> expected;
    for (int i = 0; i < 20'000; ++i) {
        const std::string text(chance.Below(DMA_MESSAGE_CAPACITY + 1), static_cast<char>('a' + i % 26));
        if (Put(text)) expected.push_back(text);
        if (!chance.OneIn(2)) continue;
        ASSERT_EQ(Take(), expected.empty() ? "none" : expected.front()) << i;
        if (!expected.empty()) expected.pop_front();
    }
    for (; !expected.empty(); expected.pop_front()) ASSERT_EQ(Take(), expected.front());
    EXPECT_EQ(Take(), "none");
}

// Payload of an earlier lap that looks like a ready head must never be taken for one.
TEST_F(Ring, WhatAnEarlierLapLeftIsNoMessage) {
    UseLines(100);
    std::string heads;
    for (int i = 0; i < 500; ++i) {
        const uint32_t head = RING_READY | 4;
        heads.append(reinterpret_cast<const char*>(&head), sizeof head);
    }
    for (int lap = 0; lap < 300; ++lap) {
        ASSERT_TRUE(Put(lap % 2 == 0 ? heads : "short"));
        EXPECT_EQ(Take(), lap % 2 == 0 ? heads : "short");
        ASSERT_EQ(Take(), "none") << lap;
    }
}

TEST_F(Ring, NextReaderBeginsBehindWhatIsThere) {
    for (int i = 0; i < 3000; ++i) ASSERT_TRUE(Put(std::to_string(i)));
    for (int i = 0; i < 1500; ++i) ASSERT_EQ(Take(), std::to_string(i));
    RingConsumer next(*ring, RING_LINES);  // the first one was killed
    next.Discard();
    consumer = next;
    EXPECT_EQ(Take(), "none");
    ASSERT_TRUE(Put("new"));
    EXPECT_EQ(Take(), "new");
}

TEST_F(Ring, MessageStaysWhenItsHandlerThrows) {
    ASSERT_TRUE(Put("one"));
    ASSERT_TRUE(Put("two"));
    const auto throwing = [](const unsigned char*, unsigned int, void*) { throw std::string("handler"); };
    EXPECT_THROW(consumer.HandOver(throwing, nullptr), std::string);
    EXPECT_EQ(Take(), "two");
}

TEST_F(Ring, HandlerMayDiscardWhatItIsPartOf) {
    for (const char* text : {"one", "two", "three"}) ASSERT_TRUE(Put(text));
    consumer.HandOver(
        [](const unsigned char*, unsigned int, void* user) { static_cast<RingConsumer*>(user)->Discard(); }, &consumer);
    EXPECT_EQ(Take(), "none");
    ASSERT_TRUE(Put("four"));
    EXPECT_EQ(Take(), "four");
}

TEST_F(Ring, DamagedLengthIsReadAsNoBytes) {
    ASSERT_TRUE(Put("message"));
    RingHead(ring->lines[0]).store(RING_READY | 0x7FFFFFFF);
    EXPECT_EQ(Take(), "");
}

TEST_F(Ring, DamagedCursorIsNotBelieved) {
    UseLines(13);
    for (int i = 0; i < 4; ++i) ASSERT_TRUE(Put(std::to_string(i)));
    ring->released = UINT64_MAX - 5;
    EXPECT_FALSE(Put("4"));
    EXPECT_EQ(producer.Waiting(), 12U);
}

// Two threads, as two processes would; thread sanitizer builds look at every access.
TEST_F(Ring, CarriesEveryMessageBetweenTwoThreads) {
    constexpr uint32_t MESSAGES = 200'000;
    UseLines(1000);
    std::thread writer([this] {
        unsigned char body[RECORD_BYTES];
        for (uint32_t i = 0; i < MESSAGES; ++i) {
            std::memset(body, static_cast<int>(i % 251), sizeof body);
            const uint32_t bodyBytes = i % 7 == 0 ? 24 : RECORD_BYTES - sizeof i;
            while (!producer.Put(&i, sizeof i, body, bodyBytes)) std::this_thread::yield();
        }
    });
    uint32_t wrong = 0;
    for (uint32_t i = 0; i < MESSAGES;) {
        uint32_t length = 0;
        const unsigned char* message = consumer.Front(length);
        if (message == nullptr) {
            std::this_thread::yield();
            continue;
        }
        uint32_t number = 0;
        std::memcpy(&number, message, sizeof number);
        wrong += number != i || message[length - 1] != i % 251 || message[sizeof number] != i % 251 ? 1 : 0;
        consumer.Pop();
        ++i;
    }
    writer.join();
    EXPECT_EQ(wrong, 0U);
}

}  // namespace
}  // namespace software_board
