// Serves a tree at several places, records what goes over the connections, and tells how it is.
// main() makes one and runs it.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Mox/Entity.h"
#include "attrlog/link/Session.h"
#include "tools/common/Endpoint.h"
#include "tools/inventoryd/StatusSocket.h"
#include "transport/Capture.h"
#include "transport/PollLoop.h"

namespace Tools {

struct ServerOptions {
  std::vector<ListenPlace> places;
  unsigned int mode = 0600;  ///< of the Unix sockets
  std::string statusPath;    ///< empty: nobody is told
  std::string capturePath;   ///< empty: nothing is recorded
  std::size_t buffer = Mox::NboAttrLog::defaultCapacity;
  std::size_t maxConnections = 1000;
};

class Server {
 public:
  using Report = std::function<void(std::string const& line)>;

  /// Listens from here on. Throws TransportError.
  Server(ServerOptions const& options, Mox::Ptr<Mox::Entity> const& root, Report report);
  /// Ends the connections.
  ~Server();
  Server(Server const&) = delete;
  Server& operator=(Server const&) = delete;

  Mox::NboAttrLog::PollLoop& loop() { return loop_; }
  /// One JSON object: what `inventoryctl top` shows. docs/programs.md explains its fields.
  std::string statusText() const;

 private:
  struct Place {
    bool isWritable;
    std::unique_ptr<Mox::NboAttrLog::Listener> listener;
  };
  /// What the server knows of a connection beside the link.
  struct Guest {
    Mox::NboAttrLog::Link const* link;
    std::uint32_t number;
    std::string from;
    std::uint64_t sinceMs;
  };

  void accepted(std::unique_ptr<Mox::NboAttrLog::SocketLink> socket, bool isWritable);

  Report report_;
  std::size_t maxConnections_;
  std::optional<std::uint64_t> fullReportedMs_;
  Mox::NboAttrLog::PollLoop loop_;
  Mox::NboAttrLog::Session session_;
  std::optional<Mox::NboAttrLog::CaptureWriter> capture_;
  std::vector<Place> places_;
  std::optional<StatusSocket> status_;
  std::vector<Guest> guests_;
  std::uint32_t lastGuest_ = 0;
  std::uint64_t beganMs_;
};

}  // namespace Tools
