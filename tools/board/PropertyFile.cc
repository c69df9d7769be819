#include "tools/board/PropertyFile.h"

#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <istream>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

namespace Board {

namespace {

bool isDigit(char c) { return '0' <= c && c <= '9'; }
char lower(char c) { return 'A' <= c && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }
bool isLetter(char c) { return 'a' <= lower(c) && lower(c) <= 'z'; }
bool isBlank(char c) { return c == ' ' || c == '\t'; }
bool isNameByte(char c) { return isLetter(c) || isDigit(c) || c == '_' || c == '.' || c == '-'; }

std::string_view withoutBlanks(std::string_view text) {
  while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && isBlank(text.back())) text.remove_suffix(1);
  return text;
}

std::string_view withoutComment(std::string_view text) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '#' && (i == 0 || isBlank(text[i - 1]))) return text.substr(0, i);
  }
  return text;
}

std::string describeByte(char c) {
  static constexpr char hex[] = "0123456789abcdef";
  auto const byte = static_cast<unsigned char>(c);
  if (byte > 0x20 && byte < 0x7f) return std::string("'") + c + "'";
  return std::string("byte 0x") + hex[byte >> 4] + hex[byte & 0xf];
}

bool isChipId(std::string_view text) {
  bool hasDigit = false;
  for (char const c : text) {
    if (!isLetter(c) && !isDigit(c) && c != '_') return false;
    hasDigit = hasDigit || isDigit(c);
  }
  return hasDigit && isLetter(text.front());
}

/// Splits what stands left of the `=` into name and scope; the cause of a refusal, or empty.
std::string readKey(std::string_view key, PropertyFileLimits const& limits, PropertyLine& line) {
  if (key.empty()) return "no name before '='";
  for (char const c : key) {
    if (!isNameByte(c)) return describeByte(c) + " in the name";
  }
  auto const dot = key.rfind('.');
  line.name = key.substr(0, dot);
  if (line.name.empty()) return "no name before the scope";
  if (line.name.size() > limits.nameBytes) {
    return "name longer than " + std::to_string(limits.nameBytes) + " bytes";
  }
  if (dot == key.npos) return {};
  std::string_view const scope = key.substr(dot + 1);
  if (scope.empty()) return "no scope behind the dot";
  if (isChipId(scope)) {
    line.chip = scope;
    return {};
  }
  unsigned int unit = 0;
  auto const [stop, error] = std::from_chars(scope.data(), scope.data() + scope.size(), unit);
  if (stop != scope.data() + scope.size()) {
    return "scope '" + std::string(scope) + "' is neither a chip id nor a unit number";
  }
  if (error != std::errc()) return "unit number " + std::string(scope) + " is too large";
  line.unit = unit;
  return {};
}

/// Reads one line, comment and blanks taken off; the cause of a refusal, or empty.
std::string readLine(std::string_view text, PropertyFileLimits const& limits, PropertyLine& line) {
  for (char const c : text) {
    auto const byte = static_cast<unsigned char>(c);
    if ((byte < 0x20 && c != '\t') || byte == 0x7f) return describeByte(c) + " in the line";
  }
  auto const equals = text.find('=');
  if (equals == text.npos) return "no '='";
  line.value = withoutBlanks(text.substr(equals + 1));
  return readKey(withoutBlanks(text.substr(0, equals)), limits, line);
}

/// The bytes of a stream line by line, in bounded memory.
class LineReader {
 public:
  LineReader(std::istream& in, PropertyFileLimits const& limits)
      : bytes_(*in.rdbuf()), limits_(limits) {}

  /// The next line; false at the end of the stream or behind the largest size of a file.
  bool next() {
    text_.clear();
    isOverlong_ = false;
    bool isAny = false;
    for (int byte; (byte = bytes_.sbumpc()) != std::char_traits<char>::eof();) {
      isAny = true;
      if (++size_ > limits_.fileBytes) break;
      if (byte == '\n') break;
      // One byte more than the limit, for the CR of a line that is exactly as long as it may be.
      if (text_.size() <= limits_.lineBytes) {
        text_.push_back(static_cast<char>(byte));
      } else {
        isOverlong_ = true;
      }
    }
    if (!isAny) return false;
    ++number_;
    if (!isOverlong_ && text_.ends_with('\r')) text_.pop_back();
    isOverlong_ = isOverlong_ || text_.size() > limits_.lineBytes;
    return true;
  }

  unsigned int number() const { return number_; }
  bool isOverlong() const { return isOverlong_; }
  bool isFileTooLarge() const { return size_ > limits_.fileBytes; }
  std::string_view text() const {
    std::string_view const text = text_;
    constexpr std::string_view byteOrderMark = "\xef\xbb\xbf";
    return number_ == 1 && text.starts_with(byteOrderMark) ? text.substr(3) : text;
  }

 private:
  std::streambuf& bytes_;
  PropertyFileLimits const& limits_;
  std::string text_;
  std::size_t size_ = 0;
  unsigned int number_ = 0;
  bool isOverlong_ = false;
};

}  // namespace

PropertyFile readProperties(std::istream& in, std::string name, PropertyFileLimits const& limits) {
  PropertyFile file{std::move(name), {}, {}};
  LineReader reader(in, limits);
  while (reader.next()) {
    std::string_view const text = withoutBlanks(withoutComment(reader.text()));
    PropertyLine line;
    line.number = reader.number();
    std::string cause;
    bool isLast = true;
    if (reader.isFileTooLarge()) {
      cause = "file longer than " + std::to_string(limits.fileBytes) + " bytes";
    } else if (text.empty()) {
      continue;  // An over-long comment is a comment.
    } else if (file.lines.size() >= limits.properties) {
      cause = "more than " + std::to_string(limits.properties) + " properties";
    } else {
      isLast = false;
      cause = reader.isOverlong()
                  ? "line longer than " + std::to_string(limits.lineBytes) + " bytes"
                  : readLine(text, limits, line);
    }
    if (cause.empty()) {
      file.lines.push_back(std::move(line));
      continue;
    }
    if (!isLast && file.refusals.size() >= limits.refusals) {
      isLast = true;
      cause = "more than " + std::to_string(limits.refusals) + " refusals";
    }
    file.refusals.push_back({line.number, cause + (isLast ? ", the rest is not read" : "")});
    if (isLast) break;
  }
  return file;
}

PropertyFile readPropertyFile(std::string const& path, PropertyFileLimits const& limits) {
  errno = 0;
  std::ifstream in(path, std::ios::binary);
  // A directory opens, but gives no first byte and an error; an empty file gives none without.
  if (in) in.peek();
  if (in.fail() && (errno != 0 || !in.eof())) {
    throw std::runtime_error(path + ": " + (errno ? std::strerror(errno) : "can't be read"));
  }
  in.clear();
  return readProperties(in, path, limits);
}

std::string chipKey(std::string const& chip) {
  std::string key = chip;
  for (char& c : key) c = lower(c);
  return key;
}

}  // namespace Board
