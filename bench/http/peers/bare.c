/* The limit of what a server of this shape can do: a thread per connection, 64 KiB reads and writes, no parsing beyond
   the end of the head and Content-Length. GET answers a page of the upload form's size; POST stores the body in a file.
   Usage: bench_bare PORT DIRECTORY */
#define _GNU_SOURCE
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

enum { kBlock = 65536, kPage = 393 };

static const char* directory;
static char page[1024];
static size_t pageLength;

static int writeAll(int fd, const char* data, size_t size) {
  while (size > 0) {
    ssize_t written = write(fd, data, size);
    if (written <= 0) return -1;
    data += written;
    size -= (size_t)written;
  }
  return 0;
}

static int store(int connection, const char* data, size_t have, long long total) {
  static const char reply[] = "HTTP/1.1 200 OK\r\nContent-Length: 2\r\nConnection: Keep-Alive\r\n\r\nok";
  char path[256];
  snprintf(path, sizeof path, "%s/bare-%d", directory, connection);
  int file = open(path, O_WRONLY | O_CREAT | O_TRUNC, 0644);
  char* block = malloc(kBlock);
  int result = file < 0 || block == NULL || writeAll(file, data, have) != 0 ? -1 : 0;
  long long left = total - (long long)have;
  while (result == 0 && left > 0) {
    ssize_t got = read(connection, block, left < kBlock ? (size_t)left : kBlock);
    if (got <= 0 || writeAll(file, block, (size_t)got) != 0) result = -1;
    left -= got;
  }
  free(block);
  close(file);
  unlink(path);
  return result == 0 ? writeAll(connection, reply, sizeof reply - 1) : -1;
}

static void* serveConnection(void* argument) {
  int connection = (int)(long)argument;
  char head[4097];
  size_t have = 0;
  for (;;) {
    ssize_t got = read(connection, head + have, sizeof head - 1 - have);
    if (got <= 0) break;
    have += (size_t)got;
    head[have] = 0;
    char* end = memmem(head, have, "\r\n\r\n", 4);
    if (end == NULL) continue;
    size_t headLength = (size_t)(end + 4 - head);
    const char* length = strcasestr(head, "\r\nContent-Length:");
    int last = strcasestr(head, "\r\nConnection: close") != NULL;
    int failed = head[0] == 'P' && length != NULL
                     ? store(connection, head + headLength, have - headLength, atoll(length + 17))
                     : writeAll(connection, page, pageLength);
    if (failed || last) break;
    have = 0;
  }
  close(connection);
  return NULL;
}

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  directory = argv[2];
  int n = snprintf(page, sizeof page,
                   "HTTP/1.1 200 OK\r\nContent-Length: %d\r\nContent-Type: text/html\r\nConnection: Keep-Alive\r\n\r\n",
                   kPage);
  memset(page + n, 'x', kPage);
  pageLength = (size_t)n + kPage;

  int listener = socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0), on = 1, off = 0;
  setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  setsockopt(listener, IPPROTO_IPV6, IPV6_V6ONLY, &off, sizeof off);
  struct sockaddr_in6 address = {.sin6_family = AF_INET6, .sin6_port = htons((unsigned short)atoi(argv[1]))};
  if (bind(listener, (struct sockaddr*)&address, sizeof address) != 0 || listen(listener, SOMAXCONN) != 0) return 1;
  pthread_attr_t detached;
  pthread_attr_init(&detached);
  pthread_attr_setdetachstate(&detached, PTHREAD_CREATE_DETACHED);
  for (;;) {
    int connection = accept(listener, NULL, NULL);
    if (connection < 0) continue;
    setsockopt(connection, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    pthread_t thread;
    if (pthread_create(&thread, &detached, serveConnection, (void*)(long)connection) != 0) close(connection);
  }
}
