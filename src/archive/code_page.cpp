#include "archive/code_page.h"

namespace tovrek::archive {
namespace {

// What stands for the bytes from 0x80 on.
constexpr std::u16string_view kUpperHalf =
    u"\u00c7\u00fc\u00e9\u00e2\u00e4\u00e0\u00e5\u00e7\u00ea\u00eb\u00e8\u00ef\u00ee\u00ec\u00c4"
    u"\u00c5"
    u"\u00c9\u00e6\u00c6\u00f4\u00f6\u00f2\u00fb\u00f9\u00ff\u00d6\u00dc\u00a2\u00a3\u00a5\u20a7"
    u"\u0192"
    u"\u00e1\u00ed\u00f3\u00fa\u00f1\u00d1\u00aa\u00ba\u00bf\u2310\u00ac\u00bd\u00bc\u00a1\u00ab"
    u"\u00bb"
    u"\u2591\u2592\u2593\u2502\u2524\u2561\u2562\u2556\u2555\u2563\u2551\u2557\u255d\u255c\u255b"
    u"\u2510"
    u"\u2514\u2534\u252c\u251c\u2500\u253c\u255e\u255f\u255a\u2554\u2569\u2566\u2560\u2550\u256c"
    u"\u2567"
    u"\u2568\u2564\u2565\u2559\u2558\u2552\u2553\u256b\u256a\u2518\u250c\u2588\u2584\u258c\u2590"
    u"\u2580"
    u"\u03b1\u00df\u0393\u03c0\u03a3\u03c3\u00b5\u03c4\u03a6\u0398\u03a9\u03b4\u221e\u03c6\u03b5"
    u"\u2229"
    u"\u2261\u00b1\u2265\u2264\u2320\u2321\u00f7\u2248\u00b0\u2219\u00b7\u221a\u207f\u00b2\u25a0"
    u"\u00a0";
static_assert(kUpperHalf.size() == 128);

void append(std::string* text, char16_t character) {
  if (character < 0x800) {
    *text += static_cast<char>(0xc0 | character >> 6);
  } else {
    *text += static_cast<char>(0xe0 | character >> 12);
    *text += static_cast<char>(0x80 | (character >> 6 & 0x3f));
  }
  *text += static_cast<char>(0x80 | (character & 0x3f));
}

}  // namespace

std::string fromCodePage437(std::string_view bytes) {
  std::string text;
  for (const char byte : bytes) {
    const auto value = static_cast<unsigned char>(byte);
    if (value < 0x80) {
      text += byte;
    } else {
      append(&text, kUpperHalf[value - 0x80]);
    }
  }
  return text;
}

}  // namespace tovrek::archive
