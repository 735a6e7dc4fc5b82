// Private keys among the files of a package, told by their content.
#pragma once

#include <cstddef>
#include <string>

namespace jxpack {

// Is shown the content of one file, piece by piece.
class PrivateKeyFinder {
 public:
  void add(const char* data, std::size_t size);

  // Whether the file has a private key: in PEM anywhere in it, with its first line of content, so that a program which
  // only knows the words is none; or is, as a whole, one in DER, with or without a passphrase, or a PKCS#12 store.
  [[nodiscard]] bool found() const;

 private:
  std::string window_;  // the last bytes shown
  std::string whole_;   // all of a file that is small enough to be a key in DER
  bool tooLarge_ = false;
  bool pem_ = false;
};

}  // namespace jxpack
