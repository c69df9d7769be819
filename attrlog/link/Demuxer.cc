// A connection from greeting to close: cutting what was received into frames, the turn's sending,
// acks and errors. Frames about entities are read in Reader.cc, roots in Roots.cc.
#include "attrlog/link/Demuxer.h"

#include <cstdio>

namespace Mox::NboAttrLog {
namespace {

using TransactToken = Connection::Out::TransactToken;

std::string hex(std::uint64_t value) {
  char text[24];
  std::snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(value));
  return text;
}

}  // namespace

Demuxer::Demuxer(LinkOptions const& options)
    : host_(options, this), reader_(host_), roots_(host_) {}

Demuxer::~Demuxer() {
  if (mode() != Mode::closed) close();
}

LinkStats Demuxer::stats() const {
  LinkStats stats = host_.stats;
  stats.framesSent = host_.exchange.framesSent();
  stats.framesReceived = host_.exchange.framesReceived();
  stats.undelivered = undelivered_;
  return stats;
}

// Life.

void Demuxer::begin() {
  Greeting greeting;
  greeting.bits = Greeting::unifiedIds | Greeting::exports;
  if (options().imports) greeting.bits |= Greeting::imports;
  if (options().grantsWrite) greeting.bits |= Greeting::grantsWrite;
  if (options().wantsWrite) greeting.bits |= Greeting::wantsWrite;
  greeting.schemaHash = options().schemaHash;
  greeting.nonce = host_.nonce();
  greeting.peerName = options().name;
  std::string const bytes = greeting.bytes();
  out()->rawIs(bytes.data(), bytes.size());
}

void Demuxer::close() {
  if (mode() == Mode::closed) return;
  if (mayWrite()) undelivered_ = unacknowledgedFrames();
  roots_.close();
  host_.close();
}

void Demuxer::errorIs(StreamError code, std::string const& text) {
  if (errorCode_ != StreamError::none || mode() == Mode::closed) return;
  errorCode_ = code;
  error_ = text;
  if (!greeted()) return;
  MsgHeader header;
  header.attributeId = static_cast<AttributeId>(code);
  out()->frameIs(FrameKind::error, header);
  out() << TransactToken::tokenBegin << String8(text.c_str()) << TransactToken::tokenEnd;
}

// Receiving.

void Demuxer::dispatchReceived() {
  ByteQueue& received = in()->received();
  while (mode() != Mode::closed && errorCode_ == StreamError::none && !received.empty()) {
    Frame frame;
    std::size_t size = 0;
    try {
      if (mode() == Mode::greeting) {
        size = dispatchGreeting(received);
      } else if ((size = FrameParser::frame(received.data(), received.size(), frame)) != 0) {
        host_.isReading = true;
        dispatch(frame);
        if (observer_) observer_(frame);
      }
      host_.isReading = false;
    } catch (StreamException const& refused) {
      host_.isReading = false;
      errorIs(refused.code(), std::string("log: ") + refused.what() + " at stream offset " +
                                  std::to_string(streamOffset_) + ", entity " +
                                  hex(frame.entityId.value()) + ", attribute " +
                                  std::to_string(frame.attributeId));
      return;
    }
    if (size == 0) return;
    streamOffset_ += size;
    in()->payloadIs(nullptr, 0);
    if (mode() != Mode::closed) received.take(size);
  }
}

/// The bytes of the greeting; 0 when more are needed.
std::size_t Demuxer::dispatchGreeting(ByteQueue const& received) {
  Greeting greeting;
  std::size_t const size = FrameParser::greeting(received.data(), received.size(), greeting);
  if (size == 0) return 0;
  if (greeting.schemaHash != options().schemaHash && options().schemaStrict) {
    throw StreamException(StreamError::badSchema);
  }
  host_.greetedIs(greeting);
  // An older connection of the peer may end in there, whose entities this one brings back.
  if (greeted_) greeted_();
  roots_.greeted();
  roots_.sendWaiting();
  return size;
}

void Demuxer::dispatch(Frame const& frame) {
  host_.exchange.received(frame.kind);
  // The peer's reason for ending counts, whatever else is wrong with its frame.
  if (frame.kind == FrameKind::error) return dispatchError(frame);
  if (host_.exchange.acknowledge(frame.ack) || host_.reactors.isAnyGoneSent()) acknowledged();
  if (host_.announcer.isAnyContested() && host_.announcer.isContested(frame.entityId)) {
    // Written about the peer's own announcement, before it had this end's.
    return reader_.passOver(frame);
  }
  bool const isRoot = frame.entityId == orphanTarget;
  switch (frame.kind) {
    case FrameKind::message:
      return isRoot ? roots_.orphan(frame) : reader_.message(frame);
    case FrameKind::marker:
      return reader_.marker(frame);
    case FrameKind::complete:
      return isRoot ? roots_.complete(frame) : reader_.complete(frame);
    case FrameKind::repeat:
      return reader_.repeat(frame);
    case FrameKind::error:
    case FrameKind::ack:
      return;
  }
}

[[gnu::noinline]] void Demuxer::acknowledged() {
  host_.reactors.acknowledgedIs(host_.exchange.framesAcknowledged());
  host_.announcer.acknowledgedIs(host_.exchange.framesAcknowledged());
}

void Demuxer::dispatchError(Frame const& frame) {
  in()->payloadIs(frame.payload, frame.payloadSize);
  String8 const text = in()->nextString();
  if (in()->bytesAvailable() != 0) throw StreamException(StreamError::badLength);
  if (text.length() > maxErrorText) throw StreamException(StreamError::tooLong);
  auto const code =
      frame.attributeId > 0 && frame.attributeId <= static_cast<AttributeId>(StreamError::badValue)
          ? static_cast<StreamError>(frame.attributeId)
          : StreamError::badHeader;
  errorCode_ = code;
  error_ = "log: refused by the peer: " + std::string(text.charPtr(), text.length());
}

// Sending.

void Demuxer::runFlowOuts(std::function<void()> const& flush) {
  roots_.dropStale();
  out()->withheldIs(0);
  flush();
  host_.repeats.sendOwed();
  roots_.sendWaiting();
  host_.scheduler.run([&] {
    flush();
    roots_.sendWaiting();
  });
  // An id that has gone may be forgotten once the peer has everything that is owed now.
  if (host_.reactors.isAnyGoneOwed() && host_.scheduler.isAllParked() &&
      !host_.announcer.isAnyWithdrawn()) {
    host_.reactors.goneSentIs(host_.exchange.framesCommitted());
  }
  sendAck();
  // Hot attributes of entities in step must not starve those that wait.
  out()->withheldIs(host_.scheduler.hasWaiting() ? queueReserve : 0);
}

bool Demuxer::hasOwed() const {
  return host_.scheduler.hasWaiting() || host_.announcer.isAnyWithdrawn() ||
         host_.announcer.isAnyWaiting() || host_.repeats.isAnyOwed();
}

/// A read-only peer costs the sender only retired ids, so its acks may be late.
bool Demuxer::onlyListens() const { return !mayWrite() && host_.exchange.framesCommitted() == 0; }

/// A frame for each turn would wake a peer that waits for nothing.
void Demuxer::sendAck() {
  if (!greeted() || !host_.exchange.isAckDue(host_.nowMs, onlyListens(), options().ackDelayMs) ||
      out()->freeSpace() < runReserve) {
    return;
  }
  host_.exchange.ackSent();
  MsgHeader header;
  header.isVariableLength = false;
  out()->frameIs(FrameKind::ack, header);
  out() << TransactToken::tokenBegin << TransactToken::tokenEnd;
}

std::optional<std::uint64_t> Demuxer::ackDueMs() const {
  // Without room, the turn comes when there is some.
  bool const isOwed = greeted() && host_.exchange.unacked() != 0;
  return isOwed && out()->freeSpace() >= runReserve ? host_.exchange.ackDueMs() : std::nullopt;
}

// The demuxers of the process.

std::vector<Ptr<Demuxer>> DemuxerManager::nboDemuxerIterator() const {
  std::vector<Ptr<Demuxer>> demuxers;
  for (AdapterHost const* const host : adapterHosts()) demuxers.emplace_back(host->demuxer());
  return demuxers;
}

DemuxerManager& globalNboAttrLogDemuxerManager() {
  static DemuxerManager manager;
  return manager;
}

}  // namespace Mox::NboAttrLog
