// Records: kind, connection, time, length, bytes.
#include "transport/Capture.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <string_view>
#include <system_error>
#include <utility>

#include "attrlog/wire/Wire.h"
#include "transport/SocketAddress.h"

namespace Mox::NboAttrLog {
namespace {

constexpr std::string_view magic = "MOXCAP1\n";
/// Behind the magic: when the capture began.
constexpr std::size_t beginSize = 8;
/// u8 kind, u32 connection, u64 time, u32 length.
constexpr std::size_t recordHeaderSize = 17;
/// Longer ones are never written: a link reads and writes less at once.
constexpr std::size_t mostBytes = 16u << 20;

std::string systemText(int number) { return std::generic_category().message(number); }

}  // namespace

struct CaptureWriter::File {
  std::string path;
  Clock clockMs;
  std::uint64_t beganMs = 0;
  std::FILE* file = nullptr;
  std::uint32_t connections = 0;
  OnFailed onFailed;

  ~File() { close(); }

  void close() {
    if (file != nullptr) std::fclose(std::exchange(file, nullptr));
  }

  /// Each record is in the file before the program goes on: what was captured of a process that
  /// dies is whole.
  void record(CaptureRecord::Kind kind, std::uint32_t connection, void const* bytes,
              std::size_t size) {
    auto const* from = static_cast<char const*>(bytes);
    do {
      std::size_t const count = std::min(size, mostBytes);
      unsigned char header[recordHeaderSize];
      header[0] = static_cast<unsigned char>(kind);
      putBytes(header + 1, connection, 4);
      putBytes(header + 5, clockMs() - beganMs, 8);
      putBytes(header + 13, count, 4);
      put(header, sizeof header, false);
      put(from, count, true);
      from += count;
      size -= count;
    } while (size != 0);
  }

  void put(void const* bytes, std::size_t size, bool flushes) {
    if (file == nullptr) return;
    bool const isWritten = size == 0 || std::fwrite(bytes, 1, size, file) == size;
    if (isWritten && (!flushes || std::fflush(file) == 0)) return;
    std::string const cause = systemText(errno);
    close();
    if (onFailed) onFailed(path + ": " + cause + "; the capture ends here");
  }
};

class CaptureWriter::Link : public ByteLink {
 public:
  Link(std::shared_ptr<File> file, std::unique_ptr<ByteLink> link, std::string const& peer)
      : file_(std::move(file)), link_(std::move(link)), connection_(++file_->connections) {
    file_->record(CaptureRecord::Kind::opened, connection_, peer.data(), peer.size());
  }
  ~Link() override { close(); }

  ByteResult read(void* to, std::size_t size) override {
    ByteResult const result = link_->read(to, size);
    if (result.count != 0) {
      file_->record(CaptureRecord::Kind::received, connection_, to, result.count);
    }
    return result;
  }
  ByteResult write(void const* from, std::size_t size) override {
    ByteResult const result = link_->write(from, size);
    if (result.count != 0) {
      file_->record(CaptureRecord::Kind::sent, connection_, from, result.count);
    }
    return result;
  }
  void close() override {
    link_->close();
    if (!std::exchange(isClosed_, true)) {
      file_->record(CaptureRecord::Kind::closed, connection_, nullptr, 0);
    }
  }
  std::string error() const override { return link_->error(); }
  Origin origin() const override { return link_->origin(); }
  int fd() const override { return link_->fd(); }

 private:
  std::shared_ptr<File> file_;
  std::unique_ptr<ByteLink> link_;
  std::uint32_t connection_;
  bool isClosed_ = false;
};

CaptureWriter::CaptureWriter(std::string const& path, Clock clockMs) : file_(new File) {
  int const fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  std::FILE* const file = fd < 0 ? nullptr : ::fdopen(fd, "wb");
  if (file == nullptr) {
    std::string const cause = systemText(errno);
    if (fd >= 0) ::close(fd);
    throw TransportError(path + ": " + cause);
  }
  file_->path = path;
  file_->clockMs = std::move(clockMs);
  file_->beganMs = file_->clockMs();
  file_->file = file;
  using namespace std::chrono;
  auto const now = duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
  unsigned char began[beginSize];
  putBytes(began, static_cast<std::uint64_t>(now), sizeof began);
  std::string failure;
  file_->onFailed = [&failure](std::string const& line) { failure = line; };
  file_->put(magic.data(), magic.size(), false);
  file_->put(began, sizeof began, true);
  file_->onFailed = nullptr;
  if (!failure.empty()) throw TransportError(failure);
}

CaptureWriter::~CaptureWriter() {
  file_->onFailed = nullptr;
  file_->close();
}

void CaptureWriter::onFailed(OnFailed handler) { file_->onFailed = std::move(handler); }

std::unique_ptr<ByteLink> CaptureWriter::linkOf(std::unique_ptr<ByteLink> link,
                                                std::string const& peer) {
  return std::make_unique<Link>(file_, std::move(link), peer);
}

CaptureReader::CaptureReader(std::string const& path)
    : path_(path), file_(std::fopen(path.c_str(), "rbe")) {
  unsigned char begin[magic.size() + beginSize];
  struct stat status {};
  std::string cause;
  if (file_ == nullptr) {
    cause = systemText(errno);
  } else if (::fstat(::fileno(file_), &status) == 0 && S_ISDIR(status.st_mode)) {
    cause = systemText(EISDIR);
  } else if (take(begin, sizeof begin) != sizeof begin ||
             std::memcmp(begin, magic.data(), magic.size()) != 0) {
    cause = "not a capture";
  }
  if (!cause.empty()) {
    if (file_ != nullptr) std::fclose(file_);
    throw TransportError(path + ": " + cause);
  }
  beganMs_ = getBytes(begin + magic.size(), beginSize);
}

CaptureReader::~CaptureReader() { std::fclose(file_); }

bool CaptureReader::next(CaptureRecord& record) {
  unsigned char header[recordHeaderSize];
  std::size_t const count = take(header, sizeof header);
  if (count == 0 && !isCut_) return false;
  if (count != sizeof header) refuse("the capture is cut");
  auto const kind = header[0];
  std::size_t const size = getBytes(header + 13, 4);
  if (kind < static_cast<unsigned char>(CaptureRecord::Kind::opened) ||
      kind > static_cast<unsigned char>(CaptureRecord::Kind::closed) || size > mostBytes) {
    refuse("the capture is damaged");
  }
  record.kind = static_cast<CaptureRecord::Kind>(kind);
  record.connection = static_cast<std::uint32_t>(getBytes(header + 1, 4));
  record.atMs = getBytes(header + 5, 8);
  // Room only for what is there, whatever the length says.
  record.bytes.clear();
  constexpr std::size_t piece = 65536;
  while (record.bytes.size() < size) {
    std::size_t const before = record.bytes.size();
    std::size_t const wanted = std::min(piece, size - before);
    record.bytes.resize(before + wanted);
    std::size_t const taken =
        take(reinterpret_cast<unsigned char*>(record.bytes.data()) + before, wanted);
    if (taken == wanted) continue;
    record.bytes.resize(before + taken);
    isCut_ = true;
    break;
  }
  return true;
}

void CaptureReader::refuse(std::string const& cause) const {
  throw TransportError(path_ + ": " + cause + " at offset " + std::to_string(offset_));
}

std::size_t CaptureReader::take(unsigned char* to, std::size_t size) {
  std::size_t const count = std::fread(to, 1, size, file_);
  offset_ += count;
  return count;
}

}  // namespace Mox::NboAttrLog
