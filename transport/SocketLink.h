// A non-blocking stream socket as a byte pipe, and how to get one: from a listener or by
// connecting.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "attrlog/link/ByteLink.h"
#include "transport/Descriptor.h"
#include "transport/PathLock.h"
#include "transport/SocketAddress.h"

namespace MOX_API Mox {
namespace NboAttrLog {

class SocketLink : public ByteLink {
 public:
  /// Takes a connected stream socket, which becomes non-blocking and is closed on exec. Over TCP it
  /// is without delay, a silent connection is probed after `keepIdleS`, and the connection fails
  /// when the peer answers nothing, or takes nothing, for `tcpTimeoutMs`. `place`: address of the
  /// listener that accepted it.
  explicit SocketLink(Descriptor socket, std::string place = {});

  /// Waits up to `timeoutMs` for the connection. Throws TransportError "ADDRESS: cause".
  static std::unique_ptr<SocketLink> connect(SocketAddress const& address, int timeoutMs);

  ByteResult read(void* to, std::size_t size) override;
  ByteResult write(void const* from, std::size_t size) override;
  void close() override { socket_.close(); }
  std::string error() const override { return error_; }
  Origin origin() const override { return origin_; }
  int fd() const override { return socket_.get(); }
  /// User id of the process at the other end of a Unix socket; of the one that listens, if this end
  /// has connected. Empty: not known.
  std::optional<unsigned int> peerUser() const;
  /// Who is at the other end: "HOST:PORT", or "process N, user N" of a Unix socket.
  std::string peerText() const;

 private:
  static constexpr int keepIdleS = 30;
  static constexpr int keepIntervalS = 10;
  static constexpr int keepProbes = 3;
  static constexpr int tcpTimeoutMs = 120000;

  ByteResult fail(int number);

  Descriptor socket_;
  Origin origin_;
  std::string error_;
};

/// Accepts connections. Descriptors are closed on exec.
class Listener {
 public:
  /// A Unix socket's file has `mode`: by default it is for this user alone. A lock on the file
  /// PATH.lock keeps other listeners away; the socket of a dead process is replaced, and a path
  /// where somebody listens, or that is no socket, is not. Both files go with the listener. TCP
  /// port 0: any free one. Throws TransportError "ADDRESS: cause".
  explicit Listener(SocketAddress const& address, unsigned int mode = 0600);
  ~Listener();
  Listener(Listener const&) = delete;
  Listener& operator=(Listener const&) = delete;

  int fd() const { return socket_.get(); }
  /// Where it listens, with the port that was given by the system.
  SocketAddress const& address() const { return address_; }
  /// False when other machines may reach it, as far as its address decides that.
  bool isLocal() const { return isLocal_; }
  /// Null when nobody waits. Throws TransportError when the system has no room for a connection.
  std::unique_ptr<SocketLink> accept();

 private:
  void listenUnix(unsigned int mode);
  void listenTcp();

  SocketAddress address_;
  PathLock lock_;
  Descriptor socket_;
  bool isLocal_ = true;
  /// Tells this listener's socket file from another one of the same path.
  unsigned long long device_ = 0;
  unsigned long long inode_ = 0;
};

}  // namespace NboAttrLog
}  // namespace Mox
