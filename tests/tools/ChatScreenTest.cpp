// What is drawn: text from strangers, lines, pages, whole screens.

#include <algorithm>
#include <cwchar>
#include <set>

#include "tests/tools/ChatFixture.h"
#include "tools/vexim/chat/Layout.h"
#include "tools/vexim/chat/Pace.h"
#include "tools/vexim/chat/Page.h"

namespace {

using namespace chat;

using ScreenTest = ChatTest;

constexpr double kNoon = 1'700'049'600;

TEST_F(ScreenTest, DisarmsWhatATerminalWouldObey) {
    const struct {
        const char* why;
        std::string text;
        const char* expected;
    } cases[] = {
        {"plain text stays", "grüße, 中文 👋\n\tnext", "grüße, 中文 👋\n\tnext"},
        {"colours", "\033[1;31mred\033[0m", "red"},
        {"the window's title", "\033]0;mine\007x", "x"},
        {"a title that ends with ST", "\033]0;mine\033\\x", "x"},
        {"a string without an end hides nothing", "\033]0;mine", "0;mine"},
        {"a device control string", "\033Pq#0\033\\x", "x"},
        {"one byte of C1, as UTF-8", "\u009b2Jx\u009d0;t\u009cy", "xy"},
        {"a character set", "\033(0x", "x"},
        {"a reset", "\033cx", "x"},
        {"a sequence that breaks off", "\033[12", ""},
        {"an escape inside a sequence", "\033[\033[2Jx", "x"},
        {"an escape alone", "x\033", "x"},
        {"controls",
         "a\rb\bc\ad\x7f"
         "e",
         "abcde"},
        {"a reading direction", "a\u202eb\u2066c", "abc"},
        {"what cannot be seen", "a\u200bb\ufeffc\u2063d", "abcd"},
        {"other line ends", "a\u2028b\u0085c", "a\nb\nc"},
        {"broken UTF-8",
         "a\xff"
         "b\xe4\xb8",
         "a\uFFFDb\uFFFD\uFFFD"},
        {"a NUL", std::string("a\0b", 3), "ab"},
    };
    for (const auto& [why, text, expected] : cases) EXPECT_EQ(harmless(text), expected) << why;
    EXPECT_EQ(harmlessLine("a\nb"), "a b");
    EXPECT_EQ(harmlessLine("\033[31mbob"), "\uFFFDbob") << "not to be taken for bob";
}

TEST_F(ScreenTest, PaintsEveryCharacterAsWideAsTheTerminalDoes) {
    for (wchar_t character = 1; character < 0x20000; ++character) {
        if (character >= 0xD800 && character < 0xE000) continue;
        for (const auto& cell : cellsOf(narrow(std::wstring(1, character)))) {
            if (cell.is(L'\n')) continue;
            ASSERT_GE(cell.characters[0], L' ');
            ASSERT_EQ(cell.width, wcwidth(cell.characters[0]))
                << std::hex << static_cast<unsigned>(character);
        }
    }
    const std::pair<const char*, int> cases[] = {
        {"e\u0301", 1},
        {"\u0301", 1},
        {"中", 2},
        // one family, one thumb whatever its colour, one flag, one heart
        {"👨‍👩‍👧", 2},
        {"👍🏽", 2},
        {"☝🏽", 2},
        {"🇳🇴", 2},
        {"🇳🇴🇸🇪", 4},
        {"❤️", 2},
        // joiners that join nothing have no width
        {"a\u200Db", 2},
        {"a\uFE0F", 1},
        {"\t", 1},
    };
    for (const auto& [text, width] : cases) EXPECT_EQ(widthOf(cellsOf(text)), width) << text;
    for (const char* emoji :
         {"👨‍👩‍👧‍👦", "👩🏽‍🚀", "🇳🇴", "❤️‍🔥"}) {
        const auto cells = cellsOf(emoji);
        ASSERT_EQ(cells.size(), 1u) << emoji;
        EXPECT_TRUE(cells[0].isSequence());
        EXPECT_EQ(textOf(cells), emoji) << "nothing is lost of it";
    }
    EXPECT_FALSE(cellsOf("e\u0301")[0].isSequence()) << "the terminal library does that itself";
    EXPECT_EQ(cellsOf("e" + std::string(2000, '\xcc') + "\x81").front().count, 1);
    std::string tower = "e";
    for (int mark = 0; mark < 100; ++mark) tower += "\u0301";
    EXPECT_EQ(cellsOf(tower).front().count, Cell::kMost);
    EXPECT_LT(cellsOf(std::string(8'000'000, 'x')).size(), 20'000u);
}

TEST_F(ScreenTest, WrapsAtBlanksAndBetweenWideCharacters) {
    const struct {
        const char* text;
        int width;
        const char* expected;
    } cases[] = {
        {"", 5, ""},
        {"one two three", 7, "one two|three"},
        {"one two three", 8, "one two|three"},
        {"one two", 4, "one|two"},
        {"abcdefgh", 3, "abc|def|gh"},
        {"a bcdefgh", 3, "a|bcd|efg|h"},
        {"a\n\nb", 5, "a||b"},
        {"a\n", 5, "a|"},
        {"漢字漢字", 5, "漢字|漢字"},
        {"漢字", 1, "?|?"},
        {"ab 漢", 4, "ab|漢"},
        {"bob: 漢字", 7, "bob: 漢|字"},
        {"漢字。", 4, "漢|字。"},
        {"漢「字」", 4, "漢|「字|」"},
    };
    for (const auto& [text, width, expected] : cases) {
        std::string lines;
        for (const auto& line : wrapped(cellsOf(text), width))
            lines += (lines.empty() ? "" : "|") + textOf(line);

        EXPECT_EQ(lines, expected) << text << " in " << width;
    }
}

/// A screen full of texts that could break it.
void fill(Roster& roster) {
    auto& bob = roster.open({Kind::Friend, "bob"});
    roster.rename(bob, "a name that is longer than any list is wide 漢字漢字漢字漢字漢字漢字");
    bob.online = true;
    std::vector<Entry> messages;
    for (const char* text :
         {"short", "漢字漢字漢字漢字漢字 👨‍👩‍👧 e\u0301",
          "\033[2Jmany\nlines\n\n\nhere", "", "loooooooooooooooooooooooooooooooooooong"}) {
        messages.push_back(
            messageFrom("\033]0;x\007a very long sender's name that does not end", kNoon, text));
    }
    messages.push_back(messageFrom("bob", kNoon + 86'400, "the next day"));
    messages.push_back(ownMessage(kNoon, "never", Delivery::Failed));
    messages.back().failure = "no\nreason";
    messages.push_back(ownMessage(kNoon, "later", Delivery::Waiting));
    messages.back().failure = "no connection";
    messages.push_back(ownMessage(kNoon, "", Delivery::Sending));
    messages.back().file =
        File{"image", "dot.png", "/some/where/dot.png", 0, 45, "1.2 MB/s, 8 s left"};
    bob.show(numbered(std::move(messages)));
    for (int number = 0; number < 20; ++number)
        roster.open({Kind::Group, "g" + std::to_string(number)}).unread = number * 100;
    roster.select(bob);
}

TEST_F(ScreenTest, FitsEveryScreen) {
    Roster roster;
    fill(roster);
    EditLine line;
    line.insert(L"typed 漢字");
    for (int columns = 1; columns <= 130; ++columns) {
        for (int rows = 1; rows <= 30; rows += rows < 8 ? 1 : 7) {
            const auto frame =
                draw(roster, {"a status that is rather long, longer than most", true}, line,
                     {columns, rows});
            ASSERT_EQ(static_cast<int>(frame.rows.size()), rows) << columns;
            for (const auto& row : frame.rows) {
                ASSERT_LE(widthOf(row), columns) << columns << "x" << rows << ": " << textOf(row);
                ASSERT_TRUE(std::none_of(row.begin(), row.end(), [](const Cell& cell) {
                    return cell.characters[0] < L' ';
                }));
            }
            ASSERT_TRUE(frame.cursorRow == rows - 1 && frame.cursorColumn < columns);
        }
    }
    std::string screen;
    for (const auto& row : draw(roster, {}, line, {80, 30}).rows) screen += textOf(row) + "\n";
    for (const char* text :
         {"● ", "lines", "Wednesday, 15 November", "Thursday, 16 November",
          "(not sent: no reason; /retry)", "later (waits to be sent: no connection)",
          "[image] dot.png [#########-----------] 45%", "MB/s, 8 s", "/cancel", "> typed 漢字"}) {
        EXPECT_NE(screen.find(text), std::string::npos) << text << " in\n" << screen;
    }
}

TEST_F(ScreenTest, ShowsAReasonToItsEnd) {
    Roster roster;
    const std::string reason =
        "attempt 4 failed: next attempt within 10 s, /resume tries now (Could not connect: Connection refused. Are "
        "the address and the port right?)";
    for (const int columns : {60, 80, 100}) {
        std::string screen;
        for (const auto& row : draw(roster, {reason, true}, EditLine(), {columns, 24}).rows)
            screen += textOf(row);
        screen.erase(std::unique(screen.begin(), screen.end(),
                                 [](char a, char b) { return a == ' ' && b == ' '; }),
                     screen.end());
        EXPECT_NE(screen.find(reason), std::string::npos) << columns << ": " << screen;
        EXPECT_EQ(pageSize({columns, 24}, {reason, true}).rows, columns == 60 ? 19 : 20);
    }
}

TEST_F(ScreenTest, BeginsALongNoticeWithItsFirstLine) {
    Conversation conversation({Kind::Friend, "bob"});
    conversation.older = Older::Nothing;
    conversation.show(numbered({messageFrom("bob", kNoon, "before")}));
    conversation.notice(messageFrom("", kNoon + 1, "first\n2\n3\n4\n5\n6\nlast"));
    showFromItsStart(conversation, 40, 4);
    EXPECT_NE(textOf(linesOf(conversation, 40, 4).front()).find("first"), std::string::npos);
    conversation.anchor.reset();
    showFromItsStart(conversation, 40, 20);
    EXPECT_FALSE(conversation.anchor) << "one that fits is followed";
}

TEST_F(ScreenTest, TellsSpeedAndRemainingTime) {
    Pace fetched;
    EXPECT_EQ(fetched.text(), "");
    fetched.reached(0, std::nullopt, 100);
    fetched.reached(1'000'000, std::nullopt, 100.2);
    EXPECT_EQ(fetched.text(), "") << "too early to say";
    fetched.reached(3'000'000, std::nullopt, 102);
    EXPECT_EQ(fetched.text(), "1.5 MB/s");
    fetched.reached(3'000'000, 18'000'000, 102);
    EXPECT_EQ(fetched.text(), "1.5 MB/s, 10 s left");
    for (int second = 103; second <= 110; ++second)
        fetched.reached(3'000'000 + (second - 102) * 1'000, 18'000'000, second);
    EXPECT_EQ(fetched.text(), "1.0 kB/s, 5 h left") << "what was fast is forgotten";
    fetched.reached(10, 18'000'000, 111);
    EXPECT_EQ(fetched.text(), "") << "it began anew";
    Pace sent(50'000);
    sent.reachedPercent(0, 1);
    sent.reachedPercent(40, 2);
    EXPECT_EQ(sent.text(), "20 kB/s, 2 s left");
    Pace unknown;
    unknown.reachedPercent(40, 2);
    EXPECT_EQ(unknown.text(), "");
}

TEST_F(ScreenTest, KeepsTheColumnsOfATable) {
    Conversation console({});
    Entry notice =
        messageFrom("", kNoon, "keys:\n  a   one two three four five\n\n  no table here");
    console.notice(notice);
    std::string lines;
    for (const auto& line : linesOfEntry(console, 0, 20)) lines += textOf(line) + "|";
    EXPECT_NE(lines.find("|-- keys:|  a   one two three|      four five||  no table here|"),
              std::string::npos)
        << lines;
}

TEST_F(ScreenTest, ScrollsOverEveryLineAndStaysWhereItIs) {
    constexpr int kWidth = 40;
    constexpr int kHeight = 10;
    Conversation conversation({Kind::Friend, "bob"});
    conversation.older = Older::Nothing;
    std::vector<Entry> messages;
    for (int number = 0; number < 10'000; ++number) {
        const char* const text =
            number % 7 == 0 ? "a message of several lines, as they come now and then" : "m";
        messages.push_back(messageFrom("bob", kNoon + number * 60, text));
    }
    conversation.show(numbered(messages));
    std::size_t whole = 0;
    for (std::size_t index = 0; index < conversation.entries().size(); ++index)
        whole += linesOfEntry(conversation, index, kWidth).size();

    // A page overlaps the one before by a line, so this many steps see all of it.
    std::size_t steps = 1;
    while (!scroll(conversation, kWidth, kHeight, -(kHeight - 1))) ++steps;
    EXPECT_EQ(steps, (whole - kHeight + kHeight - 2) / (kHeight - 1));
    const auto top = linesOf(conversation, kWidth, kHeight);
    ASSERT_EQ(top.size(), static_cast<std::size_t>(kHeight));
    EXPECT_EQ(textOf(top.front()), "(the beginning)");

    messages.push_back(messageFrom("bob", kNoon, "new"));
    conversation.show(numbered(messages));
    EXPECT_EQ(linesOf(conversation, kWidth, kHeight), top) << "what comes does not move the view";
    EXPECT_TRUE(scroll(conversation, kWidth, kHeight, -5)) << "there is nothing above";
    EXPECT_EQ(linesOf(conversation, kWidth, kHeight), top);
    EXPECT_EQ(linesOf(conversation, kWidth, 5 * kHeight).size(), 5u * kHeight)
        << "a larger screen is filled from below";

    for (std::size_t step = 0; step < steps + 1; ++step)
        scroll(conversation, kWidth, kHeight, kHeight - 1);
    EXPECT_FALSE(conversation.anchor) << "at the end it follows again";
    EXPECT_NE(textOf(linesOf(conversation, kWidth, kHeight).back()).find("new"), std::string::npos);

    scroll(conversation, kWidth, kHeight, -3);
    EXPECT_LE(linesOf(conversation, 7, kHeight).size(), static_cast<std::size_t>(kHeight))
        << "a resize wraps anew";
}

}  // namespace
