// Which characters are shown as they are.
#include "attrlog/wire/ShownText.h"

#include <cstddef>
#include <cstdint>

namespace Mox::NboAttrLog {
namespace {

/// Size of the character that `text` begins with, and its code; 0 when it is no UTF-8.
std::size_t characterSize(std::string_view text, std::uint32_t& code) {
  auto const first = static_cast<unsigned char>(text[0]);
  std::size_t const size = first < 0x80    ? 1
                           : first < 0xc2  ? 0
                           : first < 0xe0  ? 2
                           : first < 0xf0  ? 3
                           : first <= 0xf4 ? 4
                                           : 0;
  if (size == 0 || text.size() < size) return 0;
  code = size == 1 ? first : first & (0x7fU >> size);
  for (std::size_t i = 1; i < size; ++i) {
    auto const byte = static_cast<unsigned char>(text[i]);
    if ((byte & 0xc0) != 0x80) return 0;
    code = code << 6 | (byte & 0x3f);
  }
  constexpr std::uint32_t least[] = {0, 0, 0x80, 0x800, 0x10000};
  bool const isSurrogate = code >= 0xd800 && code <= 0xdfff;
  return code < least[size] || code > 0x10ffff || isSurrogate ? 0 : size;
}

bool isPlain(std::uint32_t code) {
  bool const isControl = code < 0x20 || (code >= 0x7f && code <= 0x9f);
  bool const isMark = code == 0x61c || code == 0x200e || code == 0x200f ||
                      (code >= 0x2028 && code <= 0x202e) || (code >= 0x2066 && code <= 0x2069);
  return !isControl && !isMark;
}

}  // namespace

std::string shownText(std::string_view text) {
  constexpr char digits[] = "0123456789abcdef";
  std::string result;
  while (!text.empty()) {
    std::uint32_t code = 0;
    std::size_t size = characterSize(text, code);
    if (size != 0 && isPlain(code)) {
      result.append(text.substr(0, size));
    } else {
      size = size == 0 ? 1 : size;
      for (char const c : text.substr(0, size)) {
        auto const byte = static_cast<unsigned char>(c);
        result += {'\\', 'x', digits[byte >> 4], digits[byte & 15]};
      }
    }
    text.remove_prefix(size);
  }
  return result;
}

}  // namespace Mox::NboAttrLog
