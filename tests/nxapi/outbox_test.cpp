#include "nxapi/outbox.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "nxapi/backoff.h"

namespace {

using nxapi::Message;
using nxapi::Outbox;

Message message(const std::string &payload) {
    Message message;
    message.payload = payload;
    return message;
}

/** Everything that waits, in its order; empties the box. */
std::vector<std::string> drain(Outbox &box) {
    std::vector<std::string> payloads;
    while (const Message *next = box.next()) {
        payloads.push_back(next->payload);
        box.sent(1000);
        box.acknowledged(1000);
    }
    return payloads;
}

TEST(Outbox, BoundsTheBytesToo) {
    Outbox box(100, 10);
    box.push(message("1234"));
    Message whole = message("5");
    whole.topic = "67";
    whole.correlation = "8";
    box.push(std::move(whole));
    box.push(message("abcdef"));  // fits beside one of them only
    EXPECT_FALSE(box.push(message("12345678901")));
    EXPECT_THAT(drain(box), ::testing::ElementsAre("5", "abcdef"));
    // The bytes are free again.
    EXPECT_TRUE(box.push(message("1234567890")));
    EXPECT_EQ(box.waiting(), 1U);
}

TEST(Outbox, SendsAgainWhatWasNotAcknowledged) {
    Outbox box(10, 100);
    for (const char *text : {"1", "2", "3", "4"}) {
        box.push(message(text));
    }
    box.sent(11);
    box.sent(12);
    box.sent(13);
    EXPECT_EQ(box.in_flight(), 3U);
    EXPECT_TRUE(box.acknowledged(12));
    EXPECT_FALSE(box.acknowledged(12));
    EXPECT_FALSE(box.acknowledged(99));
    box.link_lost();
    EXPECT_EQ(box.in_flight(), 0U);
    EXPECT_THAT(drain(box), ::testing::ElementsAre("1", "3", "4"));
}

TEST(Outbox, WhatIsOnItsWayIsNeitherCountedNorDropped) {
    Outbox box(2, 100);
    box.push(message("1"));
    box.sent(11);
    box.push(message("2"));
    box.push(message("3"));
    EXPECT_EQ(box.take_dropped(), 0U);
    box.link_lost();  // now it waits as well
    EXPECT_EQ(box.take_dropped(), 1U);
    EXPECT_THAT(drain(box), ::testing::ElementsAre("2", "3"));
}

TEST(Backoff, DoublesToAMinuteWithChance) {
    using Pause = nxapi::Backoff::Pause;
    nxapi::Backoff backoff(std::chrono::seconds(1), 42);
    for (int round = 0; round < 2; ++round) {
        for (const int whole : {1, 2, 4, 8, 16, 32, 60, 60, 60}) {
            const Pause pause = backoff.next();
            EXPECT_GE(pause, Pause(whole * 500));
            EXPECT_LE(pause, Pause(whole * 1000));
        }
        backoff.reset();
    }
    nxapi::Backoff other(std::chrono::seconds(60), 1'000'000'007);
    EXPECT_NE(other.next(), nxapi::Backoff(std::chrono::seconds(60), 42).next());
}

}  // namespace
