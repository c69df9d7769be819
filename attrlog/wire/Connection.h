// The root of what carries an attribute log: the nested Out and In that byte positions and size
// limits belong to. The real connection is NboAttrLog::Link.
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

}  // namespace Mox
