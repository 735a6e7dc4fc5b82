#include "platform/linux/services/controllerd/manifests.h"

#include <zoripc.h>

#include <algorithm>
#include <cerrno>

#include "base/directory.h"
#include "base/file_io.h"
#include "base/ignore.h"
#include "base/regular_file.h"
#include "base/text.h"

namespace controllerd {

namespace {

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

// Why a manifest could not be read, by errno.
std::string objection() {
  if (errno == EFBIG) return "larger than 16 MiB";
  return errno == EINVAL ? "not a regular file" : base::errorText(errno);
}

// "NAME VERSION", or empty with `reason` set.
std::string describe(const std::string& name, const std::string& text, std::string& reason) {
  JSObject manifest;
  if (!JSObject::parse(text, manifest) || !manifest.isObject()) {
    reason = "not a JSON object";
  } else if (!manifest["name"].isString() || !manifest["version"].isString() ||
             manifest["version"].getString().empty()) {
    reason = "without a name and a version";
  } else if (manifest["name"].getString() != name) {
    reason = "names another application, " + manifest["name"].getString();
  } else {
    return name + ' ' + manifest["version"].getString();
  }
  return "";
}

}  // namespace

std::vector<std::string> scanManifests(const std::string& root) {
  std::vector<std::string> lines;
  std::vector<std::string> errors;
  for (const std::string& name : applicationsIn(root + "/apps")) {
    std::string file = "apps/";
    file.append(name).append("/manifest.json");
    std::string text;
    std::string reason;
    std::string line;
    std::string path = root;
    if (base::readRegularFile(path.append("/").append(file), kMaxManifestBytes, text)) {
      line = describe(name, text, reason);
    } else {
      reason = objection();
    }
    if (reason.empty()) {
      lines.push_back(base::printable(line));
    } else {
      line.assign("Error: ").append(file).append(": ").append(reason);
      errors.push_back(base::printable(line));
    }
  }
  lines.insert(lines.end(), errors.begin(), errors.end());
  return lines;
}

}  // namespace controllerd
