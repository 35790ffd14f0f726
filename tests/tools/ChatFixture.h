#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "tools/vexim/chat/Conversation.h"
#include "tools/vexim/chat/Text.h"

/// Sets UTF-8 and the time zone that the tests expect.
class ChatTest : public testing::Test {
protected:
    static void SetUpTestSuite() {
        ::setenv("LC_ALL", "C.UTF-8", 1);
        ::setenv("TZ", "UTC", 1);
        ASSERT_TRUE(chat::useUTF8());
    }
};

inline chat::Entry messageFrom(const std::string& sender, double time, const std::string& text) {
    chat::Entry entry;
    entry.sender = sender;
    entry.time = time;
    entry.text = text;
    return entry;
}

/// With ids from 1 on, as a store gives them.
inline std::vector<chat::Entry> numbered(std::vector<chat::Entry> messages) {
    std::uint64_t id = 0;
    for (auto& message : messages) message.id = ++id;
    return messages;
}

inline chat::Entry ownMessage(double time, const std::string& text, chat::Delivery delivery) {
    auto entry = messageFrom("me", time, text);
    entry.isOwn = true;
    entry.delivery = delivery;
    return entry;
}
