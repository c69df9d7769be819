// The driver of the replication workloads: forks a sender A, which has the tree, and a receiver B,
// which starts empty. A socket pair beside the measured connection carries results alone; times are
// those of CLOCK_MONOTONIC, which both processes share.
//
// The two sides are classes of the library that is measured:
//   struct A { A(std::vector<tree::Object> const&, std::string const& workload);  builds, listens
//     void serve(int control);                   accepts and serves until `control` is readable
//     void set(uint32_t index, uint32_t attr, uint32_t value);    the model's setter
//     void pump();                               lets the connection work, never blocks for long
//     void done(uint32_t value);                 marks the end of the changes
//     void serveRest(int control);               sends everything, until `control` is readable
//     void roundTrip(uint32_t value);            returns when the acknowledgement is there
//     uint64_t hash(); }
//   struct B { B(size_t objects, std::string const& workload);  connects
//     void sync();                               returns when all is held
//     void runUntil(uint32_t value);             applies changes until `done(value)` is there
//     void echo(uint32_t count);                 answers round trips
//     uint64_t hash(); uint64_t values(); uint64_t applied(); uint64_t bytes(); }
#pragma once

#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "bench/Workload.h"

namespace bench {

/// Names the connection of this run, the same in both processes.
inline std::string& runTag() {
  static std::string tag;
  return tag;
}
inline std::uint64_t nowNs() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return std::uint64_t(now.tv_sec) * 1000000000u + std::uint64_t(now.tv_nsec);
}
[[noreturn]] inline void die(char const* what) {
  std::perror(what);
  std::_Exit(2);
}
inline bool isReadable(int fd) {
  pollfd entry{fd, POLLIN, 0};
  return ::poll(&entry, 1, 0) > 0;
}

/// A number of KiB from /proc/self/status.
inline std::uint64_t memoryKib(char const* key) {
  std::uint64_t value = 0;
  char line[256];
  if (FILE* file = std::fopen("/proc/self/status", "r")) {
    while (std::fgets(line, sizeof line, file)) {
      if (std::strncmp(line, key, std::strlen(key)) != 0) continue;
      value = std::strtoull(line + std::strlen(key), nullptr, 10);
      break;
    }
    std::fclose(file);
  }
  return value;
}
inline std::uint64_t residentKib() { return memoryKib("VmRSS:"); }
inline std::uint64_t peakKib() { return memoryKib("VmHWM:"); }
inline void peakReset() {
  if (FILE* file = std::fopen("/proc/self/clear_refs", "w")) {
    std::fputs("5", file);
    std::fclose(file);
  }
}

struct Report {
  std::uint64_t begin, end, hash, values, applied, bytes;
};
inline void put(int fd, void const* from, std::size_t size) {
  if (::write(fd, from, size) != static_cast<ssize_t>(size)) die("control write");
}
inline void get(int fd, void* to, std::size_t size) {
  for (std::size_t at = 0; at < size;) {
    ssize_t const count = ::read(fd, static_cast<char*>(to) + at, size - at);
    if (count <= 0) die("control read: the other process ended");
    at += static_cast<std::size_t>(count);
  }
}

inline constexpr std::uint32_t doneMark = 0xFFFFFFFFu, randomChanges = 100000, roundTrips = 20000,
                               warmUp = 2000, hotChanges = 1000000;

inline void pinTo(int cpu) {
  cpu_set_t one;
  CPU_ZERO(&one);
  CPU_SET(cpu, &one);
  sched_setaffinity(0, sizeof one, &one);
}

template <class B>
[[noreturn]] void runReceiver(std::string const& workload, std::size_t objects, int control) {
  alarm(120);
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  char c;
  get(control, &c, 1);
  if (workload == "R3") pinTo(1);
  Report report{};
  report.begin = nowNs();
  B b(objects, workload);
  b.sync();
  report.end = nowNs();
  report.hash = b.hash();
  report.values = b.values();
  report.bytes = b.bytes();
  put(control, &report, sizeof report);
  std::uint64_t const applied = b.applied();
  std::uint64_t const bytes = b.bytes();
  if (workload != "R1") {
    get(control, &c, 1);
    put(control, &c, 1);
  }
  if (workload == "R2" || workload == "R4") {
    b.runUntil(doneMark);
    report = {0, nowNs(), b.hash(), b.values(), b.applied() - applied, b.bytes() - bytes};
    put(control, &report, sizeof report);
  } else if (workload == "R3" || workload == "R3S") {
    b.echo(roundTrips + warmUp);
    report = {0, nowNs(), b.hash(), 0, 0, 0};
    put(control, &report, sizeof report);
  }
  get(control, &c, 1);  // A has finished.
  std::_Exit(0);
}

template <class A>
class Sender {
 public:
  Sender(char const* peer, std::string const& workload, std::string const& size, pid_t receiver,
         int control)
      : peer_(peer),
        workload_(workload),
        name_(workload + "-" + size),
        chips_(static_cast<std::uint32_t>(std::atoi(size.c_str() + 1))),
        receiver_(receiver),
        control_(control) {}

  bool run() {
    std::vector<tree::Object> const objects = tree::objectsOf(chips_);
    a_ = new A(objects, workload_);
    // Made before any clock or size is read.
    tree::Changes generator(objects);
    std::vector<tree::Change> changes;
    if (workload_ == "R2") changes = generator.random(randomChanges);
    if (workload_ == "R4") changes = generator.hot(hotChanges);
    put(control_, "g", 1);
    a_->serve(control_);
    get(control_, &report_, sizeof report_);
    check(report_.hash == a_->hash(), "tree hash differs after the initial transfer");
    check(report_.values == tree::valueCount(chips_), "count of values differs");
    if (workload_ == "R1") transferTold();
    if (workload_ == "R2") increments(changes);
    if (workload_ == "R3" || workload_ == "R3S") roundTripsMade();
    if (workload_ == "R4") stoppedReader(changes);
    std::fflush(stdout);
    put(control_, "e", 1);
    int status = 0;
    waitpid(receiver_, &status, 0);
    check(WIFEXITED(status) && WEXITSTATUS(status) == 0, "the receiver failed");
    return isGood_;
  }

 private:
  void line(char const* metric, double value) const {
    std::printf("{\"workload\":\"%s\",\"peer\":\"%s\",\"metric\":\"%s\",\"value\":%.6g}\n",
                name_.c_str(), peer_, metric, value);
  }
  void check(bool isGood, char const* what) {
    if (isGood) return;
    std::fprintf(stderr, "%s %s: %s\n", peer_, name_.c_str(), what);
    isGood_ = false;
  }
  void start() {
    char c = 's';
    put(control_, &c, 1);
    get(control_, &c, 1);
  }
  void finish() {
    a_->serveRest(control_);
    get(control_, &report_, sizeof report_);
    check(report_.hash == a_->hash(), "tree hash differs at the end");
  }
  void setAll(std::vector<tree::Change> const& changes) {
    for (std::uint32_t i = 0; i < changes.size(); ++i) {
      a_->set(changes[i].index, changes[i].attr, changes[i].value);
      if (i % 500 == 499) a_->pump();
    }
  }

  void transferTold() {
    double const seconds = double(report_.end - report_.begin) * 1e-9;
    line("seconds", seconds);
    line("values_per_s", double(report_.values) / seconds);
    line("wire_bytes", double(report_.bytes));
  }
  void increments(std::vector<tree::Change> const& changes) {
    start();
    std::uint64_t const begin = nowNs();
    setAll(changes);
    a_->done(doneMark);
    finish();
    line("changes_per_s", randomChanges / (double(report_.end - begin) * 1e-9));
    line("applied", double(report_.applied));
    line("wire_bytes_per_change", double(report_.bytes) / randomChanges);
    check(report_.applied >= randomChanges, "changes were put together");
  }
  void roundTripsMade() {
    start();
    std::vector<double> us;
    us.reserve(roundTrips);
    for (std::uint32_t i = 1; i <= roundTrips + warmUp; ++i) {
      std::uint64_t const begin = nowNs();
      a_->roundTrip(i);
      if (i > warmUp) us.push_back(double(nowNs() - begin) * 1e-3);
    }
    finish();
    std::sort(us.begin(), us.end());
    line("p50_us", us[us.size() / 2]);
    line("p99_us", us[us.size() * 99 / 100]);
  }
  void stoppedReader(std::vector<tree::Change> const& changes) {
    start();
    usleep(20000);  // B is in its receive loop.
    kill(receiver_, SIGSTOP);
    int status;
    waitpid(receiver_, &status, WUNTRACED);
    peakReset();
    std::uint64_t const resident = residentKib();
    std::uint64_t const begin = nowNs();
    setAll(changes);
    std::uint64_t const end = nowNs();
    std::uint64_t const after = residentKib();
    a_->done(doneMark);
    std::uint64_t const released = nowNs();
    kill(receiver_, SIGCONT);
    finish();
    std::uint64_t const peak = peakKib();
    line("rss_growth_kib", double(after - std::min(resident, after)));
    line("rss_peak_growth_kib", double(peak - std::min(resident, peak)));
    line("set_ns", double(end - begin) / hotChanges);
    line("catch_up_ms", double(report_.end - released) * 1e-6);
    line("applied", double(report_.applied));
  }

  char const* peer_;
  std::string workload_;
  std::string name_;
  std::uint32_t chips_;
  pid_t receiver_;
  int control_;
  A* a_ = nullptr;
  Report report_{};
  bool isGood_ = true;
};

/// main() of a replication program: one pass of one workload, in one fresh pair of processes.
/// Never returns; exits 0 only if everything was verified.
template <class A, class B>
[[noreturn]] void runReplication(char const* peer, int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: %s R1|R2|R3|R3S|R4 T1|T8|T64\n", argv[0]);
    std::_Exit(1);
  }
  std::string const workload = argv[1];
  std::string const size = argv[2];
  runTag() = "bench-" + std::to_string(getpid());
  if (workload == "R3" || workload == "R3S") pinTo(0);
  alarm(120);
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) die("socketpair");
  pid_t const child = fork();
  if (child == 0) {
    close(ends[0]);
    auto const chips = static_cast<std::uint32_t>(std::atoi(size.c_str() + 1));
    runReceiver<B>(workload, 1 + std::size_t{chips} * tree::objectsPerChip, ends[1]);
  }
  close(ends[1]);
  bool const isGood = Sender<A>(peer, workload, size, child, ends[0]).run();
  std::_Exit(isGood ? 0 : 1);
}

}  // namespace bench
