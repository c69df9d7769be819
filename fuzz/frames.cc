// The reader of frames alone: any bytes are frames, the beginning of one, or refused.
#include "attrlog/wire/FrameParser.h"
#include "fuzz/Memory.h"

extern "C" int LLVMFuzzerTestOneInput(unsigned char const* bytes, std::size_t size) {
  namespace Log = Mox::NboAttrLog;
  Fuzz::MemoryBound const bound(size, 4096, 0);
  try {
    for (std::size_t at = 0; at < size;) {
      Log::Frame frame;
      std::size_t const taken = Log::FrameParser::frame(bytes + at, size - at, frame);
      if (taken == 0) break;
      if (taken > size - at || taken != frame.size() || frame.payload < bytes + at ||
          frame.payload + frame.payloadSize > bytes + at + taken) {
        std::abort();
      }
      at += taken;
    }
  } catch (Log::StreamException const&) {
  }
  return 0;
}
