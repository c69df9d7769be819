// Commands from standard input, carried out on the server's trees. The server makes one if it is
// asked to.
#pragma once

#include <functional>
#include <string>

#include "tools/common/LineReader.h"
#include "transport/PollLoop.h"

namespace Tools {

class CommandReader {
 public:
  using Report = std::function<void(std::string const& line)>;

  CommandReader(Mox::NboAttrLog::PollLoop& loop, Report report);

 private:
  void run(std::string const& line);

  Mox::NboAttrLog::PollLoop& loop_;
  Report report_;
  unsigned long number_ = 0;
  bool isEnded_ = false;
  LineReader lines_;
};

}  // namespace Tools
