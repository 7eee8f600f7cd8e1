#include "trace/TraceFile.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <pthread.h>
#include <sched.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <atomic>

#include "trace/NextLibrary.h"
#include "trace/Record.h"

namespace trace {
namespace {

constexpr uint64_t kUsualBound = 8 << 20;
constexpr uint64_t kLeastBound = 64 << 10;
constexpr uint64_t kMostBound = 1 << 30;
constexpr char kFirstWords[] = "{\"trace\":";

std::atomic<pid_t> g_process = 0;

// The process and the thread that asked last on this thread.
thread_local pid_t t_process = 0;
thread_local pid_t t_thread = 0;

// All but the first two belong to the holder of g_lock.
std::atomic<bool> g_isRecording = false;
std::atomic<uint32_t> g_lost = 0;
BriefLock g_lock;
char g_path[PATH_MAX];
char g_olderPath[PATH_MAX + 2];
uint64_t g_half = kUsualBound / 2;
int g_descriptor = -1;
struct stat g_opened;    // the file behind g_descriptor
pid_t g_introduced = 0;  // the process that wrote its first line into it
bool g_isCut = false;    // the last line was written in part

bool IsSameFile(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// The descriptor is one that no host expects to be free: neither a standard stream nor the lowest.
int OpenAside(const char* path) {
  const int flags = O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
  const int low = open(path, flags, 0600);
  if (low < 0) return -1;
  int high = fcntl(low, F_DUPFD_CLOEXEC, 100);
  if (high < 0) high = fcntl(low, F_DUPFD_CLOEXEC, 3);
  const int error = errno;
  close(low);
  errno = error;
  return high;
}

// A file that is there already is added to if it is a trace, and never touched if it is anything else.
bool IsTraceOrEmpty(int descriptor, const struct stat& status) {
  char words[sizeof kFirstWords - 1];
  if (status.st_size == 0) return true;
  return pread(descriptor, words, sizeof words, 0) == sizeof words && memcmp(words, kFirstWords, sizeof words) == 0;
}

void CloseFile() {
  if (g_descriptor >= 0) close(g_descriptor);
  g_descriptor = -1;
}

// Returns 0 or an error number.
int OpenFile() {
  CloseFile();
  const int descriptor = OpenAside(g_path);
  if (descriptor < 0) return errno;
  int error = 0;
  if (fstat(descriptor, &g_opened) != 0) {
    error = errno;
  } else if (!S_ISREG(g_opened.st_mode)) {
    error = EINVAL;
  } else if (!IsTraceOrEmpty(descriptor, g_opened)) {
    error = EEXIST;
  }
  if (error != 0) {
    close(descriptor);
    return error;
  }
  g_descriptor = descriptor;
  g_introduced = 0;
  return 0;
}

// The file behind the descriptor as it is now. False when a host that closes what it does not know has closed it (the
// number may stand for a file of the host's by now), or when the file was removed.
bool IsOpen(struct stat& status) {
  if (g_descriptor < 0 || fstat(g_descriptor, &status) != 0 || !IsSameFile(status, g_opened)) {
    g_descriptor = -1;
    return false;
  }
  return status.st_nlink > 0;
}

bool WouldPassLimit(const struct stat& status, size_t bytes) {
  rlimit limit{};
  if (getrlimit(RLIMIT_FSIZE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) return false;
  return static_cast<uint64_t>(status.st_size) + bytes + 1 > limit.rlim_cur;
}

// One of the processes that share the file makes it the older one; the others find that out.
bool BeginNextFile() {
  struct stat named {};
  if (flock(g_descriptor, LOCK_EX | LOCK_NB) == 0) {
    const bool isMine = stat(g_path, &named) == 0 && IsSameFile(named, g_opened);
    const bool isRenamed = isMine && rename(g_path, g_olderPath) == 0;
    flock(g_descriptor, LOCK_UN);
    if (isMine && !isRenamed) return false;
  } else if (stat(g_path, &named) == 0 && IsSameFile(named, g_opened)) {
    return false;  // another process is about to
  }
  return OpenFile() == 0;
}

bool Write(const char* text, size_t size) {
  const ssize_t written = write(g_descriptor, text, size);
  if (written > 0) g_isCut = static_cast<size_t>(written) < size;
  return written == static_cast<ssize_t>(size);
}

// The file is open and has room for so many bytes.
bool MakeReady(size_t bytes) {
  struct stat status {};
  if (!IsOpen(status)) {
    if (OpenFile() != 0) return false;
    status = g_opened;
  }
  if (static_cast<uint64_t>(status.st_size) + bytes > g_half && status.st_size > 0) {
    if (!BeginNextFile()) return false;
    status = g_opened;
  }
  return !WouldPassLimit(status, bytes);
}

// What every process says first, and again at the head of every file.
bool Introduce() {
  const pid_t process = ProcessId();
  if (g_introduced == process) return true;
  char program[512] = "";
  const ssize_t length = readlink("/proc/self/exe", program, sizeof program - 1);
  if (length < 0) program[0] = '\0';
  Line line;
  line.Number("trace", 1).Number("process", process).Number("time", Microseconds());
  line.Text("program", program, sizeof program);
  DescribeNextLibrary(line);
  line.Finish();
  if (!Write(line.data(), line.size())) return false;
  g_introduced = process;
  return true;
}

bool TellLost() {
  const uint32_t lost = g_lost.load(std::memory_order_relaxed);
  if (lost == 0) return true;
  Line line;
  line.Unsigned("lost", lost).Number("process", ProcessId());
  line.Finish();
  if (!Write(line.data(), line.size())) return false;
  g_lost.fetch_sub(lost, std::memory_order_relaxed);
  return true;
}

bool AppendHeld(const Line& line) {
  constexpr size_t longestBefore = 2048;  // what may be told before the line
  if (!MakeReady(line.size() + longestBefore)) return false;
  if (g_isCut && !Write("\n", 1)) return false;
  return Introduce() && TellLost() && Write(line.data(), line.size());
}

// Disk quotas and slow disks are no reason for a host's thread to end where it did not before.
class NoCancellation {
 public:
  NoCancellation() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &m_before); }
  ~NoCancellation() { pthread_setcancelstate(m_before, nullptr); }
  NoCancellation(const NoCancellation&) = delete;
  NoCancellation& operator=(const NoCancellation&) = delete;

 private:
  int m_before = 0;
};

// A relative name is one of the folder in which the process is now.
bool KeepPath(const char* file) {
  size_t begin = 0;
  if (*file != '/') {
    if (!getcwd(g_path, sizeof g_path)) return false;
    begin = strlen(g_path);
    if (begin + 1 >= sizeof g_path) return false;
    g_path[begin++] = '/';
  }
  const size_t length = strlen(file);
  if (begin + length >= sizeof g_path) return false;
  memcpy(g_path + begin, file, length + 1);
  memcpy(g_olderPath, g_path, begin + length);
  memcpy(g_olderPath + begin + length, ".1", 3);
  return true;
}

uint64_t BoundFromEnvironment() {
  const char* text = secure_getenv("TESSVIK_TRACE_BYTES");
  if (!text || *text < '0' || *text > '9') return kUsualBound;
  const uint64_t bound = strtoull(text, nullptr, 10);
  return bound < kLeastBound ? kLeastBound : bound > kMostBound ? kMostBound : bound;
}

// The environment is read before the host has threads that may change it; the file is made at the first call.
__attribute__((constructor)) void Prepare() {
  const int error = errno;
  g_process = getpid();
  pthread_atfork(nullptr, nullptr, [] {
    g_process = getpid();
    g_lock.Release();
  });
  g_half = BoundFromEnvironment() / 2;
  const char* file = secure_getenv("TESSVIK_TRACE");
  g_isRecording = file && *file && KeepPath(file);
  errno = error;
}

}  // namespace

bool BriefLock::TryFor() {
  constexpr int kTimes = 5000;
  for (int i = 0; i < kTimes; ++i) {
    if (!__atomic_test_and_set(&m_isHeld, __ATOMIC_ACQUIRE)) return true;
    sched_yield();
  }
  return false;
}

int64_t Microseconds() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return int64_t{now.tv_sec} * 1000000 + now.tv_nsec / 1000;
}

int32_t ProcessId() {
  return g_process.load(std::memory_order_relaxed);
}

int32_t ThreadId() {
  if (t_process != ProcessId()) {
    t_process = ProcessId();
    t_thread = static_cast<pid_t>(syscall(SYS_gettid));
  }
  return t_thread;
}

bool IsRecording() {
  return g_isRecording.load(std::memory_order_acquire);
}

int32_t ChooseFile(const char* file) {
  if (!g_lock.TryFor()) return EBUSY;
  g_isRecording = false;
  CloseFile();
  int error = 0;
  if (file && !KeepPath(file)) error = ENAMETOOLONG;
  if (file && error == 0) error = OpenFile();
  g_isRecording = file && error == 0;
  g_lock.Release();
  return error;
}

void Append(Line& line) {
  const NoCancellation whole;
  line.Finish();
  if (!g_lock.TryFor()) {
    g_lost.fetch_add(1, std::memory_order_relaxed);
    return;
  }
  if (!AppendHeld(line)) g_lost.fetch_add(1, std::memory_order_relaxed);
  g_lock.Release();
}

}  // namespace trace

extern "C" __attribute__((visibility("default"))) int32_t ttRecord(const char* file) {
  const int before = errno;
  const int32_t error = trace::ChooseFile(file);
  errno = before;
  return error;
}
