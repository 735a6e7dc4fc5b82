// The receiver under load, or alone on a device, and what it took.
//
// Usage: bench_serial ours|bare RECORDS WINDOW   a host on the other core sends data records over a pseudo-terminal,
// with
//                                                at most WINDOW of them not yet acknowledged; "bare" takes and
//                                                acknowledges them without looking at them
//        bench_serial device PATH               one download on PATH
// Prints one JSON object.
#include <fcntl.h>
#include <sched.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <new>
#include <string>
#include <vector>

#include "serial/crc16.h"
#include "serial/tessolan.h"
#include "serial/wire.h"

namespace {

thread_local bool counting = false;
thread_local unsigned long allocations = 0;

}  // namespace

// Every allocation of the program comes by here, those of the C library included.
extern "C" {
void* __libc_malloc(std::size_t size);  // NOLINT(bugprone-reserved-identifier): the C library's own
void* malloc(std::size_t size) {
  if (counting) ++allocations;
  return __libc_malloc(size);
}
}

namespace {

using Clock = std::chrono::steady_clock;

double seconds() { return std::chrono::duration<double>(Clock::now().time_since_epoch()).count(); }

double cpuSeconds() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

struct Measure {
  double began = 0;
  double ended = 0;
  double cpuBegan = 0;
  double cpuEnded = 0;
  unsigned long long bytes = 0;

  void begin() {
    began = seconds();
    cpuBegan = cpuSeconds();
    counting = true;
  }
  void end() {
    counting = false;
    cpuEnded = cpuSeconds();
    ended = seconds();
  }
  void print() const {
    std::printf("{\"bytes\":%llu,\"seconds\":%.6f,\"cpu_seconds\":%.6f,\"allocations\":%lu}\n", bytes, ended - began,
                cpuEnded - cpuBegan, allocations);
  }
};

// From the beginning of a file to its end.
class Sink : public Tessolan::System {
 public:
  bool openFile(const char* /*name*/) override {
    measure.begin();
    return true;
  }
  bool writeBlock(std::uint32_t /*offset*/, const unsigned char* /*data*/, std::uint32_t length) override {
    measure.bytes += length;
    return true;
  }
  bool closeFile() override {
    measure.end();
    return true;
  }
  bool recordR(const char* /*text*/) override { return true; }
  bool showMessage(const char* /*text*/) override { return true; }
  bool recordS() override { return true; }
  bool recordU() override { return true; }

  Measure measure;
};

void die(const char* what) {
  std::fprintf(stderr, "bench_serial: %s: %s\n", what, std::strerror(errno));
  std::exit(1);
}

void useCore(int core) {
  cpu_set_t cores;
  CPU_ZERO(&cores);
  CPU_SET(core, &cores);
  sched_setaffinity(0, sizeof cores, &cores);  // on a machine with one core both share it
}

std::string checked(const std::string& covered) {
  const std::uint16_t crc = crc16(covered.data(), covered.size());
  return "\x02" + covered + static_cast<char>(crc >> 8U) + static_cast<char>(crc & 0xFFU);
}

std::string dataRecord() {
  std::string data;
  for (unsigned i = 0; i < tessolan::kLargestData; ++i) data += static_cast<char>((i * 7U) & 0xFFU);
  return checked(std::string("W\x04\0\0\0\0\0", 7) + data);
}

void writeAll(int line, const std::string& bytes) {
  for (std::size_t done = 0; done < bytes.size();) {
    const ssize_t put = write(line, bytes.data() + done, bytes.size() - done);
    if (put <= 0) die("write");
    done += static_cast<std::size_t>(put);
  }
}

// Reads `count` answers or more, whatever they are.
std::size_t readAnswers(int line, std::size_t count) {
  char bytes[256];
  std::size_t got = 0;
  while (got < count) {
    const ssize_t size = read(line, bytes, sizeof bytes);
    if (size <= 0) die("read");
    got += static_cast<std::size_t>(size);
  }
  return got;
}

void exchange(int line, const std::string& record, std::size_t answer = 1) {
  writeAll(line, record);
  readAnswers(line, answer);
}

void host(int line, int records, int window) {
  exchange(line, "\x05", 29);
  exchange(line, checked("O" + std::string(40, ' ') + "\x03"));
  const std::string record = dataRecord();
  int open = 0;
  for (int i = 0; i < records; ++i) {
    writeAll(line, record);
    if (++open == window) open -= static_cast<int>(readAnswers(line, 1));
  }
  readAnswers(line, static_cast<std::size_t>(open));
  exchange(line, checked("C\x03"));
  exchange(line, "\x04");
}

void readExactly(int line, char* buffer, std::size_t size) {
  for (std::size_t got = 0; got < size;) {
    const ssize_t count = read(line, buffer + got, size - got);
    if (count <= 0) die("read");
    got += static_cast<std::size_t>(count);
  }
}

// What any receiver of such records must do: read them, and write one byte each.
void bare(int line, int records) {
  char buffer[2048];
  const std::size_t size = dataRecord().size();
  const std::string answer(29, '\x06');
  readExactly(line, buffer, 1);
  if (write(line, answer.data(), 29) != 29) die("write");
  readExactly(line, buffer, 45);
  if (write(line, answer.data(), 1) != 1) die("write");
  Measure measure;
  measure.begin();
  for (int i = 0; i < records; ++i) {
    readExactly(line, buffer, size);
    if (write(line, answer.data(), 1) != 1) die("write");
    measure.bytes += tessolan::kLargestData;
  }
  measure.end();
  measure.print();
  readExactly(line, buffer, 5);
  if (write(line, answer.data(), 1) != 1) die("write");
  readExactly(line, buffer, 1);
  if (write(line, answer.data(), 1) != 1) die("write");
}

int underLoad(bool ours, int records, int window) {
  const int master = posix_openpt(O_RDWR | O_NOCTTY);
  if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0) die("posix_openpt");
  const std::string path = ptsname(master);
  const int device = open(path.c_str(), O_RDWR | O_NOCTTY);
  if (device < 0) die(path.c_str());
  termios raw{};
  cfmakeraw(&raw);
  raw.c_cc[VMIN] = 1;
  tcsetattr(device, TCSANOW, &raw);
  int ready[2];
  if (pipe(ready) != 0) die("pipe");
  const pid_t child = fork();
  if (child == 0) {
    useCore(1);
    close(ready[1]);
    char byte = 0;
    if (read(ready[0], &byte, 1) < 0) die("pipe");
    usleep(200000);  // the receiver opens and flushes its line
    host(master, records, window);
    _exit(0);
  }
  useCore(0);
  close(ready[0]);
  close(ready[1]);
  if (ours) {
    Sink sink;
    const int result = Tessolan(&sink).receive(path.c_str());
    if (result != 0) return 1;
    sink.measure.print();
  } else {
    bare(device, records);
  }
  int status = 0;
  waitpid(child, &status, 0);
  return status == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string mode = argc > 2 ? argv[1] : "";
  if ((mode == "ours" || mode == "bare") && argc == 4) {
    return underLoad(mode == "ours", static_cast<int>(std::strtol(argv[2], nullptr, 10)),
                     static_cast<int>(std::strtol(argv[3], nullptr, 10)));
  }
  if (mode != "device" || argc != 3) return 2;
  Sink sink;
  const int result = Tessolan(&sink).receive(argv[2]);
  if (result == 0) sink.measure.print();
  return result == 0 ? 0 : 1;
}
