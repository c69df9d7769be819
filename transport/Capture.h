// A file of what went over connections: written by a server while it works, read to be shown or fed
// to a mirror again. The format stands in docs/programs.md.
#pragma once

#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>

#include "attrlog/link/ByteLink.h"

namespace MOX_API Mox {
namespace NboAttrLog {

/// One thing that happened to a connection.
struct CaptureRecord {
  enum class Kind : std::uint8_t {
    opened = 1,    ///< `bytes`: what is known of the peer
    received = 2,  ///< `bytes` came from the peer
    sent = 3,
    closed = 4,  ///< nothing more of this connection follows
  };
  Kind kind = Kind::opened;
  std::uint32_t connection = 0;  ///< counted from 1
  std::uint64_t atMs = 0;        ///< since the capture began
  std::string bytes;
};

/// Records connections. Links that it made may outlive it; they record nothing any more.
class CaptureWriter {
 public:
  using Clock = std::function<std::uint64_t()>;
  using OnFailed = std::function<void(std::string const& line)>;

  /// Begins the file anew, for this user alone. Throws TransportError "PATH: cause", also when the
  /// file takes nothing.
  CaptureWriter(std::string const& path, Clock clockMs);
  ~CaptureWriter();
  CaptureWriter(CaptureWriter const&) = delete;
  CaptureWriter& operator=(CaptureWriter const&) = delete;

  /// Called once when the file takes no more; nothing is recorded from then on, and the connections
  /// go on.
  void onFailed(OnFailed handler);

  /// `link` with everything that goes through it on record, as the next connection.
  std::unique_ptr<ByteLink> linkOf(std::unique_ptr<ByteLink> link, std::string const& peer);

 private:
  struct File;
  class Link;
  std::shared_ptr<File> file_;
};

/// Reads records in order.
class CaptureReader {
 public:
  /// Throws TransportError "PATH: cause", also for a file that is no capture.
  explicit CaptureReader(std::string const& path);
  ~CaptureReader();
  CaptureReader(CaptureReader const&) = delete;
  CaptureReader& operator=(CaptureReader const&) = delete;

  /// When the capture began, in milliseconds since 1970.
  std::uint64_t beganMs() const { return beganMs_; }
  /// False at the end. Throws TransportError "PATH: cause at offset N" for a damaged record, and
  /// behind one that is cut, of which it gives the bytes that are there.
  bool next(CaptureRecord& record);

 private:
  [[noreturn]] void refuse(std::string const& cause) const;
  std::size_t take(unsigned char* to, std::size_t size);

  std::string path_;
  std::FILE* file_;
  std::uint64_t offset_ = 0;
  bool isCut_ = false;
  std::uint64_t beganMs_ = 0;
};

}  // namespace NboAttrLog
}  // namespace Mox
