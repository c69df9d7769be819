#include "values/ValueText.h"

#include <cxxabi.h>

#include <charconv>
#include <cstdlib>
#include <limits>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>
#include <type_traits>

#include "values/EntityPath.h"

namespace Mox {

namespace {

using Position = String8::IteratorConst;

/// What there is to read from `pos` on. Nothing where a position lies outside of its text.
std::string_view rest(Position const& pos, Position const& end) {
  if (pos.pos() < 0 || pos.eot() || end.pos() <= pos.pos()) return {};
  return {pos.charPtr(), static_cast<std::size_t>(end.pos() - pos.pos())};
}

void skip(Position& pos, std::size_t bytes) { pos.posIs(pos.pos() + static_cast<int>(bytes)); }

bool isBetween(char c, char first, char last) { return first <= c && c <= last; }

bool isWordByte(char c) {
  return isBetween(c, 'a', 'z') || isBetween(c, 'A', 'Z') || isBetween(c, '0', '9') || c == '_' ||
         c == '.' || c == '-' || c == ':' || c == '/';
}

std::size_t wordLength(std::string_view text) {
  std::size_t length = 0;
  while (length < text.size() && isWordByte(text[length])) ++length;
  return length;
}

String8 textOf(std::string_view bytes) {
  return String8(bytes.data(), static_cast<unsigned int>(bytes.size()));
}

int hexDigit(char c) {
  if (isBetween(c, '0', '9')) return c - '0';
  if (isBetween(c, 'a', 'f')) return c - 'a' + 10;
  if (isBetween(c, 'A', 'F')) return c - 'A' + 10;
  return -1;
}

/// The byte that the escape at the head of `text` stands for, -1 for no escape; takes it off
/// `text`.
int takeEscape(std::string_view& text) {
  if (text.size() < 2) return -1;
  char const kind = text[1];
  if (kind == 'x') {
    if (text.size() < 4) return -1;
    int const high = hexDigit(text[2]);
    int const low = hexDigit(text[3]);
    if (high < 0 || low < 0) return -1;
    text.remove_prefix(4);
    return high << 4 | low;
  }
  text.remove_prefix(2);
  switch (kind) {
    case '\'':
    case '"':
    case '\\':
      return static_cast<unsigned char>(kind);
    case 'n':
      return '\n';
    case 'r':
      return '\r';
    case 't':
      return '\t';
    default:
      return -1;
  }
}

/// The escape letter of a byte that has one, 0 for the others.
char escapeLetter(char c) {
  switch (c) {
    case '\'':
    case '\\':
      return c;
    case '\n':
      return 'n';
    case '\r':
      return 'r';
    case '\t':
      return 't';
    default:
      return 0;
  }
}

/// A string or name token; `type` is what a failure names.
String8 readToken(Position& pos, Position const& end, std::type_info const& type) {
  std::string_view const whole = rest(pos, end);
  if (whole.empty() || whole[0] != '\'') {
    auto const length = wordLength(whole);
    if (length == 0) cannotConvert(pos, end, type);
    String8 result = textOf(whole.substr(0, length));
    skip(pos, length);
    return result;
  }
  std::string bytes;
  for (auto text = whole.substr(1); !text.empty();) {
    char const c = text[0];
    if (c == '\'') {
      skip(pos, whole.size() - text.size() + 1);
      return textOf(bytes);
    }
    if (c == '\\') {
      int const escaped = takeEscape(text);
      if (escaped < 0) break;
      bytes.push_back(static_cast<char>(escaped));
    } else {
      bytes.push_back(c);
      text.remove_prefix(1);
    }
  }
  cannotConvert(pos, end, type);
}

String8 quoted(String8 const& value) {
  static constexpr char hex[] = "0123456789abcdef";
  std::string result = "'";
  for (char const c : std::string_view(value.charPtr(), value.length())) {
    auto const byte = static_cast<unsigned char>(c);
    if (char const letter = escapeLetter(c)) {
      result += {'\\', letter};
    } else if (byte < 0x20 || byte == 0x7f) {
      result += {'\\', 'x', hex[byte >> 4], hex[byte & 0xf]};
    } else {
      result += c;
    }
  }
  result += '\'';
  return textOf(result);
}

template <class Number>
String8 decimal(Number value) {
  char digits[64];
  auto const end = std::to_chars(digits, digits + sizeof digits, value).ptr;
  return textOf({digits, end});
}

/// Reads a number of any width: the text decides how far it goes, the type whether it fits.
template <class Number>
Number readInteger(Position& pos, Position const& end) {
  std::string_view const text = rest(pos, end);
  bool const isNegative = std::is_signed_v<Number> && text.starts_with('-');
  auto digits = text.substr(isNegative ? 1 : 0);
  bool const isHex = digits.size() > 2 && digits[0] == '0' &&
                     (digits[1] == 'x' || digits[1] == 'X') && hexDigit(digits[2]) >= 0;
  if (isHex) digits.remove_prefix(2);
  unsigned long long magnitude = 0;
  auto const [stop, error] =
      std::from_chars(digits.data(), digits.data() + digits.size(), magnitude, isHex ? 16 : 10);
  Position next(pos);
  skip(next, static_cast<std::size_t>(stop - text.data()));
  if (error == std::errc::invalid_argument) cannotConvert(pos, end, typeid(Number));
  auto const limit =
      static_cast<unsigned long long>(std::numeric_limits<Number>::max()) + (isNegative ? 1 : 0);
  if (error != std::errc() || magnitude > limit) cannotConvert(pos, next, typeid(Number));
  pos = next;
  return static_cast<Number>(isNegative ? 0 - magnitude : magnitude);
}

String8 typeName(std::type_info const& type) {
  int status = 0;
  std::unique_ptr<char, decltype(&std::free)> const readable(
      abi::__cxa_demangle(type.name(), nullptr, nullptr, &status), &std::free);
  return readable ? readable.get() : type.name();
}

}  // namespace

String8 valueToStrep(bool value) { return value ? "true" : "false"; }
String8 valueToStrep(unsigned long long value) { return decimal(value); }
String8 valueToStrep(long long value) { return decimal(value); }
String8 valueToStrep(double value) { return decimal(value); }
String8 valueToStrep(String8 const& value) { return quoted(value); }
String8 valueToStrep(Name const& value) { return quoted(value); }

String8 valueToStrepOfRawPtr(Entity const* entity, std::type_info const&) {
  return quoted(entity ? entity->fullName() : String8());
}

void cannotConvert(Position const& pos, Position const& end, std::type_info const& type) {
  throwRangeException(
      ("cannot convert " + textOf(rest(pos, end)) + " to " + typeName(type)).charPtr());
}

String8 sequenceToValue(Position& pos, Position const& end, String8*) {
  return readToken(pos, end, typeid(String8));
}

Name sequenceToValue(Position& pos, Position const& end, Name*) {
  return readToken(pos, end, typeid(Name));
}

bool sequenceToValue(Position& pos, Position const& end, bool*) {
  std::string_view const text = rest(pos, end);
  auto const word = text.substr(0, wordLength(text));
  bool const value = word == "true" || word == "1";
  if (!value && word != "false" && word != "0") cannotConvert(pos, end, typeid(bool));
  skip(pos, word.size());
  return value;
}

unsigned char sequenceToValue(Position& pos, Position const& end, unsigned char*) {
  return readInteger<unsigned char>(pos, end);
}
unsigned short sequenceToValue(Position& pos, Position const& end, unsigned short*) {
  return readInteger<unsigned short>(pos, end);
}
unsigned int sequenceToValue(Position& pos, Position const& end, unsigned int*) {
  return readInteger<unsigned int>(pos, end);
}
unsigned long long sequenceToValue(Position& pos, Position const& end, unsigned long long*) {
  return readInteger<unsigned long long>(pos, end);
}
int sequenceToValue(Position& pos, Position const& end, int*) { return readInteger<int>(pos, end); }

double sequenceToValue(Position& pos, Position const& end, double*) {
  std::string_view const text = rest(pos, end);
  double value = 0;
  auto const [stop, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc()) cannotConvert(pos, end, typeid(double));
  skip(pos, static_cast<std::size_t>(stop - text.data()));
  return value;
}

Ptr<Entity> sequenceToValueOfPtr(Position& pos, Position const& end, Entity*) {
  return EntityPath::entity(readToken(pos, end, typeid(Entity)));
}

void throwJunk(Position const& pos, String8 const& text) {
  throw RangeException(format("junk at column %lld deserializing %s",
                              static_cast<long long>(pos.pos()), text.charPtr()),
                       Exception::IdBitArray());
}

}  // namespace Mox
