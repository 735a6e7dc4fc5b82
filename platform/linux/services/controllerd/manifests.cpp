#include "platform/linux/services/controllerd/manifests.h"

#include <zoripc.h>

#include <algorithm>
#include <cerrno>

#include "base/directory.h"
#include "base/file_io.h"
#include "base/ignore.h"
#include "base/regular_file.h"
#include "base/text.h"
#include "platform/linux/support/failure.h"

namespace controllerd {

namespace {

using jxplatform::Failure;
using zoripc::JSObject;

// A manifest lists every file of its application, and no application has this many.
constexpr std::size_t kMaxManifestBytes = std::size_t{16} * 1024 * 1024;

// What lies beside the applications and begins with a dot is the installer's work in progress.
std::vector<std::string> applicationsIn(const std::string& directory) {
  std::vector<std::string> names;
  // Without a folder nothing is installed.
  base::ignore(base::listDirectory(directory, names));
  const auto isOther = [](const std::string& name) { return name.front() == '.'; };
  names.erase(std::remove_if(names.begin(), names.end(), isOther), names.end());
  return names;
}

std::string manifestOf(const std::string& application) { return "apps/" + application + "/manifest.json"; }

std::string readManifest(const std::string& root, const std::string& file) {
  std::string text;
  if (base::readRegularFile(root + '/' + file, kMaxManifestBytes, text)) return text;
  if (errno == EFBIG) throw Failure("larger than 16 MiB");
  throw Failure(errno == EINVAL ? "not a regular file" : base::errorText(errno));
}

// "NAME VERSION" of the application in the folder `name`, whose manifest is `text`.
std::string describe(const std::string& name, const std::string& text) {
  JSObject manifest;
  if (!JSObject::parse(text, manifest) || !manifest.isObject()) throw Failure("not a JSON object");
  if (!manifest["name"].isString() || !manifest["version"].isString() || manifest["version"].getString().empty()) {
    throw Failure("without a name and a version");
  }
  if (manifest["name"].getString() != name) {
    throw Failure("names another application, " + manifest["name"].getString());
  }
  return name + ' ' + manifest["version"].getString();
}

std::string errorLine(const std::string& file, const Failure& failure) {
  return base::printable("Error: " + file + ": " + failure.what());
}

}  // namespace

std::vector<std::string> scanManifests(const std::string& root) {
  std::vector<std::string> lines;
  std::vector<std::string> errors;
  for (const std::string& name : applicationsIn(root + "/apps")) {
    const std::string file = manifestOf(name);
    try {
      lines.push_back(base::printable(describe(name, readManifest(root, file))));
    } catch (const Failure& failure) {
      errors.push_back(errorLine(file, failure));
    }
  }
  lines.insert(lines.end(), errors.begin(), errors.end());
  return lines;
}

}  // namespace controllerd
