#include "VarkCore/Foundation/URL.h"

#include <gtest/gtest.h>

namespace vark {
namespace {

TEST(URL, KeepsAFormThatMayStandInARequest) {
    struct Case {
        const char* given;
        const char* text;
    };
    for (const Case& each :
         {Case{"https://vark.example/api", "https://vark.example/api"},
          Case{"/a b?c d#e f", "/a%20b?c%20d#e%20f"}, Case{"https://h/M\xC3\xBCll", "https://h/M%C3%BCll"},
          Case{"https://h/%41%zz%", "https://h/%41%25zz%25"},
          Case{"https://h/a[1]|\"<>\\^`{}\n", "https://h/a%5B1%5D%7C%22%3C%3E%5C%5E%60%7B%7D%0A"},
          Case{"https://h/?q=#one#two", "https://h/?q=#one%23two"},
          Case{"http://[::1]:8080/x", "http://[::1]:8080/x"},
          Case{"https://m\xC3\xBCll.example/", "https://m%C3%BCll.example/"},
          Case{"api/items/5", "api/items/5"}}) {
        const std::optional<URL> url = URL::parse(each.given);
        ASSERT_TRUE(url) << each.given;
        EXPECT_EQ(url->text(), each.text);
    }
}

TEST(URL, RefusesWhatIsNone) {
    for (const char* text :
         {"", "https://va rk.example/", "https://\"h\"/", "http://h:65536/", "http://h:99999/",
          "http://h:port/", "http://[::1/", " https://h/", "1http://h/", "://h"}) {
        EXPECT_EQ(URL::parse(text), std::nullopt) << text;
    }
}

TEST(URL, GivesItsPieces) {
    const URL url = URL::parse("HTTPS://me@[fe80::1]:8443/a%2Fb/?q=1&r#f").value();
    EXPECT_EQ(url.scheme(), "https");
    EXPECT_EQ(url.host(), "fe80::1");
    EXPECT_EQ(url.port(), 8443);
    EXPECT_EQ(url.path(), "/a%2Fb/");
    EXPECT_EQ(url.query(), "q=1&r");
    EXPECT_EQ(url.requestTarget(), "/a%2Fb/?q=1&r");

    const URL bare = URL::parse("http://Vark.example:").value();
    EXPECT_EQ(bare.host(), "Vark.example");
    EXPECT_EQ(bare.port(), std::nullopt);
    EXPECT_EQ(bare.query(), std::nullopt);
    EXPECT_EQ(bare.requestTarget(), "/");
    EXPECT_EQ(URL::parse("api")->scheme(), "");
}

TEST(URL, ResolvesReferencesAgainstItself) {
    struct Case {
        const char* reference;
        const char* resolved;
    };
    const URL base = URL::parse("http://a/b/c/d;p?q").value();
    for (const Case& each :
         {Case{"g:h", "g:h"}, Case{"g", "http://a/b/c/g"}, Case{"./g", "http://a/b/c/g"},
          Case{"g/", "http://a/b/c/g/"}, Case{"/g", "http://a/g"}, Case{"//g", "http://g"},
          Case{"?y", "http://a/b/c/d;p?y"}, Case{"#s", "http://a/b/c/d;p?q#s"},
          Case{"", "http://a/b/c/d;p?q"}, Case{"..", "http://a/b/"}, Case{"../g", "http://a/b/g"},
          Case{"../../g", "http://a/g"}, Case{"../../../g", "http://a/g"},
          Case{"g?y/../x", "http://a/b/c/g?y/../x"}, Case{"n\xC3\xA4 h", "http://a/b/c/n%C3%A4%20h"},
          Case{"https://other/x", "https://other/x"}}) {
        const std::optional<URL> resolved = base.resolving(each.reference);
        ASSERT_TRUE(resolved) << each.reference;
        EXPECT_EQ(resolved->text(), each.resolved) << each.reference;
    }
    EXPECT_EQ(base.resolving("http://bad host/"), std::nullopt);
    EXPECT_EQ(URL::parse("x:/..//y")->resolving("")->text(), "x:/.//y") << "y is no host";
}

TEST(URL, GrowsItsPathBeforeQueryAndFragment) {
    struct Case {
        const char* base;
        const char* components;
        const char* text;
    };
    for (const Case& each :
         {Case{"https://h", "api/items", "https://h/api/items"}, Case{"https://h/", "/api", "https://h/api"},
          Case{"https://h/v//", "api", "https://h/v/api"},
          Case{"https://h/v?q#f", "a b?%", "https://h/v/a%20b%3F%25?q#f"}, Case{"v", "w", "v/w"}}) {
        EXPECT_EQ(URL::parse(each.base)->appendingPath(each.components).text(), each.text);
    }
    for (const Case& each :
         {Case{"https://h/u/abc?s=1", "/5", "https://h/u/abc/5?s=1"},
          Case{"https://h/u/abc/", "5", "https://h/u/abc/5"}, Case{"https://h", "5", "https://h/5"},
          Case{"https://h/", "/5", "https://h//5"}}) {
        EXPECT_EQ(URL::parse(each.base)->withPathSuffix(each.components).text(), each.text);
    }
}

TEST(URL, ChangesHostAndPortAndKeepsTheRest) {
    const URL url = URL::parse("https://vark.example/u/abc?s=1").value();
    EXPECT_EQ(url.withHostAndPort("10.0.0.7", 8443)->text(), "https://10.0.0.7:8443/u/abc?s=1");
    EXPECT_EQ(url.withHostAndPort("fe80::1", 1)->text(), "https://[fe80::1]:1/u/abc?s=1");
    for (const char* host : {"", "no:where", "[fe80::1]"}) {
        EXPECT_EQ(url.withHostAndPort(host, 1), std::nullopt) << host;
    }
    EXPECT_EQ(URL::parse("/api")->withHostAndPort("h", 1), std::nullopt);
}

TEST(URL, EncodesQueryAndPath) {
    EXPECT_EQ(withQuery("/api", {{"path", "a/b c+d&e=\xC3\xA9"}, {"n", "1"}}),
              "/api?path=a%2Fb%20c%2Bd%26e%3D%C3%A9&n=1");
    EXPECT_EQ(withQuery("/api", {}), "/api");
    EXPECT_EQ(percentEncodedPath("/a b/%41?#\xC3\xA9"), "/a%20b/%2541%3F%23%C3%A9");
    EXPECT_EQ(percentEncodedByAlphanumerics("\xC3\xA9 a/b-1&"), "\xC3\xA9%20a%2Fb-1%26");
    EXPECT_EQ(percentEncodedByAlphanumerics("a/b\xE2\x80\xA6", "/"), "a/b%E2%80%A6");
    EXPECT_EQ(percentEncodedByAlphanumerics("\xC3"), std::nullopt);
}

}  // namespace
}  // namespace vark
