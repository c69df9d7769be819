// A Unix socket that sends whoever connects the server's status: one text, and then its end. It
// knows nothing of the text and has nothing to do with the log's connections.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "transport/PollLoop.h"
#include "transport/SocketLink.h"

namespace Tools {

class StatusSocket {
 public:
  using Text = std::function<std::string()>;

  /// Throws TransportError.
  StatusSocket(Mox::NboAttrLog::PollLoop& loop, Mox::NboAttrLog::SocketAddress const& address,
               unsigned int mode, Text text);
  ~StatusSocket();
  StatusSocket(StatusSocket const&) = delete;
  StatusSocket& operator=(StatusSocket const&) = delete;

 private:
  /// Somebody who has asked and hasn't read all of the answer yet.
  struct Asker {
    std::unique_ptr<Mox::NboAttrLog::SocketLink> link;
    std::string text;
    std::uint64_t number = 0;  ///< in the order in which they came
    std::size_t sent = 0;
  };

  void accepted(std::unique_ptr<Mox::NboAttrLog::SocketLink> link);
  /// Writes what there is room for; done with the asker at the end.
  void tell(int fd);

  Mox::NboAttrLog::PollLoop& loop_;
  Mox::NboAttrLog::Listener listener_;
  Text text_;
  std::map<int, Asker> askers_;
  std::uint64_t lastAsker_ = 0;
};

}  // namespace Tools
