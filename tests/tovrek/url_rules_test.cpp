#include "programs/tovrek/url_rules.h"

#include <gtest/gtest.h>

namespace tovrek {
namespace {

TEST(UrlRules, WantSchemeAndHost) {
  for (const char* url :
       {"http://h", "https://apps.example.com/us/app/x/id1?mt=8&a=%20#top", "a+b-c.1://u:p@h:80/",
        "http://[::1]:8080/x", "http://h?q", "http://h#f", "HTTP://H/(a)*'!$,;="}) {
    EXPECT_TRUE(isUrlWithSchemeAndHost(url)) << url;
  }
  for (const char* text : {"",
                           "word",
                           "//h",
                           "://h",
                           "1a://h",
                           "http:/h",
                           "http://",
                           "http:///p",
                           "http://:80",
                           "http://u@",
                           "http://h:x",
                           "http://h/a b",
                           "http://h/\"",
                           "http://h/%",
                           "http://h/%2",
                           "http://h/%zz",
                           "http://h/[a]",
                           "http://[]/",
                           "http://[::1",
                           "http://h/#a#b",
                           "http://h\xC3\xA9/",
                           "http://a@b@c",
                           "h ttp://h"}) {
    EXPECT_FALSE(isUrlWithSchemeAndHost(text)) << text;
  }
}

TEST(UrlRules, EscapeWhatAUrlCannotHold) {
  EXPECT_EQ(percentEscaped("http://h:1/a-b_c.~?x=1&y=@!$'()*+,;"),
            "http://h:1/a-b_c.~?x=1&y=@!$'()*+,;");
  EXPECT_EQ(percentEscaped("a b%#[]\"\\\xC3\xA9\n"), "a%20b%25%23%5B%5D%22%5C%C3%A9%0A");
}

}  // namespace
}  // namespace tovrek
