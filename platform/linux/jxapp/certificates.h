// The terminal's certificates, certs/*.pem.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace jxinstall {

constexpr std::size_t kMaxCertificateFileBytes = std::size_t{1024} * 1024;

// Name and content of each certs/*.pem below `root`, by name. Files that are not regular, hold no certificate or hold a
// private key are left out. False when a file or the folder cannot be read; an absent folder is an empty one.
[[nodiscard]] bool readCertificateFiles(const std::string& root,
                                        std::vector<std::pair<std::string, std::string>>& files);

// Fills `archive` with a tar archive (ustar) of those files, in the order of their names, owned by root, without times,
// so that the same files make the same bytes. False when something could not be read or written; `archive` may then
// hold a part.
[[nodiscard]] bool archiveCertificates(const std::string& root, std::string& archive);

}  // namespace jxinstall
