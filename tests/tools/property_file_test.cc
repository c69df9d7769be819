// The parser of property files. Finds forms that are read wrongly, causes and line numbers that are
// wrong, and limits that refuse too early or keep too much.
#include "tools/board/PropertyFile.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

namespace {

/// A file as text, lines first: `1 name scope=value` and `1 refused: cause`.
std::string shown(Board::PropertyFile const& file) {
  std::string text;
  for (auto const& line : file.lines) {
    text += std::to_string(line.number) + " " + line.name;
    if (!line.chip.empty()) text += " chip " + line.chip;
    if (line.unit) text += " unit " + std::to_string(*line.unit);
    text += "=" + line.value + "\n";
  }
  for (auto const& refusal : file.refusals) {
    text += std::to_string(refusal.number) + " refused: " + refusal.cause + "\n";
  }
  return text;
}

TEST(PropertyFile, EveryFormOfLineHasItsReadingAndEveryLimitItsRefusal) {
  using namespace std::string_literals;
  struct Case {
    std::string text;
    std::string expected;
    Board::PropertyFileLimits limits = {};
  };
  Case const cases[] = {
      {"\n\n \t\n# a=1\n  # b=2\n#\n", ""},
      {"a=1\r\nb=2\r", "1 a=1\n2 b=2\n"},
      {"\xef\xbb\xbf\x61=1\n", "1 a=1\n"},
      {"  a\t= 1 \t\n", "1 a=1\n"},
      {"a=\nb=c=d\n", "1 a=\n2 b=c=d\n"},
      {"a=x y # comment\nb=x#y\nc=#y\nd= #y\n", "1 a=x y\n2 b=x#y\n3 c=#y\n4 d=\n"},
      {"a.fap1_A0=x\n", "1 a chip fap1_A0=x\n"},
      {"a.1.FAP1=9\n", "1 a.1 chip FAP1=9\n"},
      {"x\na=1\ny # d=1\n", "2 a=1\n1 refused: no '='\n3 refused: no '='\n"},
      {" =1\n", "1 refused: no name before '='\n"},
      {".5=1\n", "1 refused: no name before the scope\n"},
      {"a.=1\n", "1 refused: no scope behind the dot\n"},
      {"a.B-1=1\n", "1 refused: scope 'B-1' is neither a chip id nor a unit number\n"},
      {"a.4294967296=1\n", "1 refused: unit number 4294967296 is too large\n"},
      {"a b=1\n", "1 refused: byte 0x20 in the name\n"},
      {"a\"b=1\n", "1 refused: '\"' in the name\n"},
      {"a\0=1\n"s, "1 refused: byte 0x00 in the line\n"},
      {"a=1\rb=2\n", "1 refused: byte 0x0d in the line\n"},

      {"a=12\r\nb=1\n", "1 a=12\n2 b=1\n", {.lineBytes = 4}},
      {"a=123\r\nb=1", "2 b=1\n1 refused: line longer than 4 bytes\n", {.lineBytes = 4}},
      {"#2345678\nb=" + std::string(999, 'x'),
       "2 refused: line longer than 4 bytes\n",
       {.lineBytes = 4}},
      {"ab.7=1\nabc=2\na.12345=3\n",
       "1 ab unit 7=1\n3 a unit 12345=3\n2 refused: name longer than 2 bytes\n",
       {.nameBytes = 2}},
      {"a=1\nb=2\nc=3\nd=4\n",
       "1 a=1\n2 b=2\n3 refused: more than 2 properties, the rest is not read\n",
       {.properties = 2}},
      {"x\na=1\ny\nb=1\n",
       "2 a=1\n1 refused: no '='\n3 refused: more than 1 refusals, the rest is not read\n",
       {.refusals = 1}},
      {"a=1\nb=2\n", "1 a=1\n2 b=2\n", {.fileBytes = 8}},
      {"a=1\nb=22\nc=3",
       "1 a=1\n2 refused: file longer than 8 bytes, the rest is not read\n",
       {.fileBytes = 8}},
  };
  for (auto const& [text, expected, limits] : cases) {
    std::istringstream in(text);
    EXPECT_EQ(shown(Board::readProperties(in, "test", limits)), expected) << "text: " << text;
  }
}

}  // namespace
