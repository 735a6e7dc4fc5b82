// The terminal's certificates, certs/*.pem, and the lists of those that are revoked, certs/*.crl.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace jxinstall {

constexpr std::size_t kMaxCertificateFileBytes = std::size_t{1024} * 1024;

// Name and content of each *.pem of the folder `certs`, by name. Files that are not regular, hold no certificate or
// hold a private key are left out. False when a file or the folder cannot be read; an absent folder is an empty one.
[[nodiscard]] bool readCertificateFiles(const std::string& certs,
                                        std::vector<std::pair<std::string, std::string>>& files);

// Name and content of each *.crl of the folder `certs`, by name: the lists of revoked certificates. None is left out:
// of one that is not regular, too large or cannot be read the content is empty. False when a file or the folder cannot
// be read; an absent folder is an empty one.
[[nodiscard]] bool readRevocationFiles(const std::string& certs,
                                       std::vector<std::pair<std::string, std::string>>& files);

// Fills `archive` with a tar archive (ustar) of the certificates in certs/ below `root`, in the order of their names,
// owned by root, without times, so that the same files make the same bytes. False when something could not be read or
// written; `archive` may then hold a part.
[[nodiscard]] bool archiveCertificates(const std::string& root, std::string& archive);

}  // namespace jxinstall
