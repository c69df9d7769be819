// The reader of board files: every line is read, refused with its number, or empty, in their order.
#include <sstream>

#include "fuzz/Memory.h"
#include "tools/board/PropertyFile.h"

extern "C" int LLVMFuzzerTestOneInput(unsigned char const* bytes, std::size_t size) {
  std::istringstream in(std::string(reinterpret_cast<char const*>(bytes), size));
  // A line of three bytes may be kept as a property or refused with a sentence.
  Fuzz::MemoryBound const bound(size, 65536, 256);
  Board::PropertyFile const file = Board::readProperties(in, "input");
  unsigned int before = 0;
  for (Board::PropertyLine const& line : file.lines) {
    bool const isScoped = !line.chip.empty() && line.unit;
    if (line.number <= before || line.name.empty() || isScoped) std::abort();
    before = line.number;
  }
  for (Board::Refusal const& refusal : file.refusals) {
    if (refusal.cause.empty()) std::abort();
  }
  return 0;
}
