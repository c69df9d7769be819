// Requests for a slot, sent and answered.
#include "attrlog/adapter/Repeats.h"

#include "attrlog/adapter/AdapterHost.h"

namespace Mox::NboAttrLog {

using TransactToken = Connection::Out::TransactToken;

void Repeats::begin(EntityId entity, AttributeId attribute) {
  MsgHeader header;
  header.entityId = entity;
  header.attributeId = attribute;
  host_.out->frameIs(FrameKind::repeat, header);
  host_.out << TransactToken::tokenBegin;
}

void Repeats::request(EntityId entity, AttributeId attribute, std::string_view key) {
  begin(entity, attribute);
  host_.out->bytesIs(key.data(), key.size());
  host_.out << TransactToken::tokenEnd;
}

void Repeats::sendOwed() {
  while (!owed_.empty() && host_.out->freeSpace() >= runReserve) {
    auto const [entity, attribute, key] = *owed_.begin();
    owed_.erase(owed_.begin());
    if (host_.reactors.reactor(EntityId(entity)) == nullptr) continue;
    request(EntityId(entity), attribute, key);
  }
}

void Repeats::refusedHere(Sa& adapter, AttrRow const& row, void const* key) {
  if (++host_.stats.readOnlyWrites == 1) {
    host_.report("may not be written: " + placeText(adapter, row.id) +
                 "; further ones are counted only");
  }
  // A subscriber that corrects what it was notified of would be notified and correct again.
  if (!host_.isRunning() || host_.isReading || !adapter.hasFlag(notAuthority)) return;
  begin(adapter.entityId(), row.id);
  if (key != nullptr) row.writeKey(key, host_.out);
  if (host_.out->freeSpace() >= runReserve) {
    host_.out << TransactToken::tokenEnd;
  } else {
    owed_.emplace(adapter.entityId().value(), row.id, host_.out->takenBack());
  }
}

void Repeats::answer(Sa& adapter, AttrRow const& row, Frame const& frame) {
  In& in = **host_.in;
  if (row.keyOf(frame.payload, frame.payloadSize).size() != frame.payloadSize) {
    throw StreamException(StreamError::badLength);
  }
  ++host_.stats.reflected;
  in.payloadIs(frame.payload, frame.payloadSize);
  try {
    if (row.ownsChildren()) {
      row.partChild(adapter, in);
      in.payloadIs(frame.payload, frame.payloadSize);
    }
    if (row.isCollection()) {
      row.notifyOf(adapter, in);
    } else {
      row.notify(adapter, nullptr);
    }
  } catch (StreamException const&) {
    throw;
  } catch (std::exception const&) {
    throw StreamException(StreamError::badValue);
  }
}

}  // namespace Mox::NboAttrLog
