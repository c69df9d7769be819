// Commands from standard input, line by line as they come, carried out on the trees of this
// process. The server makes one if it is asked to.
#pragma once

#include <functional>
#include <string>

#include "transport/PollLoop.h"

namespace Tools {

class CommandReader {
 public:
  using Report = std::function<void(std::string const& line)>;
  static constexpr std::size_t maxLine = 1u << 20;

  CommandReader(Mox::NboAttrLog::PollLoop& loop, Report report);
  ~CommandReader();
  CommandReader(CommandReader const&) = delete;
  CommandReader& operator=(CommandReader const&) = delete;

 private:
  void readSome();
  /// False when nothing more is to be read.
  bool run();

  Mox::NboAttrLog::PollLoop& loop_;
  Report report_;
  std::string line_;
  unsigned long number_ = 0;
};

}  // namespace Tools
