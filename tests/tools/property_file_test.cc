// The parser of property files: what each form of line gives, and what hostile text costs.
#include "tools/board/PropertyFile.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>

namespace {

using Board::PropertyFile;
using Board::PropertyFileLimits;

PropertyFile parse(std::string const& text, PropertyFileLimits const& limits = {}) {
  std::istringstream in(text);
  return Board::readProperties(in, "test", limits);
}

/// A file as text, lines first: `1 name scope=value` and `1 refused: cause`.
std::string shown(PropertyFile const& file) {
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

TEST(PropertyFile, EveryFormOfLineHasItsReading) {
  using namespace std::string_literals;
  struct Case {
    std::string text;
    std::string expected;
  };
  Case const cases[] = {
      {"", ""},
      {"\n\n \t\n", ""},
      {"# a=1\n  # b=2\n#\n", ""},
      {"a=1", "1 a=1\n"},
      {"a=1\nb=2\n", "1 a=1\n2 b=2\n"},
      {"a=1\r\nb=2\r\n", "1 a=1\n2 b=2\n"},
      {"a=1\r", "1 a=1\n"},
      {"\xef\xbb\xbf"
       "a=1\n",
       "1 a=1\n"},
      {"  a\t= 1 \t\n", "1 a=1\n"},
      {"a=\n", "1 a=\n"},
      {"a=b=c\n", "1 a=b=c\n"},
      {"a=x y # comment\n", "1 a=x y\n"},
      {"a=x#y\n", "1 a=x#y\n"},
      {"a=#y\n", "1 a=#y\n"},
      {"a= #y\n", "1 a=\n"},
      {"a=caf\xc3\xa9\n", "1 a=caf\xc3\xa9\n"},
      {"a.FAP1=x\n", "1 a chip FAP1=x\n"},
      {"a.fap1_A0=x\n", "1 a chip fap1_A0=x\n"},
      {"a.0=x\n", "1 a unit 0=x\n"},
      {"a.4294967295=x\n", "1 a unit 4294967295=x\n"},
      {"a.1.FAP1=9\n", "1 a.1 chip FAP1=9\n"},
      {"a.FAP1.2=9\n", "1 a.FAP1 unit 2=9\n"},
      {"a=CPU.0:core_0.0\n", "1 a=CPU.0:core_0.0\n"},

      {"abc\n", "1 refused: no '='\n"},
      {"abc # d=1\n", "1 refused: no '='\n"},
      {"=1\n", "1 refused: no name before '='\n"},
      {" =1\n", "1 refused: no name before '='\n"},
      {".5=1\n", "1 refused: no name before the scope\n"},
      {"a.=1\n", "1 refused: no scope behind the dot\n"},
      {"a.b=1\n", "1 refused: scope 'b' is neither a chip id nor a unit number\n"},
      {"a.1x=1\n", "1 refused: scope '1x' is neither a chip id nor a unit number\n"},
      {"a.-1=1\n", "1 refused: scope '-1' is neither a chip id nor a unit number\n"},
      {"a.B-1=1\n", "1 refused: scope 'B-1' is neither a chip id nor a unit number\n"},
      {"a.4294967296=1\n", "1 refused: unit number 4294967296 is too large\n"},
      {"a b=1\n", "1 refused: byte 0x20 in the name\n"},
      {"a\"b=1\n", "1 refused: '\"' in the name\n"},
      {"caf\xc3\xa9=1\n", "1 refused: byte 0xc3 in the name\n"},
      {"a=1\0\n"s, "1 refused: byte 0x00 in the line\n"},
      {"a\0=1\n"s, "1 refused: byte 0x00 in the line\n"},
      {"a=1\x1b[2J\n", "1 refused: byte 0x1b in the line\n"},
      {"a=1\x7f\n", "1 refused: byte 0x7f in the line\n"},
      {"a=1\rb=2\n", "1 refused: byte 0x0d in the line\n"},
      {"x\na=1\ny\n", "2 a=1\n1 refused: no '='\n3 refused: no '='\n"},
  };
  for (auto const& [text, expected] : cases) {
    EXPECT_EQ(shown(parse(text)), expected) << "text: " << text;
  }
}

TEST(PropertyFile, LimitsRefuseByNumberAndKeepWhatFits) {
  PropertyFileLimits limits;
  limits.lineBytes = 4;
  struct Case {
    std::string text;
    std::string expected;
  };
  Case const lengths[] = {
      {"a=12\nb=1\n", "1 a=12\n2 b=1\n"},
      {"a=12\r\nb=1\n", "1 a=12\n2 b=1\n"},
      {"a=123\nb=1\n", "2 b=1\n1 refused: line longer than 4 bytes\n"},
      {"a=123\r\nb=1\n", "2 b=1\n1 refused: line longer than 4 bytes\n"},
      {"a=123", "1 refused: line longer than 4 bytes\n"},
      {"#2345678\nb=1\n", "2 b=1\n"},
      {"a=1" + std::string(1000, 'x') + "\nb=1", "2 b=1\n1 refused: line longer than 4 bytes\n"},
  };
  for (auto const& [text, expected] : lengths) {
    EXPECT_EQ(shown(parse(text, limits)), expected) << "text: " << text;
  }

  limits = {};
  limits.nameBytes = 2;
  EXPECT_EQ(shown(parse("ab.7=1\nabc=2\na.12345=3\n", limits)),
            "1 ab unit 7=1\n3 a unit 12345=3\n2 refused: name longer than 2 bytes\n");
  limits = {};
  limits.properties = 2;
  EXPECT_EQ(shown(parse("a=1\nb=2\nc=3\nd=4\n", limits)),
            "1 a=1\n2 b=2\n3 refused: more than 2 properties, the rest is not read\n");
  limits = {};
  limits.refusals = 1;
  EXPECT_EQ(shown(parse("x\na=1\ny\nb=1\n", limits)),
            "2 a=1\n1 refused: no '='\n"
            "3 refused: more than 1 refusals, the rest is not read\n");
  limits = {};
  limits.fileBytes = 8;
  EXPECT_EQ(shown(parse("a=1\nb=2\n", limits)), "1 a=1\n2 b=2\n");
  EXPECT_EQ(shown(parse("a=1\nb=22\nc=3", limits)),
            "1 a=1\n2 refused: file longer than 8 bytes, the rest is not read\n");
}

TEST(PropertyFile, AnyBytesAreReadWithoutLosingCountOfTheLines) {
  auto const seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  static constexpr std::string_view alphabet("ab.=#\n\r\0 \t0BC1_\xff", 17);
  for (int round = 0; round < 2000; ++round) {
    std::string text;
    std::size_t lines = 0;
    for (auto length = random() % 60; length > 0; --length) {
      text += alphabet[random() % alphabet.size()];
      lines += text.back() == '\n';
    }
    if (!text.empty() && text.back() != '\n') ++lines;
    PropertyFile const file = parse(text);
    ASSERT_LE(file.lines.size() + file.refusals.size(), lines) << text;
    unsigned int last = 0;
    for (auto const& line : file.lines) {
      ASSERT_GT(line.number, last);
      ASSERT_LE(last = line.number, lines);
      ASSERT_FALSE(line.name.empty());
      ASSERT_FALSE(!line.chip.empty() && line.unit);
    }
    // What was read, written out again, reads the same.
    std::string again;
    for (auto const& line : file.lines) {
      again += line.name;
      if (!line.chip.empty()) again += "." + line.chip;
      if (line.unit) again += "." + std::to_string(*line.unit);
      again += "=" + line.value + "\n";
    }
    PropertyFile const second = parse(again);
    ASSERT_EQ(second.lines.size(), file.lines.size()) << again;
    for (std::size_t i = 0; i < file.lines.size(); ++i) {
      EXPECT_EQ(second.lines[i].name, file.lines[i].name);
      EXPECT_EQ(second.lines[i].value, file.lines[i].value);
    }
  }
}

TEST(PropertyFile, UnreadableFilesAreNamedWithTheCause) {
  auto const folder =
      std::filesystem::temp_directory_path() / ("board." + std::to_string(std::random_device{}()));
  std::filesystem::create_directory(folder);
  auto const message = [](std::string const& path) -> std::string {
    try {
      Board::readPropertyFile(path);
    } catch (std::runtime_error const& error) {
      return error.what();
    }
    return "";
  };
  EXPECT_EQ(message(folder / "none"), (folder / "none").string() + ": No such file or directory");
  EXPECT_EQ(message(folder), folder.string() + ": Is a directory");
  std::ofstream(folder / "empty").flush();
  EXPECT_EQ(shown(Board::readPropertyFile(folder / "empty")), "");
  std::ofstream(folder / "one") << "a=1";
  EXPECT_EQ(shown(Board::readPropertyFile(folder / "one")), "1 a=1\n");
  std::filesystem::remove_all(folder);
}

}  // namespace
