#include "simulation/Trial.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <system_error>

namespace Mox::Simulation {
namespace {

/// The first byte of a child's answer, so that an answer without a text differs from none.
constexpr char answered = '=';

[[noreturn]] void answer(std::function<std::string()> const& play, int to) {
  std::string text;
  try {
    text = play();
  } catch (std::exception const& failure) {
    text = failure.what();
  }
  text.insert(text.begin(), answered);
  for (std::size_t at = 0; at != text.size();) {
    ssize_t const count = ::write(to, text.data() + at, text.size() - at);
    if (count < 0 && errno != EINTR) break;
    if (count > 0) at += static_cast<std::size_t>(count);
  }
  std::fflush(nullptr);
  // Nothing of the parent's is destroyed here.
  ::_exit(0);
}

std::string readAll(int from) {
  std::string text;
  std::array<char, 4096> part;
  for (;;) {
    ssize_t const count = ::read(from, part.data(), part.size());
    if (count > 0) text.append(part.data(), static_cast<std::size_t>(count));
    if (count == 0 || (count < 0 && errno != EINTR)) return text;
  }
}

std::string endText(int status) {
  if (WIFSIGNALED(status)) {
    if (WTERMSIG(status) == SIGALRM) return "it doesn't end";
    return std::string("the process ended: ") + ::strsignal(WTERMSIG(status));
  }
  return "the process ended with code " + std::to_string(WEXITSTATUS(status));
}

}  // namespace

std::string trial(std::function<std::string()> const& play, bool isSilent, unsigned int seconds) {
  std::fflush(nullptr);
  std::array<int, 2> pipe;
  if (::pipe(pipe.data()) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
  pid_t const child = ::fork();
  if (child < 0) throw std::system_error(errno, std::generic_category(), "fork");
  if (child == 0) {
    ::close(pipe[0]);
    if (isSilent) {
      int const nowhere = ::open("/dev/null", O_WRONLY);
      if (nowhere >= 0) ::dup2(nowhere, STDERR_FILENO);
    }
    ::alarm(seconds);
    answer(play, pipe[1]);
  }
  ::close(pipe[1]);
  std::string text = readAll(pipe[0]);
  ::close(pipe[0]);
  int status = 0;
  while (::waitpid(child, &status, 0) < 0 && errno == EINTR) continue;
  if (text.empty() || text.front() != answered) return endText(status);
  return text.substr(1);
}

SharedNumber::SharedNumber(std::uint64_t value) {
  void* const memory = ::mmap(nullptr, sizeof(std::uint64_t), PROT_READ | PROT_WRITE,
                              MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) throw std::system_error(errno, std::generic_category(), "mmap");
  place_ = static_cast<std::uint64_t*>(memory);
  *place_ = value;
}

SharedNumber::~SharedNumber() {
  ::munmap(const_cast<std::uint64_t*>(place_), sizeof(std::uint64_t));
}

}  // namespace Mox::Simulation
