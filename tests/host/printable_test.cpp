#include "host/printable.h"

#include <gtest/gtest.h>

#include <utility>

namespace tovrek {
namespace {

TEST(Printable, WhatCannotBePrintedIsShownByItsBytes) {
  const std::pair<const char*, const char*> cases[] = {
      {"Größe — 語 \\x", "Größe — 語 \\x"},
      {"a\nb\r\x1b[2J\x7f", "a\\x0ab\\x0d\\x1b[2J\\x7f"},
      {"\xc2\x9b\xc2\xa0", "\\xc2\\x9b\xc2\xa0"},
      {"\xe2\x80\xae\xe2\x80\xa8\xe2\x81\xa9\xe2\x80\xaf",
       "\\xe2\\x80\\xae\\xe2\\x80\\xa8\\xe2\\x81\\xa9\xe2\x80\xaf"},
      {"\xe2\x80", "\xe2\x80"}};
  for (const auto& [text, shown] : cases) EXPECT_EQ(printable(text), shown);
}

TEST(Printable, LinesStayLines) {
  EXPECT_EQ(printableLines("\na\n\tb\r\n"), "\na\n\tb\\x0d\n");
  EXPECT_EQ(printableLines(""), "");
}

TEST(Printable, OnlyLineBreaksAtTheEndStayInALine) {
  EXPECT_EQ(printable("a\nb\n\n", LineBreaks::kEscaped), "a\\x0ab\n\n");
  EXPECT_EQ(printable("\n", LineBreaks::kEscaped), "\n");
  EXPECT_EQ(printable("a\nb\tc\x1b", LineBreaks::kKept), "a\nb\tc\\x1b");
}

}  // namespace
}  // namespace tovrek
