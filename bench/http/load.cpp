// The client side of the HTTP benchmarks; prints one JSON object.
//   bench_load upload PORT BYTES PATTERN COUNT keep|each
//                                                 COUNT forms of one file each, on one kept connection or a new one
//                                                 each
//   bench_load put PORT BYTES PATTERN COUNT keep|each
//                                                 the same as PUT without a form
//   bench_load get PORT CLIENTS SECONDS keep|each GET / by CLIENTS at once, over kept connections or a new one each
//   bench_load idle PORT CONNECTIONS              a GET on each, waits for a line on standard input, then another on
//   each bench_load first PORT PROGRAM ARGUMENT...     starts PROGRAM and takes the time to its first answer
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/mman.h>
#include <sys/sendfile.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <iostream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

class Connection {
 public:
  explicit Connection(int port) : fd_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int on = 1;
    setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    connected_ = connect(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
  }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  Connection(Connection&& other) noexcept : fd_(other.fd_), connected_(other.connected_) { other.fd_ = -1; }
  Connection& operator=(Connection&&) = delete;
  ~Connection() {
    if (fd_ >= 0) close(fd_);
  }

  bool connected() const { return connected_; }

  void send(const std::string& text, bool moreComes = false) {
    std::size_t at = 0;
    while (at < text.size()) {
      const ssize_t sent = ::send(fd_, text.data() + at, text.size() - at, MSG_NOSIGNAL | (moreComes ? MSG_MORE : 0));
      if (sent <= 0) throw std::runtime_error("the server took no more");
      at += static_cast<std::size_t>(sent);
    }
  }

  void sendFile(int file, std::size_t size) {
    off_t at = 0;
    while (size > 0) {
      const ssize_t sent = sendfile(fd_, file, &at, size);
      if (sent <= 0) throw std::runtime_error("the server took no more");
      size -= static_cast<std::size_t>(sent);
    }
  }

  // Reads one reply with a Content-Length; false when the connection ended first.
  bool readReply() {
    std::string reply;
    char block[4096];
    std::size_t wanted = std::string::npos;
    while (reply.size() < wanted) {
      const ssize_t got = recv(fd_, block, sizeof block, 0);
      if (got <= 0) return false;
      reply.append(block, static_cast<std::size_t>(got));
      const std::size_t end = reply.find("\r\n\r\n");
      if (wanted != std::string::npos || end == std::string::npos) continue;
      const std::size_t field = reply.find("Content-Length: ");
      if (reply.compare(9, 2, "20") != 0 || field == std::string::npos) throw std::runtime_error("bad reply: " + reply);
      wanted = end + 4 + std::strtoul(reply.c_str() + field + 16, nullptr, 10);
    }
    return true;
  }

 private:
  int fd_;
  bool connected_ = false;
};

constexpr std::size_t kBlock = 1 << 20;

std::string makeBlock(const std::string& pattern, const std::string& delimiter) {
  std::string block;
  unsigned state = 1;
  while (block.size() < kBlock) {
    if (pattern == "breaks") {
      block += "\r\n";
    } else if (pattern == "delimiter") {
      block.append(delimiter, 0, delimiter.size() - 1);
    } else {
      state = state * 1664525U + 1013904223U;
      block += static_cast<char>(state >> 24);
    }
  }
  block.resize(kBlock);
  return block;
}

// A file without a name whose pages go out as they are: copying them would make the client the limit.
int makeBody(const std::string& block) {
  const int file = memfd_create("body", MFD_CLOEXEC);
  if (file < 0 || write(file, block.data(), block.size()) != static_cast<ssize_t>(block.size())) {
    throw std::runtime_error("no memory for the body");
  }
  return file;
}

void upload(int port, std::size_t bytes, const std::string& pattern, int count, bool form, bool keep) {
  const std::string delimiter = "\r\n--------------------------d74496d66958873e";
  const std::string head = form ? delimiter.substr(2) +
                                      "\r\nContent-Disposition: form-data; name=\"upload\"; filename=\"a.zip\"\r\n"
                                      "Content-Type: application/octet-stream\r\n\r\n"
                                : "";
  const std::string tail = form ? delimiter + "--\r\n" : "";
  const std::string request =
      (form ? "POST /upload HTTP/1.1\r\nContent-Type: multipart/form-data; boundary=" + delimiter.substr(4) + "\r\n"
            : "PUT /upload HTTP/1.1\r\n") +
      "Host: localhost\r\nConnection: " + (keep ? "keep-alive" : "close") +
      "\r\nContent-Length: " + std::to_string(head.size() + bytes + tail.size()) + "\r\n\r\n" + head;
  const int body = makeBody(makeBlock(pattern, delimiter));
  const Clock::time_point start = Clock::now();
  for (int sent = 0; sent < count;) {
    Connection connection(port);
    do {
      connection.send(request, true);
      for (std::size_t left = bytes; left > 0; left -= std::min(left, kBlock)) {
        connection.sendFile(body, std::min(left, kBlock));
      }
      connection.send(tail);
      if (!connection.readReply()) throw std::runtime_error("no reply");
    } while (++sent < count && keep);
  }
  std::cout << "{\"seconds\": " << secondsSince(start) << "}\n";
}

void getUntil(int port, Clock::time_point end, bool keep, std::vector<double>& times) {
  const std::string request =
      std::string("GET / HTTP/1.1\r\nHost: localhost\r\nConnection: ") + (keep ? "keep-alive" : "close") + "\r\n\r\n";
  while (Clock::now() < end) {
    Connection connection(port);
    do {
      const Clock::time_point start = Clock::now();
      connection.send(request);
      if (!connection.readReply()) throw std::runtime_error("no reply");
      times.push_back(secondsSince(start));
    } while (keep && Clock::now() < end);
  }
}

void get(int port, int clients, int seconds, bool keep) {
  std::vector<std::vector<double>> times(static_cast<std::size_t>(clients));
  std::vector<std::thread> threads;
  const Clock::time_point start = Clock::now();
  threads.reserve(times.size());
  for (std::vector<double>& own : times) {
    threads.emplace_back(
        [&own, port, start, seconds, keep] { getUntil(port, start + std::chrono::seconds(seconds), keep, own); });
  }
  for (std::thread& thread : threads) thread.join();
  const double taken = secondsSince(start);
  std::vector<double> all;
  for (const std::vector<double>& own : times) all.insert(all.end(), own.begin(), own.end());
  std::sort(all.begin(), all.end());
  std::cout << "{\"rate\": " << static_cast<double>(all.size()) / taken
            << ", \"p99_ms\": " << all[all.size() * 99 / 100] * 1e3
            << ", \"stalls\": " << std::count_if(all.begin(), all.end(), [](double t) { return t >= 0.040; }) << "}\n";
}

void idle(int port, int count) {
  const std::string request = "GET / HTTP/1.1\r\nHost: localhost\r\nConnection: keep-alive\r\n\r\n";
  std::vector<Connection> connections;
  connections.reserve(static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) connections.emplace_back(port);
  const auto askAll = [&connections, &request] {
    int answered = 0;
    for (Connection& connection : connections) {
      connection.send(request);
      if (connection.readReply()) ++answered;
    }
    return answered;
  };
  std::cout << "{\"answered\": " << askAll() << "}" << std::endl;
  std::string line;
  std::getline(std::cin, line);
  std::cout << "{\"answered\": " << askAll() << "}" << std::endl;
}

void first(int port, char** command) {
  const Clock::time_point start = Clock::now();
  const pid_t child = fork();
  if (child == 0) {
    execv(command[0], command);
    _exit(127);
  }
  for (;;) {
    if (waitpid(child, nullptr, WNOHANG) != 0) throw std::runtime_error("the server ended");
    Connection connection(port);
    if (!connection.connected()) continue;
    connection.send("GET / HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n");
    if (connection.readReply()) break;
  }
  const double taken = secondsSince(start);
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
  std::cout << "{\"seconds\": " << taken << "}\n";
}

int run(const std::string& mode, int port, int argc, char** argv) {
  if (argc == 7 && (mode == "upload" || mode == "put")) {
    upload(port, std::stoul(argv[3]), argv[4], std::stoi(argv[5]), mode == "upload", std::string(argv[6]) == "keep");
  } else if (argc == 6 && mode == "get") {
    get(port, std::stoi(argv[3]), std::stoi(argv[4]), std::string(argv[5]) == "keep");
  } else if (argc == 4 && mode == "idle") {
    idle(port, std::stoi(argv[3]));
  } else if (argc > 3 && mode == "first") {
    first(port, argv + 3);
  } else {
    std::cerr << "bench_load: see the head of load.cpp\n";
    return 2;
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(argc > 1 ? argv[1] : "", argc > 2 ? std::stoi(argv[2]) : 0, argc, argv);
  } catch (const std::exception& error) {
    std::cerr << "bench_load: " << error.what() << "\n";
    return 1;
  }
}
