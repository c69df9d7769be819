// Cuts what is read into lines.
#include "tools/common/LineReader.h"

#include <unistd.h>

#include <cerrno>
#include <string_view>
#include <utility>

namespace Tools {

LineReader::LineReader(Mox::NboAttrLog::PollLoop& loop, int fd, OnLine onLine)
    : loop_(loop), fd_(fd), onLine_(std::move(onLine)) {
  loop_.descriptorIs(fd_, [this] { readSome(); });
}

LineReader::~LineReader() { loop_.descriptorDel(fd_); }

void LineReader::readSome() {
  char bytes[65536];
  ssize_t const count = ::read(fd_, bytes, sizeof bytes);
  // Whoever shares the descriptor may have made it non-blocking, and may have read what was there.
  if (count < 0 && (errno == EINTR || errno == EAGAIN)) return;
  if (count <= 0) {
    loop_.descriptorDel(fd_);
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
