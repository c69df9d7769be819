// Status of a server as a table.
#include "tools/inventoryctl/Top.h"

#include <poll.h>

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <vector>

#include "attrlog/wire/ShownText.h"
#include "tools/inventoryctl/Failure.h"
#include "transport/PollLoop.h"
#include "transport/SocketLink.h"

namespace Tools {
namespace {

using namespace Mox::NboAttrLog;
using Row = std::vector<std::string>;

std::string agoText(std::uint64_t ms) {
  if (ms < 1000) return std::to_string(ms) + " ms";
  std::uint64_t const seconds = ms / 1000;
  if (seconds < 100) return std::to_string(seconds) + " s";
  if (seconds < 6000) return std::to_string(seconds / 60) + " min";
  return std::to_string(seconds / 3600) + " h";
}

/// Columns as wide as what is in them; numbers to the right.
std::string tableText(std::vector<Row> const& rows) {
  std::vector<std::size_t> widths;
  for (Row const& row : rows) {
    widths.resize(std::max(widths.size(), row.size()));
    for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], row[i].size());
  }
  std::string text;
  for (Row const& row : rows) {
    std::string line;
    for (std::size_t i = 0; i < row.size(); ++i) {
      std::string const blanks(widths[i] - row[i].size(), ' ');
      bool const isName = i == 1 || i + 1 == row.size();
      line += (i == 0 ? "" : "  ") + (isName ? row[i] + blanks : blanks + row[i]);
    }
    line.erase(line.find_last_not_of(' ') + 1);
    text += line + "\n";
  }
  return text;
}

}  // namespace

std::string askStatus(Endpoint const& endpoint, SocketAddress const& address,
                      std::uint64_t timeoutMs) {
  std::string status;
  char bytes[65536];
  try {
    int const waitMs = static_cast<int>(std::min<std::uint64_t>(timeoutMs, 1u << 30));
    auto const link = endpoint.connect(address, waitMs);
    std::uint64_t const dueMs = PollLoop::steadyMs() + timeoutMs;
    for (;;) {
      ByteResult const result = link->read(bytes, sizeof bytes);
      status.append(bytes, result.count);
      if (result.state == ByteResult::State::end) {
        if (status.ends_with('\n')) status.pop_back();
        return shownText(status) + "\n";
      }
      if (result.state == ByteResult::State::failed) throw TransportError(link->error());
      if (result.count != 0) continue;
      std::uint64_t const now = PollLoop::steadyMs();
      if (now >= dueMs) throw TransportError(address.text() + ": no answer in time");
      pollfd waiting{link->fd(), POLLIN, 0};
      ::poll(&waiting, 1, static_cast<int>(std::min<std::uint64_t>(dueMs - now, 1u << 30)));
    }
  } catch (TransportError const& failure) {
    throw Failure(exitNoServer, std::string("no status: ") + failure.what());
  }
}

std::string statusTable(std::string const& text) {
  try {
    auto const status = nlohmann::json::parse(text);
    auto const number = [](nlohmann::json const& value) {
      return std::to_string(value.get<std::uint64_t>());
    };
    std::vector<Row> rows{{"NR", "PEER", "AGE", "ENTITIES", "OWED", "KEYS", "OLDEST", "WAITING",
                           "SENT", "RECEIVED", "STATE"}};
    for (auto const& each : status.at("connections")) {
      std::string const peer = each.at("peer").get<std::string>();
      bool const isOwing = each.at("owedEntities").get<std::uint64_t>() != 0;
      rows.push_back({number(each.at("number")),
                      peer.empty() ? each.at("from").get<std::string>() : peer,
                      agoText(each.at("ageMs").get<std::uint64_t>()), number(each.at("entities")),
                      number(each.at("owedAttributes")), number(each.at("owedKeys")),
                      isOwing ? agoText(each.at("oldestDebtMs").get<std::uint64_t>()) : "-",
                      number(each.at("waitingBytes")), number(each.at("bytesSent")),
                      number(each.at("bytesReceived")),
                      each.at("state").get<std::string>() +
                          (each.at("mayWrite").get<bool>() ? ", may write" : "")});
    }
    std::string places;
    for (auto const& each : status.at("listening")) {
      places += (places.empty() ? "" : ", ") + each.at("address").get<std::string>();
    }
    return "process " + number(status.at("process")) + ", up " +
           agoText(status.at("upMs").get<std::uint64_t>()) + ", listening on " + places +
           "; connections: " + std::to_string(rows.size() - 1) + "\n" + tableText(rows);
  } catch (nlohmann::json::exception const&) {
    throw Failure(exitWrongProtocol, "wrong protocol: the status can't be read");
  }
}

}  // namespace Tools
