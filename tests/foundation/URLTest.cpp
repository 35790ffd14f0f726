#include "VexIMLib/Foundation/URL.h"

#include <gtest/gtest.h>

#include <filesystem>

using namespace vexim;

namespace {

// "scheme|user|password|host|port|path|query", with "-" for what is absent.
std::string parts(const URL& url) {
    const auto text = [](const std::optional<std::string>& part) { return part ? *part : "-"; };
    return url.scheme() + "|" + text(url.user()) + "|" + text(url.password()) + "|" + url.host() +
           "|" + (url.port() ? std::to_string(*url.port()) : "-") + "|" + url.encodedPath() + "|" +
           text(url.query());
}

}  // namespace

TEST(URL, ReadsItsParts) {
    const std::pair<const char*, const char*> cases[] = {
        {"https://im.example.com", "https|-|-|im.example.com|-||-"},
        {"HTTP://Host:8080/a/b%20c?x=1&y=?#f", "http|-|-|Host|8080|/a/b%20c|x=1&y=?"},
        {"ws://us%40er:p%3Aw@h:0", "ws|us@er|p:w|h|0||-"},
        {"http://[::1]:443/", "http|-|-|::1|443|/|-"},
        {"http://h:/p", "http|-|-|h|-|/p|-"},
        {"file:///tmp/x", "file|-|-||-|/tmp/x|-"},
        {"/groups/g1?", "|-|-||-|/groups/g1|"},
        {"mailto:a@b", "mailto|-|-||-|a@b|-"},
        {"a/b:c", "|-|-||-|a/b:c|-"},
        {"", "|-|-||-||-"},
    };
    for (const auto& [text, expected] : cases) {
        const auto url = URL::parse(text);
        ASSERT_TRUE(url) << text;
        EXPECT_EQ(parts(*url), expected) << text;
        EXPECT_EQ(url->absoluteString(), text);
    }
    EXPECT_EQ(URL::parse("wss://h")->portOrDefault(), 443);
    EXPECT_EQ(URL::parse("http://h:81")->portOrDefault(), 81);
}

TEST(URL, RefusesWhatNoURLMayHold) {
    const std::pair<const char*, const char*> cases[] = {
        {"a blank", "http://h/a b"},
        {"a control character", "http://h/a\n"},
        {"not ASCII", "http://h/ü"},
        {"a quote", "http://h/\""},
        {"a brace", "http://h/{id}"},
        {"a backslash", "http:\\\\h"},
        {"a broken escape", "http://h/%4"},
        {"an escape of no digits", "http://h/%zz"},
        {"two fragments", "http://h/#a#b"},
        {"a port that is none", "http://h:x/"},
        {"a port with something behind it", "http://h:80x/"},
        {"a port too large", "http://h:65536/"},
        {"an address without its end", "http://[::1/"},
        {"a name in brackets", "http://[host]/"},
        {"something behind the bracket", "http://[::1]x/"},
        {"two at signs", "http://a@b@c/"},
        {"a bracket in the path", "http://h/a[0]"},
    };
    for (const auto& [why, text] : cases) EXPECT_FALSE(URL::parse(text)) << why;
}

TEST(URL, ResolvesAsTheStandardsExamplesDo) {
    const auto base = URL::parse("http://a/b/c/d;p?q");
    const std::pair<const char*, const char*> cases[] = {
        // RFC 3986 section 5.4.1 and 5.4.2
        {"g:h", "g:h"},
        {"g", "http://a/b/c/g"},
        {"./g", "http://a/b/c/g"},
        {"g/", "http://a/b/c/g/"},
        {"/g", "http://a/g"},
        {"//g", "http://g"},
        {"?y", "http://a/b/c/d;p?y"},
        {"g?y", "http://a/b/c/g?y"},
        {"#s", "http://a/b/c/d;p?q#s"},
        {"g#s", "http://a/b/c/g#s"},
        {"g?y#s", "http://a/b/c/g?y#s"},
        {";x", "http://a/b/c/;x"},
        {"g;x", "http://a/b/c/g;x"},
        {"g;x?y#s", "http://a/b/c/g;x?y#s"},
        {"", "http://a/b/c/d;p?q"},
        {".", "http://a/b/c/"},
        {"./", "http://a/b/c/"},
        {"..", "http://a/b/"},
        {"../", "http://a/b/"},
        {"../g", "http://a/b/g"},
        {"../..", "http://a/"},
        {"../../", "http://a/"},
        {"../../g", "http://a/g"},
        {"../../../g", "http://a/g"},
        {"../../../../g", "http://a/g"},
        {"/./g", "http://a/g"},
        {"/../g", "http://a/g"},
        {"g.", "http://a/b/c/g."},
        {".g", "http://a/b/c/.g"},
        {"g..", "http://a/b/c/g.."},
        {"..g", "http://a/b/c/..g"},
        {"./../g", "http://a/b/g"},
        {"./g/.", "http://a/b/c/g/"},
        {"g/./h", "http://a/b/c/g/h"},
        {"g/../h", "http://a/b/c/h"},
        {"g;x=1/./y", "http://a/b/c/g;x=1/y"},
        {"g;x=1/../y", "http://a/b/c/y"},
        {"g?y/./x", "http://a/b/c/g?y/./x"},
        {"g?y/../x", "http://a/b/c/g?y/../x"},
        {"g#s/./x", "http://a/b/c/g#s/./x"},
        {"g#s/../x", "http://a/b/c/g#s/../x"},
        {"http:g", "http:g"},
    };
    for (const auto& [reference, expected] : cases)
        EXPECT_EQ(base->resolve(reference)->absoluteString(), expected) << reference;
    EXPECT_EQ(URL::parse("https://u@h:8443")->resolve("x/y")->absoluteString(),
              "https://u@h:8443/x/y");
    EXPECT_FALSE(base->resolve("a b"));
}

TEST(URL, NamesFiles) {
    const auto url = URL::fileURLWithPath("/tmp/ü %#?/photo.final.png");
    EXPECT_EQ(url.absoluteString(), "file:///tmp/%C3%BC%20%25%23%3F/photo.final.png");
    EXPECT_EQ(url.path(), "/tmp/ü %#?/photo.final.png");
    EXPECT_EQ(url.lastPathComponent(), "photo.final.png");
    EXPECT_EQ(url.pathExtension(), "png");
    EXPECT_EQ(URL::fileURLWithPath("a b.png").path(), std::filesystem::current_path() / "a b.png");
    EXPECT_EQ(URL::fileURLWithPath("").path(), "");
    const std::tuple<const char*, const char*, const char*> cases[] = {
        {"http://h/a/b/", "b", ""},
        {"http://h/", "/", ""},
        {"http://h", "", ""},
        {"http://h/.hidden", ".hidden", ""},
        {"x.y/z", "z", ""}};
    for (const auto& [text, last, extension] : cases) {
        EXPECT_EQ(URL::parse(text)->lastPathComponent(), last) << text;
        EXPECT_EQ(URL::parse(text)->pathExtension(), extension) << text;
    }
}

TEST(PercentEscapes, EscapeWhatTheirRuleSays) {
    EXPECT_EQ(percentEncode("aZ09-._~ /?&=+ü%"), "aZ09-._~%20%2F%3F%26%3D%2B%C3%BC%25");
    EXPECT_EQ(percentEscapeLegacy("a b%#[]{}\"ü"), "a%20b%25%23%5B%5D%7B%7D%22%C3%BC");
    EXPECT_EQ(percentEscapeLegacy("-_.!~*'();/?:@&=+$,"), "-_.!~*'();/?:@&=+$,");
    EXPECT_EQ(percentDecode("%C3%bc%20%zz%4"), "ü %zz%4");
}
