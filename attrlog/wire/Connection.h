// The root of what carries an attribute log: the nested Out and In that byte positions and size
// limits belong to, and whose connection an Out or an In serves.
#pragma once

#include "Mox/Api.h"

namespace MOX_API Mox {

class Connection {
 public:
  class Out;
  class In;
};

class ByteConnection {
 public:
  class In;
};

namespace NboAttrLog {

class AdapterHost;
class Demuxer;
class Waker;

/// The owners of a connection, for the rooms above: the bytes' own room follows neither pointer;
/// and who waits for it. All are null once the connection is closed.
struct ConnectionOwner {
  Demuxer* demuxer = nullptr;
  AdapterHost* host = nullptr;
  Waker* waker = nullptr;
};

}  // namespace NboAttrLog
}  // namespace Mox
