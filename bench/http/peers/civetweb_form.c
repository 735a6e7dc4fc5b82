/* The embedded server civetweb, parsing the form and storing the file. Usage: bench_civetweb PORT DIRECTORY */
#include <civetweb.h>
#include <stdio.h>
#include <unistd.h>

static const char* directory;

static int found(const char* key, const char* filename, char* path, size_t pathLength, void* user) {
  (void)key;
  if (filename == NULL || *filename == 0) return MG_FORM_FIELD_STORAGE_SKIP;
  snprintf(path, pathLength, "%s/civetweb-%p", directory, user);
  return MG_FORM_FIELD_STORAGE_STORE;
}

static int stored(const char* path, long long size, void* user) {
  (void)size;
  (void)user;
  unlink(path);
  return MG_FORM_FIELD_HANDLE_NEXT;
}

static int upload(struct mg_connection* connection, void* data) {
  struct mg_form_data_handler handler = {found, NULL, stored, connection};
  (void)data;
  mg_handle_form_request(connection, &handler);
  mg_printf(connection, "HTTP/1.1 200 OK\r\nContent-Length: 2\r\nConnection: keep-alive\r\n\r\nok");
  return 200;
}

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  directory = argv[2];
  const char* options[] = {"listening_ports",       argv[1], "num_threads", "16",
                           "enable_keep_alive",     "yes",   "tcp_nodelay", "1",
                           "keep_alive_timeout_ms", "30000", NULL};
  mg_init_library(0);
  struct mg_context* context = mg_start(NULL, NULL, options);
  if (context == NULL) return 1;
  mg_set_request_handler(context, "/upload", upload, NULL);
  for (;;) pause();
}
