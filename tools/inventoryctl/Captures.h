// The commands about captures: what `inventoryd --capture` has recorded, or the bytes of one
// direction of a connection as somebody else has saved them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>

#include "Mox/Dir.h"

namespace Tools {

struct DecodeOptions {
  std::uint32_t connection = 0;  ///< 0: all
  bool hasHeaders = false;       ///< shows each frame's header
  std::size_t mostText = 80;     ///< longer texts are cut; 0: none
};

/// Prints what is in the file, line by line:
///
///     CONNECTION SECONDS > LINE      the recording process has sent it
///     CONNECTION SECONDS < LINE      it has received it
///     CONNECTION SECONDS   opened: PEER, closed
///
/// of which the bytes of a single direction have only LINE. `attrlog/wire/StreamText.h` tells what
/// lines there are. Throws Failure, behind what could be read.
void decode(std::string const& path, DecodeOptions const& options, std::ostream& to);

/// Applies what one end of a recorded connection has said to `roots`, as a mirror would have. The
/// connection: the first if 0. `isReceived`: what the recording process has received instead of
/// what it has sent. Throws Failure.
void replay(std::string const& path, std::uint32_t connection, bool isReceived, Mox::Dir& roots);

}  // namespace Tools
