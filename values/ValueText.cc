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

#include "Mox/Messages.h"
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
    String8 result = String8(whole.substr(0, length));
    skip(pos, length);
    return result;
  }
  std::string bytes;
  for (auto text = whole.substr(1); !text.empty();) {
    char const c = text[0];
    if (c == '\'') {
      String8 result = String8(std::string_view(bytes));
      skip(pos, whole.size() - text.size() + 1);
      return result;
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
  for (char const c : value.view()) {
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
  return String8(std::string_view(result));
}

template <class Number>
String8 decimal(Number value) {
  char digits[64];
  auto const end = std::to_chars(digits, digits + sizeof digits, value).ptr;
  return String8(std::string_view(digits, end));
}

/// Digits as they stand in a text.
struct Digits {
  std::size_t length = 0;  // 0 if there are none
  unsigned long long magnitude = 0;
  bool isOverflow = false;
};

Digits readDigits(std::string_view text) {
  bool const isHex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X') &&
                     hexDigit(text[2]) >= 0;
  std::string_view const digits = text.substr(isHex ? 2 : 0);
  Digits result;
  auto const [stop, error] = std::from_chars(digits.data(), digits.data() + digits.size(),
                                             result.magnitude, isHex ? 16 : 10);
  if (error == std::errc::invalid_argument) return {};
  result.length = static_cast<std::size_t>(stop - text.data());
  result.isOverflow = error != std::errc();
  return result;
}

/// Reads a number of any width: the text decides how far it goes, the type whether it fits.
template <class Number>
Number readInteger(Position& pos, Position const& end) {
  std::string_view const text = rest(pos, end);
  bool const isNegative = std::is_signed_v<Number> && text.starts_with('-');
  Digits const digits = readDigits(text.substr(isNegative ? 1 : 0));
  if (digits.length == 0) cannotConvert(pos, end, typeid(Number));
  Position next(pos);
  skip(next, digits.length + (isNegative ? 1 : 0));
  auto const limit =
      static_cast<unsigned long long>(std::numeric_limits<Number>::max()) + (isNegative ? 1 : 0);
  if (digits.isOverflow || digits.magnitude > limit) cannotConvert(pos, next, typeid(Number));
  pos = next;
  return static_cast<Number>(isNegative ? 0 - digits.magnitude : digits.magnitude);
}

String8 typeName(std::type_info const& type) {
  if (type == typeid(String8)) return "Mox::String8";
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
  throw RangeException("cannot convert " + String8(rest(pos, end)) + " to " + typeName(type));
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

unsigned long long sequenceToLargeNumber(Position& pos, Position const& end,
                                         std::type_info const& type) {
  Digits const digits = readDigits(rest(pos, end));
  if (digits.length == 0) cannotConvert(pos, end, type);
  skip(pos, digits.length);
  return digits.isOverflow ? std::numeric_limits<unsigned long long>::max() : digits.magnitude;
}

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
  throw RangeException(
      format(messages::junkFormat, static_cast<long long>(pos.pos()), text.charPtr()));
}

}  // namespace Mox
