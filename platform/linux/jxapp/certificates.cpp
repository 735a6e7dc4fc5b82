#include "platform/linux/jxapp/certificates.h"

#include <archive.h>
#include <archive_entry.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <exception>
#include <memory>

#include "base/descriptor.h"
#include "base/directory.h"
#include "base/file_io.h"
#include "base/text.h"

namespace jxinstall {
namespace {

using Writer = std::unique_ptr<archive, int (*)(archive*)>;
using Entry = std::unique_ptr<archive_entry, void (*)(archive_entry*)>;

bool isNamed(const std::string& name, const char* ending) {
  return base::endsWith(name, ending) && name.front() != '.';
}

// The archive is handed to whoever asks for it: a private key that was put here by mistake must not be.
bool isPublicCertificate(const std::string& content) {
  return content.find("-----BEGIN CERTIFICATE-----") != std::string::npos &&
         content.find("PRIVATE KEY-----") == std::string::npos;
}

// Links are followed: a terminal's certificates may be kept elsewhere.
bool readFile(int directory, const std::string& name, std::string& content) {
  base::Descriptor file(openat(directory, name.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  struct stat status {};
  if (!file || fstat(file.get(), &status) != 0) return false;
  if (!S_ISREG(status.st_mode) || status.st_size > static_cast<off_t>(kMaxCertificateFileBytes)) return true;
  content.resize(static_cast<std::size_t>(status.st_size));
  const std::int64_t got = base::readAt(file.get(), content.data(), content.size(), 0);
  content.resize(got < 0 ? 0 : static_cast<std::size_t>(got));
  return got >= 0;
}

// Hands name and content of each file with the ending to `take`; the content of one that cannot be read is empty.
template <typename Take>
bool readFiles(const std::string& folder, const char* ending, Take take) {
  const base::Descriptor directory(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!directory) return errno == ENOENT;
  std::vector<std::string> names;
  bool complete = base::listDirectory(directory.get(), names);
  for (const std::string& name : names) {
    std::string content;
    if (!isNamed(name, ending)) continue;
    complete = readFile(directory.get(), name, content) && complete;
    take(name, std::move(content));
  }
  return complete;
}

// Called by the library, through which nothing may be thrown; it calls even while it is taken down.
la_ssize_t append(archive* writer, void* data, const void* bytes, std::size_t size) try {
  static_cast<std::string*>(data)->append(static_cast<const char*>(bytes), size);
  return static_cast<la_ssize_t>(size);
} catch (const std::exception&) {
  archive_set_error(writer, ENOMEM, "no memory");
  return -1;
}

bool writeEntry(archive* writer, const std::string& name, const std::string& content) {
  constexpr mode_t kMode = 0644;
  const Entry entry(archive_entry_new(), archive_entry_free);
  if (!entry) return false;
  archive_entry_set_pathname(entry.get(), name.c_str());
  archive_entry_set_filetype(entry.get(), AE_IFREG);
  archive_entry_set_perm(entry.get(), kMode);
  archive_entry_set_size(entry.get(), static_cast<la_int64_t>(content.size()));
  return archive_write_header(writer, entry.get()) == ARCHIVE_OK &&
         archive_write_data(writer, content.data(), content.size()) == static_cast<la_ssize_t>(content.size());
}

}  // namespace

bool readCertificateFiles(const std::string& certs, std::vector<std::pair<std::string, std::string>>& files) {
  return readFiles(certs, ".pem", [&](const std::string& name, std::string content) {
    if (isPublicCertificate(content)) files.emplace_back(name, std::move(content));
  });
}

bool readRevocationFiles(const std::string& certs, std::vector<std::pair<std::string, std::string>>& files) {
  return readFiles(certs, ".crl",
                   [&](const std::string& name, std::string content) { files.emplace_back(name, std::move(content)); });
}

bool archiveCertificates(const std::string& root, std::string& archive) {
  std::vector<std::pair<std::string, std::string>> files;
  bool complete = readCertificateFiles(root + "/certs", files);
  const Writer writer(archive_write_new(), archive_write_free);
  if (!writer || archive_write_set_format_ustar(writer.get()) != ARCHIVE_OK ||
      archive_write_open(writer.get(), &archive, nullptr, append, nullptr) != ARCHIVE_OK) {
    return false;
  }
  for (const auto& [name, content] : files) complete = writeEntry(writer.get(), name, content) && complete;
  return archive_write_close(writer.get()) == ARCHIVE_OK && complete;
}

}  // namespace jxinstall
