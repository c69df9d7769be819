// Stream sockets of both kinds: reading, writing, connecting, listening.
#include "transport/SocketLink.h"

#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>

namespace Mox::NboAttrLog {
namespace {

/// In the words of the C library, which works without a descriptor to spare, too.
std::string systemText(int number) {
  char const* const text = ::strerrordesc_np(number);
  return text ? text : "error " + std::to_string(number);
}

constexpr char const* inUse = "somebody listens there already";

[[noreturn]] void refuse(SocketAddress const& address, std::string const& cause) {
  throw TransportError(address.text() + ": " + cause);
}

sockaddr_un unixAddress(SocketAddress const& address) {
  sockaddr_un result{};
  result.sun_family = AF_UNIX;
  if (address.path.size() >= sizeof result.sun_path) {
    refuse(address,
           "the path is longer than " + std::to_string(sizeof result.sun_path - 1) + " bytes");
  }
  std::memcpy(result.sun_path, address.path.data(), address.path.size());
  return result;
}

struct AddressListDelete {
  void operator()(addrinfo* list) const { freeaddrinfo(list); }
};
using AddressList = std::unique_ptr<addrinfo, AddressListDelete>;

AddressList resolve(SocketAddress const& address, int flags) {
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = flags | AI_NUMERICSERV;
  addrinfo* list = nullptr;
  int const code = getaddrinfo(address.host.c_str(), address.port.c_str(), &hints, &list);
  if (code != 0) refuse(address, code == EAI_SYSTEM ? systemText(errno) : gai_strerror(code));
  return AddressList(list);
}

Descriptor newSocket(int family) {
  return Descriptor(::socket(family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
}

class Deadline {
 public:
  explicit Deadline(int timeoutMs)
      : at_(std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs)) {}
  int leftMs() const {
    auto const left =
        std::chrono::ceil<std::chrono::milliseconds>(at_ - std::chrono::steady_clock::now());
    return left.count() > 0 ? static_cast<int>(left.count()) : 0;
  }

 private:
  std::chrono::steady_clock::time_point at_;
};

/// Connects one socket; 0, or why not.
int connectSocket(int fd, sockaddr const* to, socklen_t size, Deadline const& deadline) {
  for (;;) {
    if (::connect(fd, to, size) == 0 || errno == EISCONN) return 0;
    if (errno == EINTR) continue;
    if (errno == EAGAIN) {
      // A Unix listener whose queue is full: nothing tells when it has room.
      int const left = deadline.leftMs();
      if (left == 0) return ETIMEDOUT;
      ::poll(nullptr, 0, left < 20 ? left : 20);
      continue;
    }
    if (errno != EINPROGRESS) return errno;
    pollfd waiting{fd, POLLOUT, 0};
    int ready = 0;
    do {
      ready = ::poll(&waiting, 1, deadline.leftMs());
    } while (ready < 0 && errno == EINTR);
    if (ready < 0) return errno;
    if (ready == 0) return ETIMEDOUT;
    int result = 0;
    socklen_t length = sizeof result;
    return ::getsockopt(fd, SOL_SOCKET, SO_ERROR, &result, &length) == 0 ? result : errno;
  }
}

bool isLoopback(sockaddr_storage const& address) {
  if (address.ss_family == AF_INET6) {
    return IN6_IS_ADDR_LOOPBACK(&reinterpret_cast<sockaddr_in6 const&>(address).sin6_addr);
  }
  constexpr std::uint32_t loopbackNet = 127;
  auto const& inet = reinterpret_cast<sockaddr_in const&>(address);
  return address.ss_family == AF_INET && ntohl(inet.sin_addr.s_addr) >> 24 == loopbackNet;
}

/// Host and port of the other end of a TCP socket, as numbers; empty hosts mean that it is gone, or
/// no such socket.
SocketAddress peerAddress(int fd) {
  sockaddr_storage address{};
  socklen_t size = sizeof address;
  char host[NI_MAXHOST] = "";
  char port[NI_MAXSERV] = "";
  if (::getpeername(fd, reinterpret_cast<sockaddr*>(&address), &size) == 0 &&
      address.ss_family != AF_UNIX &&
      ::getnameinfo(reinterpret_cast<sockaddr const*>(&address), size, host, sizeof host, port,
                    sizeof port, NI_NUMERICHOST | NI_NUMERICSERV) != 0) {
    *host = '\0';
  }
  return {{}, host, port};
}

/// Of the process at the other end of a Unix socket.
std::optional<ucred> peerCredentials(int fd) {
  sockaddr_storage address{};
  socklen_t addressSize = sizeof address;
  ucred user{};
  socklen_t size = sizeof user;
  if (::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &addressSize) != 0 ||
      address.ss_family != AF_UNIX ||
      ::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &user, &size) != 0) {
    return std::nullopt;
  }
  return user;
}

}  // namespace

void Descriptor::close() {
  int const fd = std::exchange(fd_, -1);
  if (fd >= 0) ::close(fd);
}

SocketLink::SocketLink(Descriptor socket, std::string place) : socket_(std::move(socket)) {
  int const fd = socket_.get();
  origin_.place = std::move(place);
  if (std::optional<unsigned int> const user = peerUser()) {
    origin_.credentials = "user " + std::to_string(*user);
  } else if (std::string const host = peerAddress(fd).host; !host.empty()) {
    origin_.credentials = "host " + host;
  }
  ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK);
  ::fcntl(fd, F_SETFD, FD_CLOEXEC);
  // Refused on Unix sockets, which have no such delay and fail at once when the peer is gone.
  auto const option = [fd](int level, int name, int value) {
    ::setsockopt(fd, level, name, &value, sizeof value);
  };
  option(IPPROTO_TCP, TCP_NODELAY, 1);
  option(IPPROTO_TCP, TCP_KEEPIDLE, keepIdleS);
  option(IPPROTO_TCP, TCP_KEEPINTVL, keepIntervalS);
  option(IPPROTO_TCP, TCP_KEEPCNT, keepProbes);
  option(IPPROTO_TCP, TCP_USER_TIMEOUT, tcpTimeoutMs);
  option(SOL_SOCKET, SO_KEEPALIVE, 1);
}

std::unique_ptr<SocketLink> SocketLink::connect(SocketAddress const& address, int timeoutMs) {
  Deadline const deadline(timeoutMs);
  int cause = 0;
  if (address.isUnix()) {
    sockaddr_un const to = unixAddress(address);
    Descriptor socket = newSocket(AF_UNIX);
    cause = socket ? connectSocket(socket.get(), reinterpret_cast<sockaddr const*>(&to), sizeof to,
                                   deadline)
                   : errno;
    if (cause == 0) return std::make_unique<SocketLink>(std::move(socket));
    refuse(address, systemText(cause));
  }
  AddressList const list = resolve(address, 0);
  for (addrinfo const* at = list.get(); at != nullptr; at = at->ai_next) {
    Descriptor socket = newSocket(at->ai_family);
    cause = socket ? connectSocket(socket.get(), at->ai_addr, at->ai_addrlen, deadline) : errno;
    if (cause == 0) return std::make_unique<SocketLink>(std::move(socket));
  }
  refuse(address, systemText(cause));
}

std::optional<unsigned int> SocketLink::peerUser() const {
  std::optional<ucred> const user = peerCredentials(fd());
  return user ? std::optional<unsigned int>(user->uid) : std::nullopt;
}

std::string SocketLink::peerText() const {
  if (std::optional<ucred> const user = peerCredentials(fd())) {
    return "process " + std::to_string(user->pid) + ", user " + std::to_string(user->uid);
  }
  SocketAddress const peer = peerAddress(fd());
  return peer.host.empty() ? "unknown" : peer.text();
}

ByteResult SocketLink::fail(int number) {
  error_ = systemText(number);
  return {0, ByteResult::State::failed};
}

ByteResult SocketLink::read(void* to, std::size_t size) {
  for (;;) {
    ssize_t const count = ::recv(socket_.get(), to, size, 0);
    if (count > 0) return {static_cast<std::size_t>(count), ByteResult::State::open};
    if (count == 0) {
      return {0, size == 0 ? ByteResult::State::open : ByteResult::State::end};
    }
    if (errno == EAGAIN || errno == EWOULDBLOCK) return {};
    if (errno != EINTR) return fail(errno);
  }
}

ByteResult SocketLink::write(void const* from, std::size_t size) {
  for (;;) {
    ssize_t const count = ::send(socket_.get(), from, size, MSG_NOSIGNAL);
    if (count >= 0) return {static_cast<std::size_t>(count), ByteResult::State::open};
    if (errno == EAGAIN || errno == EWOULDBLOCK) return {};
    if (errno != EINTR) return fail(errno);
  }
}

Listener::Listener(SocketAddress const& address, unsigned int mode) : address_(address) {
  if (address_.isUnix()) {
    listenUnix(mode);
  } else {
    listenTcp();
  }
}

Listener::~Listener() {
  struct stat present {};
  if (address_.isUnix() && socket_ && ::lstat(address_.path.c_str(), &present) == 0 &&
      present.st_dev == device_ && present.st_ino == inode_) {
    ::unlink(address_.path.c_str());
  }
}

void Listener::listenUnix(unsigned int mode) {
  sockaddr_un const at = unixAddress(address_);
  auto const* const name = reinterpret_cast<sockaddr const*>(&at);
  lock_ = PathLock(address_.path);
  struct stat present {};
  if (::lstat(address_.path.c_str(), &present) == 0) {
    if (!S_ISSOCK(present.st_mode)) refuse(address_, "exists and is not a socket");
    Descriptor const probe = newSocket(AF_UNIX);
    if (!probe) refuse(address_, systemText(errno));
    // A full backlog is a listener, too.
    if (::connect(probe.get(), name, sizeof at) == 0 || errno == EAGAIN) refuse(address_, inUse);
    if (errno != ECONNREFUSED) refuse(address_, systemText(errno));
    if (::unlink(address_.path.c_str()) != 0) refuse(address_, systemText(errno));
  }
  Descriptor socket = newSocket(AF_UNIX);
  if (!socket) refuse(address_, systemText(errno));
  // The file must never be open to more than it is meant for, not even before a chmod.
  mode_t const mask = ::umask(static_cast<mode_t>(~mode & 0777));
  int const result = ::bind(socket.get(), name, sizeof at);
  int const cause = errno;
  ::umask(mask);
  if (result != 0) refuse(address_, systemText(cause));
  if (::lstat(address_.path.c_str(), &present) == 0) {
    device_ = present.st_dev;
    inode_ = present.st_ino;
  }
  if (::listen(socket.get(), SOMAXCONN) != 0) refuse(address_, systemText(errno));
  socket_ = std::move(socket);
}

void Listener::listenTcp() {
  AddressList const list = resolve(address_, AI_PASSIVE);
  int cause = 0;
  for (addrinfo const* at = list.get(); at != nullptr && !socket_; at = at->ai_next) {
    Descriptor socket = newSocket(at->ai_family);
    int const on = 1;
    if (!socket || ::setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
        ::bind(socket.get(), at->ai_addr, at->ai_addrlen) != 0 ||
        ::listen(socket.get(), SOMAXCONN) != 0) {
      cause = errno;
      continue;
    }
    socket_ = std::move(socket);
  }
  if (!socket_) refuse(address_, systemText(cause));
  sockaddr_storage bound{};
  socklen_t size = sizeof bound;
  char port[NI_MAXSERV] = "";
  if (::getsockname(socket_.get(), reinterpret_cast<sockaddr*>(&bound), &size) != 0) return;
  isLocal_ = isLoopback(bound);
  if (::getnameinfo(reinterpret_cast<sockaddr const*>(&bound), size, nullptr, 0, port, sizeof port,
                    NI_NUMERICSERV) == 0) {
    address_.port = port;
  }
}

std::unique_ptr<SocketLink> Listener::accept() {
  for (;;) {
    Descriptor socket(::accept4(socket_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (socket) return std::make_unique<SocketLink>(std::move(socket), address_.text());
    switch (errno) {
      case EAGAIN:
        return nullptr;
      case EMFILE:
      case ENFILE:
      case ENOBUFS:
      case ENOMEM:
        refuse(address_, systemText(errno));
      // The rest is about one connection that has already gone.
      default:
        break;
    }
    if (errno == EBADF || errno == EINVAL || errno == ENOTSOCK || errno == EOPNOTSUPP) {
      refuse(address_, systemText(errno));
    }
  }
}

}  // namespace Mox::NboAttrLog
