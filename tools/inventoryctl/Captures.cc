// Reads captures and goes through their connections.
#include "tools/inventoryctl/Captures.h"

#include <InvArad.h>

#include <cstdio>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <optional>

#include "attrlog/link/Link.h"
#include "attrlog/link/Session.h"
#include "attrlog/wire/ShownText.h"
#include "attrlog/wire/StreamText.h"
#include "tools/inventoryctl/Failure.h"
#include "transport/Capture.h"
#include "transport/MemoryLink.h"
#include "transport/SocketAddress.h"

namespace Tools {
namespace {

using namespace Mox::NboAttrLog;
using Kind = CaptureRecord::Kind;
using Direction = StreamText::Direction;

unsigned char const* bytesOf(std::string const& text) {
  return reinterpret_cast<unsigned char const*>(text.data());
}

/// True for a file with the bytes of one direction, which begin with a greeting.
bool isBareStream(std::ifstream& file) {
  char magic[7] = "";
  file.read(magic, sizeof magic);
  bool const isBare = file.gcount() == sizeof magic && std::string_view(magic, 7) == "MOXLOG1";
  file.clear();
  file.seekg(0);
  return isBare;
}

/// Gives each record of the file, in order. The bytes of a bare stream were sent on connection 1.
/// True: a bare stream.
bool forEachRecord(std::string const& path,
                   std::function<void(CaptureRecord const&)> const& visit) {
  CaptureRecord record;
  if (std::ifstream file(path, std::ios::binary); file && isBareStream(file)) {
    record.kind = Kind::sent;
    record.connection = 1;
    record.bytes.resize(65536);
    while (file.read(record.bytes.data(), 65536) || file.gcount() > 0) {
      record.bytes.resize(static_cast<std::size_t>(file.gcount()));
      visit(record);
    }
    return true;
  }
  try {
    CaptureReader reader(path);
    while (reader.next(record)) visit(record);
  } catch (TransportError const& damaged) {
    throw Failure(exitFile, damaged.what());
  }
  return false;
}

std::string secondsText(std::uint64_t ms) {
  char text[40];
  std::snprintf(text, sizeof text, "%llu.%03u", static_cast<unsigned long long>(ms / 1000),
                static_cast<unsigned>(ms % 1000));
  return text;
}

/// The lines of all connections of a file.
class Decoder {
 public:
  Decoder(DecodeOptions const& options, bool isBare, std::ostream& to)
      : options_(options), isBare_(isBare), to_(to) {}

  void record(CaptureRecord const& record) {
    if (options_.connection != 0 && record.connection != options_.connection) return;
    prefix_ = std::to_string(record.connection) + " " + secondsText(record.atMs) + " ";
    switch (record.kind) {
      case Kind::opened:
        to_ << prefix_ << "  opened: " << shownText(record.bytes) << '\n';
        break;
      case Kind::closed:
        // Ids mean nothing beyond their connection.
        end(record.connection);
        to_ << prefix_ << "  closed\n";
        break;
      case Kind::received:
      case Kind::sent:
        stream(record.connection)
            .feed(record.kind == Kind::sent ? Direction::sent : Direction::received,
                  bytesOf(record.bytes), record.bytes.size());
        break;
    }
  }
  void end() {
    while (!streams_.empty()) end(streams_.begin()->first);
  }

 private:
  StreamText& stream(std::uint32_t connection) {
    auto& stream = streams_[connection];
    if (!stream) {
      stream = std::make_unique<StreamText>(
          [this](Direction direction, std::string const& line) {
            if (!isBare_) to_ << prefix_ << (direction == Direction::sent ? "> " : "< ");
            to_ << shownText(line) << '\n';
          },
          StreamText::Options{options_.hasHeaders, options_.mostText});
    }
    return *stream;
  }
  void end(std::uint32_t connection) {
    auto const at = streams_.find(connection);
    if (at == streams_.end()) return;
    at->second->end(Direction::sent);
    at->second->end(Direction::received);
    streams_.erase(at);
  }

  DecodeOptions options_;
  bool isBare_;
  std::ostream& to_;
  std::string prefix_;
  std::map<std::uint32_t, std::unique_ptr<StreamText>> streams_;
};

/// A mirror whose server is a recording.
class Player {
 public:
  explicit Player(Mox::Dir& roots) : session_("replay", options()) {
    Inventory::Arad::AradSlice::_fwkType();
    session_.importDirIs(&roots);
    auto ends = MemoryLink::pair(1u << 20);
    server_ = std::move(ends.first);
    link_ = session_.linkIs(std::move(ends.second));
  }

  void bytes(std::string const& bytes) {
    rest_ += bytes;
    try {
      std::size_t at = 0;
      while (std::size_t const size = next(at)) {
        acknowledgesNothing(at, size);
        play(rest_.substr(at, size));
        at += size;
      }
      rest_.erase(0, at);
    } catch (StreamException const& refused) {
      throw Failure(exitFile, std::string("the recorded stream is damaged: ") + refused.what());
    }
  }
  void end() const {
    if (!rest_.empty() || !link_->demuxer().inStep()) {
      throw Failure(exitFile, "the recorded stream ends before the copy is in step");
    }
  }

 private:
  static LinkOptions options() {
    LinkOptions options;
    options.schemaHash = InvArad::schemaHash;
    return options;
  }
  /// Size of the greeting or frame that stands at `at`; 0 when it isn't there yet.
  std::size_t next(std::size_t at) {
    auto const* const from = bytesOf(rest_) + at;
    std::size_t const size = rest_.size() - at;
    if (size == 0) return 0;
    if (isGreeted_) {
      Frame frame;
      return FrameParser::frame(from, size, frame);
    }
    Greeting greeting;
    return FrameParser::greeting(from, size, greeting);
  }
  /// What was acknowledged then isn't what this mirror sends.
  void acknowledgesNothing(std::size_t at, std::size_t size) {
    if (!isGreeted_) {
      isGreeted_ = true;
    } else if (size >= frameOverhead) {
      rest_.replace(at + ackOffset, 4, 4, '\0');
    }
  }
  void play(std::string const& bytes) {
    for (std::size_t at = 0; at < bytes.size();) {
      at += server_->write(bytes.data() + at, bytes.size() - at).count;
      session_.service(0);
      char unread[65536];
      while (server_->read(unread, sizeof unread).count != 0) {
      }
      if (link_->state() == Link::State::closed) {
        throw Failure(exitWrongProtocol, "wrong protocol: " + link_->error());
      }
    }
  }

  static constexpr std::size_t ackOffset = 18;

  Session session_;
  std::unique_ptr<MemoryLink> server_;
  Mox::Ptr<Link> link_;
  std::string rest_;
  bool isGreeted_ = false;
};

}  // namespace

void decode(std::string const& path, DecodeOptions const& options, std::ostream& to) {
  Inventory::Arad::AradSlice::_fwkType();
  bool isBare = false;
  if (std::ifstream file(path, std::ios::binary); file) isBare = isBareStream(file);
  Decoder decoder(options, isBare, to);
  try {
    forEachRecord(path, [&](CaptureRecord const& record) { decoder.record(record); });
  } catch (Failure const&) {
    decoder.end();
    throw;
  }
  decoder.end();
}

void replay(std::string const& path, std::uint32_t connection, bool isReceived, Mox::Dir& roots) {
  Player player(roots);
  bool isFound = false;
  forEachRecord(path, [&](CaptureRecord const& record) {
    if (connection == 0) connection = record.connection;
    if (record.connection != connection) return;
    isFound = true;
    if (record.kind == (isReceived ? Kind::received : Kind::sent)) player.bytes(record.bytes);
  });
  if (!isFound) {
    throw Failure(exitFile, path + ": no connection" +
                                (connection == 0 ? "" : " " + std::to_string(connection)));
  }
  player.end();
}

}  // namespace Tools
