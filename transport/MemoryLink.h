// Two byte pipes joined in memory, with chosen room and chosen pieces: connections within one
// thread, for tests and for two trees of one process. Neither waits for the other.
#pragma once

#include <cstddef>
#include <limits>
#include <memory>
#include <string>
#include <utility>

#include "attrlog/link/ByteLink.h"
#include "attrlog/wire/ByteQueue.h"

namespace MOX_API Mox {
namespace NboAttrLog {

/// What one end writes and the other reads. Limits may change at any time.
struct MemoryPipe {
  static constexpr std::size_t unlimited = std::numeric_limits<std::size_t>::max();

  std::size_t capacity = 65536;        ///< bytes that it holds
  std::size_t writePiece = unlimited;  ///< most bytes that one write gives
  std::size_t readPiece = unlimited;   ///< most bytes that one read takes
  bool isEnded = false;                ///< the writer has closed
  bool isCut = false;                  ///< both ends fail; what it held is lost
  ByteQueue bytes;
};

class MemoryLink : public ByteLink {
 public:
  using Pair = std::pair<std::unique_ptr<MemoryLink>, std::unique_ptr<MemoryLink>>;
  /// Two ends; both ways have the same limits at first.
  static Pair pair(std::size_t capacity = 65536, std::size_t piece = MemoryPipe::unlimited);

  MemoryLink(std::shared_ptr<MemoryPipe> in, std::shared_ptr<MemoryPipe> out)
      : in_(std::move(in)), out_(std::move(out)) {}

  ByteResult read(void* to, std::size_t size) override;
  ByteResult write(void const* from, std::size_t size) override;
  void close() override;
  std::string error() const override { return error_; }
  Origin origin() const override { return origin_; }
  /// Before the end becomes a link's.
  void originIs(Origin const& origin) { origin_ = origin; }

  /// The way that this end reads from, and the one that it writes to. They outlive both ends.
  std::shared_ptr<MemoryPipe> const& in() const { return in_; }
  std::shared_ptr<MemoryPipe> const& out() const { return out_; }

 private:
  ByteResult fail(char const* why);

  std::shared_ptr<MemoryPipe> in_;
  std::shared_ptr<MemoryPipe> out_;
  bool isClosed_ = false;
  Origin origin_;
  std::string error_;
};

}  // namespace NboAttrLog
}  // namespace Mox
