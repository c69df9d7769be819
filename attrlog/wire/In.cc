// Reading values from a payload.
#include "attrlog/wire/In.h"

#include <bit>

#include "attrlog/wire/FrameParser.h"

namespace Mox {

void Connection::In::throwShort() {
  throw NboAttrLog::StreamException(NboAttrLog::StreamError::badLength);
}

Ptr<Connection::In> const& operator>>(Ptr<Connection::In> const& in, String8::Iterator& iterator) {
  std::size_t const available = in->bytesAvailable();
  if (available == 0) {
    iterator.posIs(0);
    return in;
  }
  auto const word = static_cast<std::uint32_t>(NboAttrLog::getBytes(in->take(4), 4));
  std::size_t const count = word & 0x7fffffffu;
  bool const more = (word & 0x80000000u) != 0;
  if (more && count == 0) throw NboAttrLog::StreamException(NboAttrLog::StreamError::badPiece);
  if (iterator.length() + count > NboAttrLog::maxJoinedString) {
    throw NboAttrLog::StreamException(NboAttrLog::StreamError::tooLong);
  }
  auto const* const bytes = reinterpret_cast<char const*>(in->take(count));
  if (!more && iterator.length() == 0) {
    // A whole text, as most are: nothing will be put behind it.
    iterator = String8::Iterator(String8(bytes, count));
  } else {
    iterator.append(bytes, count);
  }
  iterator.posIs(more ? static_cast<int>(iterator.length()) : 0);
  return in;
}

double ByteConnection::In::nextdouble() { return std::bit_cast<double>(number(8)); }

String8 ByteConnection::In::nextString() {
  std::size_t const length = nextU32();
  auto const* bytes = reinterpret_cast<char const*>(take(length));
  return String8(bytes, length);
}

namespace NboAttrLog {

In::~In() = default;

void In::entityIdIs(unsigned char const* position, EntityId id) {
  putBytes(const_cast<unsigned char*>(position), id.value(), 8);
}

void In::throwWrongType() {
  throw AttrLogEntityException(messages::wrongEntityType, Exception::IdBitArray());
}

}  // namespace NboAttrLog
}  // namespace Mox
