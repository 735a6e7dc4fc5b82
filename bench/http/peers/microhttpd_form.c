/* The embedded server libmicrohttpd, parsing the form and storing the file. MEMORY is what a connection has, in KiB:
   more of it makes large uploads faster, and everything else slower.
   Usage: bench_microhttpd PORT DIRECTORY MEMORY */
#include <microhttpd.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

enum { kPostBuffer = 65536 };

static const char* directory;

struct Upload {
  struct MHD_PostProcessor* processor;
  FILE* file;
  char path[256];
};

static enum MHD_Result part(void* user, enum MHD_ValueKind kind, const char* key, const char* filename,
                            const char* type, const char* encoding, const char* data, uint64_t offset, size_t size) {
  struct Upload* upload = user;
  (void)kind, (void)key, (void)type, (void)encoding;
  if (filename == NULL) return MHD_YES;
  if (offset == 0 && upload->file == NULL) {
    snprintf(upload->path, sizeof upload->path, "%s/microhttpd-%p", directory, user);
    upload->file = fopen(upload->path, "wb");
  }
  return upload->file != NULL && fwrite(data, 1, size, upload->file) == size ? MHD_YES : MHD_NO;
}

/* The file is whole and out of the way: as with the other servers, an answer says that the upload has been stored. */
static int store(struct Upload* upload) {
  int complete = upload->processor == NULL || MHD_destroy_post_processor(upload->processor) == MHD_YES;
  upload->processor = NULL;
  if (upload->file == NULL) return complete;
  complete = fclose(upload->file) == 0 && complete;
  upload->file = NULL;
  return unlink(upload->path) == 0 && complete;
}

static void finish(void* user, struct MHD_Connection* connection, void** context,
                   enum MHD_RequestTerminationCode code) {
  struct Upload* upload = *context;
  (void)user, (void)connection, (void)code;
  if (upload == NULL) return;
  store(upload);
  free(upload);
  *context = NULL;
}

static enum MHD_Result handle(void* user, struct MHD_Connection* connection, const char* url, const char* method,
                              const char* version, const char* data, size_t* size, void** context) {
  (void)user, (void)url, (void)version;
  struct Upload* upload = *context;
  if (upload == NULL) {
    upload = calloc(1, sizeof *upload);
    if (upload == NULL) return MHD_NO;
    *context = upload;
    if (strcmp(method, "POST") == 0)
      upload->processor = MHD_create_post_processor(connection, kPostBuffer, part, upload);
    return MHD_YES;
  }
  if (*size > 0) {
    enum MHD_Result result = upload->processor != NULL ? MHD_post_process(upload->processor, data, *size) : MHD_YES;
    *size = 0;
    return result;
  }
  unsigned int status = store(upload) ? MHD_HTTP_OK : MHD_HTTP_INTERNAL_SERVER_ERROR;
  struct MHD_Response* response = MHD_create_response_from_buffer(2, (void*)(uintptr_t) "ok", MHD_RESPMEM_PERSISTENT);
  enum MHD_Result result = MHD_queue_response(connection, status, response);
  MHD_destroy_response(response);
  return result;
}

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  directory = argv[2];
  struct MHD_Daemon* daemon =
      MHD_start_daemon(MHD_USE_THREAD_PER_CONNECTION | MHD_USE_INTERNAL_POLLING_THREAD, (uint16_t)atoi(argv[1]), NULL,
                       NULL, handle, NULL, MHD_OPTION_NOTIFY_COMPLETED, finish, NULL,
                       MHD_OPTION_CONNECTION_MEMORY_LIMIT, (size_t)atoi(argv[3]) * 1024, MHD_OPTION_END);
  if (daemon == NULL) return 1;
  for (;;) pause();
}
