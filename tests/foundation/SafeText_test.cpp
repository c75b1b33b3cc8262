// Names that anyone can choose, made safe for a terminal, a spreadsheet and a notification.

#include "OmniraCore/foundation/SafeText.h"

#include <gtest/gtest.h>

#include "OmniraCore/foundation/SystemText.h"

namespace omnira {
namespace {

TEST(SafeText, TerminalTextEscapesWhatATerminalWouldActOn) {
  // A title change, a bell, and what is left after them.
  EXPECT_EQ(terminalText("\x1b]0;owned\x07rest"), "\\x1b]0;owned\\x07rest");
  EXPECT_EQ(terminalText("a\tb\nc\rd\x7f" "e"), "a\\x09b\\x0ac\\x0dd\\x7f" "e");
  EXPECT_EQ(terminalText(std::string("nul\0x", 5)), "nul\\x00x");
  // C1 controls in UTF-8: CSI (U+009B) and the last one (U+009F); U+00A0 is text.
  EXPECT_EQ(terminalText("\xc2\x9b" "2J\xc2\x9f\xc2\xa0"), "\\xc2\\x9b2J\\xc2\\x9f\xc2\xa0");
  // Bytes that are not UTF-8: alone, overlong, a surrogate, past U+10FFFF, cut short at the end.
  EXPECT_EQ(terminalText("\xff"), "\\xff");
  EXPECT_EQ(terminalText("\xc0\xaf"), "\\xc0\\xaf");
  EXPECT_EQ(terminalText("\xed\xa0\x80"), "\\xed\\xa0\\x80");
  EXPECT_EQ(terminalText("\xf4\x90\x80\x80"), "\\xf4\\x90\\x80\\x80");
  EXPECT_EQ(terminalText("caf\xc3"), "caf\\xc3");
  EXPECT_EQ(terminalText("\xe2\x82" "x"), "\\xe2\\x82x");
  // Valid UTF-8 stays as it is, whatever its length.
  const std::string text = "Café “Tabs” — 東京 \xf0\x9f\x9a\x80 ~/src/web (1)";
  EXPECT_EQ(terminalText(text), text);
  EXPECT_EQ(terminalText(""), "");
  // Whatever went in, what comes out is UTF-8 without a single control byte.
  std::string every;
  for (int b = 0; b < 256; ++b) every += static_cast<char>(b);
  const std::string shown = terminalText(every);
  EXPECT_TRUE(isUTF8(shown));
  for (const char c : shown) EXPECT_TRUE(static_cast<unsigned char>(c) >= 0x20 && c != 0x7f) << shown;
}

TEST(SafeText, SpreadsheetTextQuotesWhatWouldBeAFormula) {
  EXPECT_EQ(spreadsheetText("=HYPERLINK(\"http://x\",\"y\")"), "'=HYPERLINK(\"http://x\",\"y\")");
  EXPECT_EQ(spreadsheetText("+1"), "'+1");
  EXPECT_EQ(spreadsheetText("-2+3"), "'-2+3");
  EXPECT_EQ(spreadsheetText("@SUM(A1)"), "'@SUM(A1)");
  EXPECT_EQ(spreadsheetText("\t=1"), "'\t=1");
  EXPECT_EQ(spreadsheetText("\r=1"), "'\r=1");
  // Only the first character counts: a formula sign inside a name is text already.
  EXPECT_EQ(spreadsheetText("a=b"), "a=b");
  EXPECT_EQ(spreadsheetText("Firefox"), "Firefox");
  EXPECT_EQ(spreadsheetText(""), "");
}

TEST(SafeText, MarkupTextTurnsMarkupIntoEntities) {
  EXPECT_EQ(markupText("<a href=\"file:///etc\">Tom & Jerry</a>"),
            "&lt;a href=\"file:///etc\"&gt;Tom &amp; Jerry&lt;/a&gt;");
  // An entity already written is text too: it shows as typed.
  EXPECT_EQ(markupText("&amp;"), "&amp;amp;");
  EXPECT_EQ(markupText("85 % of a core — “Tabs”"), "85 % of a core — “Tabs”");
}

}  // namespace
}  // namespace omnira
