// Names that anyone can choose, made safe for a terminal, a spreadsheet and a notification.

#include "OmniraCore/foundation/SafeText.h"

#include <gtest/gtest.h>

#include "OmniraCore/foundation/SystemText.h"

namespace omnira {
namespace {

TEST(SafeText, EachPlaceGetsTextItCannotActOn) {
  struct Case {
    std::string (*made)(std::string_view);
    std::string text;
    std::string shown;
  };
  const Case cases[] = {
      // A title change, a bell, and what is left after them.
      {terminalText, "\x1b]0;owned\x07rest", "\\x1b]0;owned\\x07rest"},
      {terminalText, "a\tb\nc\rd\x7f" "e", "a\\x09b\\x0ac\\x0dd\\x7f" "e"},
      {terminalText, std::string("nul\0x", 5), "nul\\x00x"},
      // C1 controls in UTF-8: CSI (U+009B) and the last one (U+009F); U+00A0 is text.
      {terminalText, "\xc2\x9b" "2J\xc2\x9f\xc2\xa0", "\\xc2\\x9b2J\\xc2\\x9f\xc2\xa0"},
      // Bytes that are not UTF-8: alone, overlong, a surrogate, past U+10FFFF, cut short.
      {terminalText, "\xff", "\\xff"},
      {terminalText, "\xc0\xaf", "\\xc0\\xaf"},
      {terminalText, "\xed\xa0\x80", "\\xed\\xa0\\x80"},
      {terminalText, "\xf4\x90\x80\x80", "\\xf4\\x90\\x80\\x80"},
      {terminalText, "caf\xc3", "caf\\xc3"},
      // Valid UTF-8 stays as it is, whatever its length.
      {terminalText, "Café “Tabs” — 東京 \xf0\x9f\x9a\x80 ~/src/web (1)", "Café “Tabs” — 東京 \xf0\x9f\x9a\x80 ~/src/web (1)"},
      {spreadsheetText, "=HYPERLINK(\"http://x\",\"y\")", "'=HYPERLINK(\"http://x\",\"y\")"},
      {spreadsheetText, "+1", "'+1"},
      {spreadsheetText, "-2+3", "'-2+3"},
      {spreadsheetText, "@SUM(A1)", "'@SUM(A1)"},
      {spreadsheetText, "\t=1", "'\t=1"},
      {spreadsheetText, "\r=1", "'\r=1"},
      // Only the first character counts: a formula sign inside a name is text already.
      {spreadsheetText, "a=b", "a=b"},
      {markupText, "<a href=\"file:///etc\">Tom & Jerry</a>", "&lt;a href=\"file:///etc\"&gt;Tom &amp; Jerry&lt;/a&gt;"},
      // An entity already written is text too: it shows as typed.
      {markupText, "&amp;", "&amp;amp;"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(c.made(c.text), c.shown);
  }
  // Whatever went in, what a terminal is shown is UTF-8 without a single control byte.
  std::string every;
  for (int b = 0; b < 256; ++b) every += static_cast<char>(b);
  const std::string shown = terminalText(every);
  EXPECT_TRUE(isUTF8(shown));
  for (const char c : shown) EXPECT_TRUE(static_cast<unsigned char>(c) >= 0x20 && c != 0x7f) << shown;
}

}  // namespace
}  // namespace omnira
