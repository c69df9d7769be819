// The options of an endpoint.
#include "tools/common/Endpoint.h"

#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdlib>
#include <iostream>
#include <system_error>

namespace Tools {
namespace {

std::string defaultDirectory() { return "/tmp/inventoryd-" + std::to_string(::geteuid()); }

}  // namespace

std::string defaultSocketPath() {
  char const* const directory = std::getenv("XDG_RUNTIME_DIR");
  if (directory && *directory) return std::string(directory) + "/inventoryd.sock";
  return defaultDirectory() + "/inventoryd.sock";
}

void defaultDirectoryIs() {
  std::string const path = defaultDirectory();
  if (defaultSocketPath() != path + "/inventoryd.sock") return;
  struct stat present {};
  std::string cause;
  if ((::mkdir(path.c_str(), 0700) != 0 && errno != EEXIST) ||
      ::lstat(path.c_str(), &present) != 0) {
    cause = std::generic_category().message(errno);
  } else if (!S_ISDIR(present.st_mode) || present.st_uid != ::geteuid()) {
    cause = "is no directory of this user";
  } else if ((present.st_mode & 077) != 0) {
    cause = "is open to other users";
  }
  if (!cause.empty()) throw Mox::NboAttrLog::TransportError(path + ": " + cause);
}

std::unique_ptr<Mox::NboAttrLog::SocketLink> Endpoint::connect(
    Mox::NboAttrLog::SocketAddress const& at, int timeoutMs) const {
  auto link = Mox::NboAttrLog::SocketLink::connect(at, timeoutMs);
  std::optional<unsigned int> const user = link->peerUser();
  if (!user || *user == 0 || *user == ::geteuid() || user == serverUser) return link;
  std::string const id = std::to_string(*user);
  throw Mox::NboAttrLog::TransportError(at.text() + ": the server runs as user " + id +
                                        ", neither this one nor root (--server-user " + id +
                                        " allows it)");
}

void Endpoint::optionsTo(CLI::App& app) {
  auto* const unixOption =
      app.add_option("--unix", unixPath, "Unix socket (default " + defaultSocketPath() + ")");
  auto* const tcpOption = app.add_option("--tcp", tcp, "HOST:PORT; loopback without a host");
  unixOption->type_name("PATH")->excludes(tcpOption);
  tcpOption->type_name("HOST:PORT");
}

Mox::NboAttrLog::SocketAddress Endpoint::address() const {
  using Mox::NboAttrLog::SocketAddress;
  if (!tcp.empty()) return SocketAddress::tcp(tcp);
  return SocketAddress::unixPath(unixPath.empty() ? defaultSocketPath() : unixPath);
}

ListenPlace ListenPlace::of(std::string const& text) {
  using Mox::NboAttrLog::SocketAddress;
  ListenPlace place;
  std::string address = text;
  if (address.ends_with(",rw") || address.ends_with(",ro")) {
    place.isWritable = address.back() == 'w';
    address.resize(address.size() - 3);
  }
  if (address.starts_with("unix:") && address.size() > 5) {
    place.address = SocketAddress::unixPath(address.substr(5));
  } else if (address.starts_with("tcp:")) {
    place.address = SocketAddress::tcp(address.substr(4));
  } else {
    throw Mox::NboAttrLog::TransportError(
        "'" + text + "' is not unix:PATH or tcp:HOST:PORT, with or without ,ro or ,rw");
  }
  return place;
}

std::string ListenPlace::text() const {
  return (address.isUnix() ? "unix:" : "tcp:") + address.text() + (isWritable ? ",rw" : ",ro");
}

std::string statusPath(std::string const& socketPath) {
  constexpr std::size_t longestPath = sizeof(sockaddr_un::sun_path) - 1;
  std::string const path = socketPath + ".status";
  return path.size() <= longestPath ? path : "";
}

int parseCommandLine(CLI::App& app, int argc, char** argv) {
  try {
    app.parse(argc, argv);
    return -1;
  } catch (CLI::ParseError const& failure) {
    if (failure.get_exit_code() == 0) return app.exit(failure);
    std::string text = failure.what();
    while (!text.empty() && text.back() == '\n') text.pop_back();
    for (char& c : text) c = c == '\n' ? ' ' : c;
    std::cerr << app.get_name() << ": " << text << " (--help tells more)\n";
    return 2;
  }
}

}  // namespace Tools
