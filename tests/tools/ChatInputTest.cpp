// What is typed: the line, commands, completion; and names of files that other people chose.

#include <fstream>
#include <iterator>
#include <sstream>

#include "support/TemporaryFolder.h"
#include "tests/tools/ChatFixture.h"
#include "tools/vexim/chat/Completion.h"
#include "tools/vexim/chat/EditLine.h"
#include "tools/vexim/chat/Files.h"

namespace {

using namespace chat;

using InputTest = ChatTest;

/// The line with "|" where the cursor is.
std::string describe(const std::wstring& text, std::size_t cursor) {
    return narrow(text.substr(0, cursor)) + "|" + narrow(text.substr(cursor));
}

TEST_F(InputTest, EditsTheLine) {
    // One letter a key: < > move, ( ) by words, ^ $ to the ends, - + erase, w W cut words, u k cut
    // to the ends, y inserts, p n go through the history, ! sends.
    const auto press = [](EditLine& line, const std::string& keys) {
        for (const char key : keys) {
            switch (key) {
                case '<': line.left(); break;
                case '>': line.right(); break;
                case '(': line.wordLeft(); break;
                case ')': line.wordRight(); break;
                case '^': line.home(); break;
                case '$': line.end(); break;
                case '-': line.eraseLeft(); break;
                case '+': line.eraseRight(); break;
                case 'w': line.cutWordLeft(); break;
                case 'W': line.cutWordRight(); break;
                case 'u': line.cutLeft(); break;
                case 'k': line.cutRight(); break;
                case 'y': line.yank(); break;
                case 'p': line.previous(); break;
                case 'n': line.next(); break;
                case '!': line.take(); break;
                default: FAIL() << key;
            }
        }
    };
    const struct {
        const char* why;
        const char* typed;
        const char* keys;
        const char* expected;
    } cases[] = {
        {"ends hold", "ab", "<<<>>>>$^", "|ab"},
        {"erasing at the ends", "ab", "+^-", "|ab"},
        {"a combining mark goes with its character", "e\u0301x", "<<", "|e\u0301x"},
        {"… and is erased with it", "xe\u0301", "-", "x|"},
        {"an emoji is one place, whatever it is made of", "a👩🏽‍🚀👍🏽b", "<<<",
         "a|👩🏽‍🚀👍🏽b"},
        {"flags are taken two letters at a time", "🇳🇴🇸🇪", "<", "🇳🇴|🇸🇪"},
        {"… and erased so", "🇳🇴🇸🇪", "-", "🇳🇴|"},
        {"words", "one, two  three", "((", "one, |two  three"},
        {"words of other scripts", "eins größer 中文", "((", "eins |größer 中文"},
        {"cut and inserted again", "one two", "w^y", "two|one "},
        {"cutting nothing keeps what was cut", "one two", "w^uy", "two|one "},
        {"to the ends", "one two", "(k^y", "two|one "},
        {"a word to the right", "one two", "^W", "| two"},
        {"the past ends, and the line being typed is kept", "first", "!ppnn", "|"},
        {"the past comes back", "first", "!p<", "firs|t"},
    };
    for (const auto& [why, typed, keys, expected] : cases) {
        EditLine line;
        line.insert(wide(typed));
        press(line, keys);
        EXPECT_EQ(describe(line.text(), line.cursor()), expected) << why;
    }

    EditLine line;
    line.insert(std::wstring(EditLine::kLongest + 5, L'x'));
    EXPECT_EQ(line.text().size(), EditLine::kLongest);
}

TEST_F(InputTest, ShowsThePartAroundTheCursor) {
    EditLine line;
    line.insert(L"漢字 and e\u0301 👩🏽‍🚀 more\nlines");
    for (int width = 1; width < 40; ++width) {
        line.home();
        for (std::size_t step = 0; step <= line.text().size(); ++step) {
            const auto shown = line.shown(width);
            ASSERT_LE(widthOf(shown.cells), width);
            ASSERT_LT(shown.cursorColumn, width);
            line.right();
        }
    }
    EXPECT_EQ(textOf(line.shown(12).cells), " more⏎lines");
}

TEST_F(InputTest, TellsCommandsFromMessages) {
    const struct {
        const char* line;
        const char* expected;  // name, then the words, divided by "|"; nullptr: a message
    } cases[] = {
        {"hello", nullptr},
        {"//etc", nullptr},
        {"/", ""},
        {"/quit", "quit"},
        {"/group  add bob   eve ", "group|add|bob|eve"},
        {"/group new \"Reading circle\" bob", "group|new|Reading circle|bob"},
        {"/send \"\"", "send|"},
        {"/ quit", "|quit"},
    };
    for (const auto& [line, expected] : cases) {
        const auto command = parseCommand(line);
        ASSERT_EQ(command.has_value(), expected != nullptr) << line;
        if (!command) continue;
        std::string all = command->name;
        for (const auto& word : command->words) all += "|" + word;
        EXPECT_EQ(all, expected) << line;
    }
    const struct {
        const char* line;
        std::size_t from;
        const char* file;
    } files[] = {
        {"/send my holiday  picture.png ", 0, "my holiday  picture.png"},
        {"/send \"my picture.png\"", 0, "my picture.png"},
        {"/save 12 to this place", 1, "to this place"},
        {"/save 12 \"to this place\"", 1, "to this place"},
    };
    for (const auto& [line, from, file] : files)
        EXPECT_EQ(fileIn(*parseCommand(line), from), file) << line;
    EXPECT_EQ(messageText("//etc"), "/etc");
    EXPECT_TRUE(parseCommand("/send \"a b")->isUnfinished);
}

TEST_F(InputTest, CompletesCommandsAndNames) {
    KnownNames names;
    names.friends = {"bob", "bobby", "Zoë"};
    names.groups = {"Demo group", "Demo two"};
    names.members = {"mallory"};
    names.files = [](const std::string&) {
        return std::vector<std::string>{"dir/", "dot.png", "my photo.png"};
    };
    const struct {
        const char* typed;  // "|" is the cursor
        const char* expected;
        const char* choices;
    } cases[] = {
        {"/qu|", "/quit |", ""},
        {"/re|", "/re|", "/refresh /resume /retry"},
        {"/group a|", "/group add |", ""},
        {"/group De|", "/group \"Demo |", "Demo group Demo two"},
        {"/group \"Demo g|", "/group \"Demo group\" |", ""},
        {"/friend b|", "/friend bob|", "bob bobby"},
        {"/friend remove Z| later", "/friend remove Zoë | later", ""},
        {"/group remove m|", "/group remove mallory |", ""},
        {"/send d|", "/send d|", "dir/ dot.png"},
        {"/send di|", "/send dir/|", ""},
        {"/send my ph|", "/send \"my photo.png\" |", ""},
        {"/save 2 my |", "/save 2 \"my photo.png\" |", ""},
        {"ask mal|", "ask mallory |", ""},
        {"|", "|", ""},
        {"/nonsense x|", "/nonsense x|", ""},
    };
    for (const auto& [typed, expected, choices] : cases) {
        const std::string line = typed;
        const auto bar = line.find('|');
        const std::wstring before = wide(line.substr(0, bar));
        const auto done = complete(before + wide(line.substr(bar + 1)), before.size(), names);
        std::string offered;
        for (const auto& choice : done.choices) offered += (offered.empty() ? "" : " ") + choice;
        EXPECT_EQ(describe(done.text, done.cursor), expected);
        EXPECT_EQ(offered, choices) << typed;
    }
}

TEST_F(InputTest, IsWrittenDownInItsPage) {
    std::ifstream file(VEXIM_CHAT_PAGE);
    const std::string page((std::istreambuf_iterator<char>(file)),
                           std::istreambuf_iterator<char>());
    std::istringstream help(helpText());
    for (std::string line; std::getline(help, line);) {
        if (!line.starts_with("  ")) continue;
        const auto words = line.substr(0, line.find("  ", 3)).substr(2);  // the key or the command
        const auto known = words.size() > 25 ? words.substr(0, 25) : words;
        EXPECT_NE(page.find("| " + std::string(known[0] == '/' ? "`" : "") + known),
                  std::string::npos)
            << known;
    }
}

TEST_F(InputTest, NamesFilesSafely) {
    const std::pair<const char*, const char*> cases[] = {
        {"http://h/files/dot.png", "dot.png"},
        {"http://h/files/dot.png?x=/etc/passwd#y", "dot.png"},
        {"http://h/", "file"},
        {"http://h/..", "_."},
        {"http://h/.bashrc", "_bashrc"},
        {"http://h/-rf", "_rf"},
        {"http://h/a\\..\\b", "b"},
        {"http://h/\033[2Ja\nb",
         "\uFFFD"
         "a b"},
    };
    for (const auto& [url, expected] : cases) EXPECT_EQ(fileNameFor(url), expected) << url;
    EXPECT_EQ(safeFileName("why? #1.png"), "why? #1.png") << "a name is no URL";
    EXPECT_EQ(safeFileName("../../.profile"), "_profile");
    EXPECT_LE(fileNameFor("http://h/" + std::string(5000, 'x') + ".png").size(), 120u);

    const vexim::testing::TemporaryFolder folder;
    EXPECT_EQ(placeFor(folder.path(), "dot.png"), folder / "dot.png");
    std::ofstream(folder / "dot.png") << "taken";
    EXPECT_EQ(placeFor(folder.path(), "a/dot.png"), folder / "dot (1).png");
    EXPECT_THROW(placeFor(folder / "dot.png", "x.png"), std::invalid_argument);
}

}  // namespace
