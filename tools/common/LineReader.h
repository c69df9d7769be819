// Lines of a descriptor as they come, in a poll loop: commands for a program that does other things
// meanwhile.
#pragma once

#include <functional>
#include <string>

#include "transport/PollLoop.h"

namespace Tools {

class LineReader {
 public:
  /// `line` comes without its end; null: there are no more.
  using OnLine = std::function<void(std::string const* line)>;
  /// A longer line comes cut, one byte longer than this.
  static constexpr std::size_t maxLine = 1u << 20;

  /// Reads `fd`, which stays the caller's.
  LineReader(Mox::NboAttrLog::PollLoop& loop, int fd, OnLine onLine);
  ~LineReader();
  LineReader(LineReader const&) = delete;
  LineReader& operator=(LineReader const&) = delete;

 private:
  void readSome();

  Mox::NboAttrLog::PollLoop& loop_;
  int fd_;
  OnLine onLine_;
  std::string line_;
};

}  // namespace Tools
