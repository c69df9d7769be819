// Reading and showing socket addresses.
#include "transport/SocketAddress.h"

#include <algorithm>

namespace Mox::NboAttrLog {
namespace {

bool isPort(std::string const& text) {
  bool const isDigits =
      std::all_of(text.begin(), text.end(), [](unsigned char c) { return c >= '0' && c <= '9'; });
  return isDigits && !text.empty() && text.size() <= 5 && std::stoi(text) <= 65535;
}

}  // namespace

SocketAddress SocketAddress::tcp(std::string const& text) {
  std::size_t const colon = text.rfind(':');
  SocketAddress result;
  result.host = colon == std::string::npos ? std::string() : text.substr(0, colon);
  result.port = colon == std::string::npos ? text : text.substr(colon + 1);
  std::string& host = result.host;
  bool const isBracketed = host.size() > 2 && host.front() == '[' && host.back() == ']';
  if (isBracketed) host = host.substr(1, host.size() - 2);
  if (!isPort(result.port) || (!isBracketed && host.find(':') != std::string::npos)) {
    throw TransportError("'" + text + "' is not HOST:PORT");
  }
  if (host.empty()) host = "127.0.0.1";
  return result;
}

std::string SocketAddress::text() const {
  if (isUnix()) return path;
  return (host.find(':') == std::string::npos ? host : "[" + host + "]") + ":" + port;
}

}  // namespace Mox::NboAttrLog
