#include "VarkCore/Foundation/URL.h"

#include <gtest/gtest.h>

namespace vark {
namespace {

TEST(URL, KeepsAFormThatMayStandInARequestAndRefusesWhatIsNone) {
    const std::pair<const char*, const char*> cases[] = {
        {"/a b?c d#e f", "/a%20b?c%20d#e%20f"},
        {"https://h/%41%zz%", "https://h/%41%25zz%25"},
        {"https://h/M\u00FCll[1]|\"<>\\^`{}\n", "https://h/M%C3%BCll%5B1%5D%7C%22%3C%3E%5C%5E%60%7B%7D%0A"},
        {"https://h/?q=#one#two", "https://h/?q=#one%23two"},
        {"https://m\u00FCll.example/", "https://m%C3%BCll.example/"},
        {"api/items/5", "api/items/5"},
    };
    for (const auto& [given, text] : cases)
        EXPECT_EQ(URL::parse(given).value().text(), text);
    for (const char* text : {"", "https://va rk.example/", "https://\"h\"/", "http://h:65536/",
                             "http://h:port/", "http://[::1/", " https://h/", "://h"})
        EXPECT_EQ(URL::parse(text), std::nullopt) << text;
}

TEST(URL, ResolvesReferencesAgainstItself) {
    const URL base = URL::parse("http://a/b/c/d;p?q").value();
    const std::pair<const char*, const char*> cases[] = {
        {"./g", "http://a/b/c/g"},
        {"/g", "http://a/g"},
        {"//g", "http://g"},
        {"?y", "http://a/b/c/d;p?y"},
        {"", "http://a/b/c/d;p?q"},
        {"../../../g", "http://a/g"},
        {"n\u00E4 h", "http://a/b/c/n%C3%A4%20h"},
        {"https://other/x", "https://other/x"},
    };
    for (const auto& [reference, resolved] : cases)
        EXPECT_EQ(base.resolving(reference).value().text(), resolved) << reference;
    EXPECT_EQ(base.resolving("http://bad host/"), std::nullopt);
    EXPECT_EQ(URL::parse("x:/..//y")->resolving("")->text(), "x:/.//y") << "y is no host";
}

TEST(URL, GrowsItsPathBeforeQueryAndFragment) {
    const auto appended = [](const char* base, const char* path) {
        return URL::parse(base)->appendingPath(path).text();
    };
    EXPECT_EQ(appended("https://h", "api/items"), "https://h/api/items");
    EXPECT_EQ(appended("https://h/v//", "/api"), "https://h/v/api");
    EXPECT_EQ(appended("https://h/v?q#f", "a b?%"), "https://h/v/a%20b%3F%25?q#f");
    const auto suffixed = [](const char* base, const char* path) {
        return URL::parse(base)->withPathSuffix(path).text();
    };
    EXPECT_EQ(suffixed("https://h/u/abc?s=1", "/5"), "https://h/u/abc/5?s=1");
    EXPECT_EQ(suffixed("https://h", "5"), "https://h/5");
}

TEST(URL, EncodesQueryAndPath) {
    EXPECT_EQ(withQuery("/api", {{"path", "a/b c+d&e=\u00E9"}, {"n", "1"}}),
              "/api?path=a%2Fb%20c%2Bd%26e%3D%C3%A9&n=1");
    EXPECT_EQ(percentEncodedPath("/a b/%41?#\u00E9"), "/a%20b/%2541%3F%23%C3%A9");
    EXPECT_EQ(percentEncodedByAlphanumerics("\u00E9 a/b-1&"), "\u00E9%20a%2Fb-1%26");
    EXPECT_EQ(percentEncodedByAlphanumerics("\xC3"), std::nullopt);
}

}  // namespace
}  // namespace vark
