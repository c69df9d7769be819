// Cuts standard input into lines.
#include "tools/common/LineReader.h"

#include <unistd.h>

#include <cerrno>
#include <string_view>
#include <utility>

namespace Tools {

LineReader::LineReader(Mox::NboAttrLog::PollLoop& loop, OnLine onLine)
    : loop_(loop), onLine_(std::move(onLine)) {
  loop_.descriptorIs(STDIN_FILENO, [this] { readSome(); });
}

LineReader::~LineReader() { loop_.descriptorDel(STDIN_FILENO); }

void LineReader::readSome() {
  char bytes[65536];
  ssize_t const count = ::read(STDIN_FILENO, bytes, sizeof bytes);
  if (count < 0 && errno == EINTR) return;
  if (count <= 0) {
    loop_.descriptorDel(STDIN_FILENO);
    if (!line_.empty()) onLine_(&line_);
    onLine_(nullptr);
    return;
  }
  for (char const c : std::string_view(bytes, static_cast<std::size_t>(count))) {
    if (c == '\n') {
      std::string const line = std::exchange(line_, {});
      onLine_(&line);
    } else if (line_.size() <= maxLine) {
      line_ += c;
    }
  }
}

}  // namespace Tools
