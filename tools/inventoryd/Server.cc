// Connections from everywhere into one session.
#include "tools/inventoryd/Server.h"

#include <InvArad.h>
#include <unistd.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>

#include "attrlog/wire/ShownText.h"
#include "transport/Admission.h"

namespace Tools {
namespace {

using namespace Mox::NboAttrLog;

/// Refused connections are reported this often.
constexpr std::uint64_t fullReportMs = 10000;

LinkOptions linkOptions(ServerOptions const& options) {
  LinkOptions link;
  link.schemaHash = InvArad::schemaHash;
  link.outCapacity = options.buffer;
  return link;
}

char const* stateText(Link::State state) {
  switch (state) {
    case Link::State::greeting:
      return "greeting";
    case Link::State::running:
      return "running";
    case Link::State::closed:
      break;
  }
  return "closed";
}

}  // namespace

Server::Server(ServerOptions const& options, Mox::Ptr<Mox::Entity> const& root, Report report)
    : report_(std::move(report)),
      maxConnections_(std::min(options.maxConnections, descriptorRoom())),
      session_("inventoryd", linkOptions(options)),
      beganMs_(loop_.nowMs()) {
  if (!options.capturePath.empty()) {
    capture_.emplace(options.capturePath, PollLoop::steadyMs);
    capture_->onFailed(report_);
  }
  session_.onReport(report_);
  session_.onClosed([this](Link& link, std::string const&) {
    std::erase_if(guests_, [&link](Guest const& guest) { return guest.link == &link; });
  });
  session_.exportIs(root);
  session_.exportsDone();
  loop_.onReport(report_);
  loop_.sessionIs(session_);
  for (ListenPlace const& place : options.places) {
    places_.push_back({place.isWritable, std::make_unique<Listener>(place.address, options.mode)});
    loop_.listenerIs(*places_.back().listener,
                     [this, isWritable = place.isWritable](std::unique_ptr<SocketLink> socket) {
                       accepted(std::move(socket), isWritable);
                     });
  }
  if (!options.statusPath.empty()) {
    status_.emplace(loop_, SocketAddress::unixPath(options.statusPath), options.mode,
                    [this] { return statusText(); });
  }
  if (maxConnections_ < options.maxConnections) {
    report_("descriptors limit the connections to " + std::to_string(maxConnections_));
  }
  for (Place const& place : places_) {
    if (!place.isWritable || place.listener->isLocal()) continue;
    report_("warning: whoever reaches " + place.listener->address().text() +
            " may change the tree: there is no authentication");
  }
  // Whoever reads the lines of one place may take the word for it that all are there.
  for (Place const& place : places_) {
    report_("listening on " + place.listener->address().text() +
            (place.isWritable ? ", peers may write" : ""));
  }
}

Server::~Server() {
  session_.onReport(nullptr);
  session_.closeIs("the server ends");
  session_.service(loop_.nowMs());
}

void Server::accepted(std::unique_ptr<SocketLink> socket, bool isWritable) {
  if (!admits(session_, socket->origin(), maxConnections_)) {
    std::uint64_t const now = loop_.nowMs();
    if (fullReportedMs_ && now - *fullReportedMs_ < fullReportMs) return;
    fullReportedMs_ = now;
    report_(socket->peerText() + ": refused, " + std::to_string(maxConnections_) +
            " connections are the most");
    return;
  }
  std::string const from = socket->peerText();
  std::unique_ptr<ByteLink> bytes = std::move(socket);
  if (capture_) bytes = capture_->linkOf(std::move(bytes), from);
  LinkOptions link = session_.options();
  link.grantsWrite = isWritable;
  Mox::Ptr<Link> const made = session_.linkIs(std::move(bytes), link);
  guests_.push_back({made.get(), ++lastGuest_, from, loop_.nowMs()});
}

std::string Server::statusText() const {
  using Json = nlohmann::ordered_json;
  std::uint64_t const now = loop_.nowMs();
  Json status;
  status["process"] = ::getpid();
  status["upMs"] = now - beganMs_;
  status["listening"] = Json::array();
  for (Place const& place : places_) {
    status["listening"].push_back(
        {{"address", place.listener->address().text()}, {"peersMayWrite", place.isWritable}});
  }
  status["connections"] = Json::array();
  for (Guest const& guest : guests_) {
    Demuxer const& demuxer = guest.link->demuxer();
    LinkStats const stats = guest.link->stats();
    LinkDebt const debt = demuxer.debt();
    status["connections"].push_back({
        {"number", guest.number},
        {"peer", shownText(guest.link->peerName())},
        {"from", guest.from},
        {"state", stateText(guest.link->state())},
        {"mayWrite", demuxer.options().grantsWrite},
        {"ageMs", now - guest.sinceMs},
        {"entities", demuxer.reactorCount()},
        {"owedEntities", debt.entities},
        {"owedAttributes", debt.attributes},
        {"owedKeys", debt.keys},
        {"oldestDebtMs", debt.oldestMs},
        {"waitingBytes", demuxer.out()->committedSize()},
        {"bytesSent", stats.bytesSent},
        {"bytesReceived", stats.bytesReceived},
        {"framesSent", stats.framesSent},
        {"framesReceived", stats.framesReceived},
        {"strays", stats.strays},
        {"unknownAttributes", stats.unknownAttrs},
        {"unknownEnumerators", stats.unknownEnums},
        {"refusedRoots", stats.refusedOrphans},
        {"refusedWrites", stats.readOnlyWrites},
        {"handlerExceptions", stats.handlerExceptions},
    });
  }
  return status.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace Tools
