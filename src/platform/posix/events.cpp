// Named auto-reset events on POSIX. An event is a FIFO in a per-user runtime directory:
// signalling writes one byte, a wake reads the FIFO empty. Signals given before a wait thus
// collapse into one, and a wake consumes the signal it reports, as with a Windows auto-reset
// event. Each side opens the FIFO read/write and non-blocking, so opening never waits for a
// peer, a writer never blocks on a full pipe, and the FIFO never reports end-of-file.
#include <cerrno>
#include <climits>
#include <cstring>
#include <ctime>
#include <string>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/os.h"
#include "platform/posix/files.h"

namespace tvx::os {

namespace {

struct FifoEvent {
  int fd;
};

int FdOf(Event event) { return static_cast<FifoEvent*>(event)->fd; }

int64_t NowNs() {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<int64_t>(now.tv_sec) * 1000000000 + now.tv_nsec;
}

// $TORVIXE_RUNTIME_DIR, else $XDG_RUNTIME_DIR/torvixe, else /tmp/torvixe-UID; created private.
// A directory somebody else owns is refused: they could read our signals or plant FIFOs.
bool RuntimeDirectory(std::string* out) {
  std::string dir = posix::EnvOr("TORVIXE_RUNTIME_DIR", "");
  if (dir.empty()) {
    const std::string xdg = posix::EnvOr("XDG_RUNTIME_DIR", "");
    dir = xdg.empty() ? "/tmp/torvixe-" + std::to_string(::geteuid()) : xdg + "/torvixe";
  }
  if (::mkdir(dir.c_str(), 0700) != 0 && errno != EEXIST) return false;
  struct stat st{};
  if (::stat(dir.c_str(), &st) != 0) return false;
  if (!S_ISDIR(st.st_mode)) {
    errno = ENOTDIR;
    return false;
  }
  if (st.st_uid != ::geteuid()) {
    errno = EACCES;
    return false;
  }
  *out = dir;
  return true;
}

// The Windows names carry a "Global\" namespace prefix, which has no meaning here. Whatever
// separators remain become part of the file name, never a way out of the directory.
bool FifoPath(const char* name, std::string* out) {
  if (name == nullptr) {
    errno = EINVAL;
    return false;
  }
  static const char kGlobal[] = "Global\\";
  if (std::strncmp(name, kGlobal, sizeof kGlobal - 1) == 0) name += sizeof kGlobal - 1;
  std::string file(name);
  for (char& c : file) {
    if (c == '/' || c == '\\') c = '_';
  }
  if (file.empty() || file == "." || file == "..") {
    errno = EINVAL;
    return false;
  }
  std::string dir;
  if (!RuntimeDirectory(&dir)) return false;
  *out = dir + "/" + file;
  return true;
}

Event OpenFifo(const char* name, bool create) {
  std::string path;
  if (!FifoPath(name, &path)) return nullptr;
  if (create && ::mkfifo(path.c_str(), 0600) != 0 && errno != EEXIST) return nullptr;
  const int fd = ::open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return nullptr;
  // A regular file of that name would always poll readable: not an event.
  struct stat st{};
  if (::fstat(fd, &st) != 0 || !S_ISFIFO(st.st_mode)) {
    ::close(fd);
    errno = EEXIST;
    return nullptr;
  }
  return new FifoEvent{fd};
}

// Reads the FIFO empty. True when at least one byte was there; false when another waiter
// emptied it between our poll and this read. A read that returns less than it asked for has
// emptied the FIFO, so the usual wake costs one read, not a second that answers EAGAIN; the
// buffer takes a page of signals a read (a reader that copies without waiting leaves the
// driver's signals pending, up to a full pipe).
bool Drain(int fd) {
  bool signalled = false;
  unsigned char buffer[4096];
  for (;;) {
    const ssize_t n = ::read(fd, buffer, sizeof buffer);
    if (n > 0) {
      signalled = true;
      if (size_t(n) < sizeof buffer) return true;
      continue;
    }
    if (n < 0 && errno == EINTR) continue;
    return signalled;
  }
}

}  // namespace

Event CreateNamedEvent(const char* name) { return OpenFifo(name, true); }

Event OpenNamedEvent(const char* name) { return OpenFifo(name, false); }

bool SignalEvent(Event event) {
  if (event == nullptr) {
    errno = EINVAL;
    return false;
  }
  const unsigned char byte = 1;
  for (;;) {
    if (::write(FdOf(event), &byte, 1) == 1) return true;
    if (errno == EINTR) continue;
    // A full pipe holds unconsumed signals already: the event is signalled.
    return errno == EAGAIN;
  }
}

WaitResult WaitForEither(Event first, Event second, uint32_t timeout_ms) {
  if (first == nullptr || second == nullptr) {
    errno = EINVAL;
    return WaitResult::kFailed;
  }
  const bool infinite = timeout_ms == kInfinite;
  const int64_t deadline = NowNs() + static_cast<int64_t>(timeout_ms) * 1000000;
  pollfd fds[2] = {{FdOf(first), POLLIN, 0}, {FdOf(second), POLLIN, 0}};
  for (;;) {
    int wait_ms = -1;
    if (!infinite) {
      const int64_t left = deadline - NowNs();
      // Round up: waking a little early would only spin through another poll.
      const int64_t ms = left <= 0 ? 0 : (left + 999999) / 1000000;
      wait_ms = ms > INT_MAX ? INT_MAX : static_cast<int>(ms);
    }
    const int ready = ::poll(fds, 2, wait_ms);
    if (ready < 0) {
      if (errno == EINTR) continue;
      return WaitResult::kFailed;
    }
    if (ready == 0) {
      if (!infinite && NowNs() >= deadline) return WaitResult::kTimeout;
      continue;   // woke before the deadline (a long time-out is waited in pieces)
    }
    for (int i = 0; i < 2; ++i) {
      if ((fds[i].revents & POLLIN) != 0 && Drain(fds[i].fd)) {
        return i == 0 ? WaitResult::kFirst : WaitResult::kSecond;
      }
    }
    if (((fds[0].revents | fds[1].revents) & (POLLERR | POLLNVAL)) != 0) {
      errno = EBADF;
      return WaitResult::kFailed;
    }
    // Another waiter took the signal first: wait on for the rest of the time.
  }
}

void CloseEvent(Event event) {
  if (event == nullptr) return;
  ::close(FdOf(event));
  delete static_cast<FifoEvent*>(event);
}

}  // namespace tvx::os
