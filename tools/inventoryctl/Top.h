// The command `top`: asks a server's status socket and shows the answer.
#pragma once

#include <cstdint>
#include <string>

#include "tools/common/Endpoint.h"
#include "transport/SocketAddress.h"

namespace Tools {

/// The server's answer, one JSON object. Throws Failure.
std::string askStatus(Endpoint const& endpoint, Mox::NboAttrLog::SocketAddress const& address,
                      std::uint64_t timeoutMs);

/// The answer as a table for people. Throws Failure for a text that is none.
std::string statusTable(std::string const& status);

}  // namespace Tools
