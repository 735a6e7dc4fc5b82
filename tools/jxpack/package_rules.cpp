#include "tools/jxpack/package_rules.h"

#include "base/ignore.h"
#include "platform/linux/jxapp/entry_names.h"
#include "platform/linux/jxapp/failure.h"
#include "platform/linux/jxapp/manifest.h"

namespace jxpack {
namespace {

// What the installer's `check` fails with.
template <typename Check>
std::string failureOf(Check check) try {
  check();
  return "";
} catch (const jxinstall::Failure& failure) {
  return failure.what();
}

}  // namespace

std::string manifestProblem(const std::string& manifest) {
  return failureOf([&] { base::ignore(jxinstall::parseManifest(manifest)); });
}

std::string pathProblem(const std::string& path) {
  if (path == jxinstall::kManifestName || path == jxinstall::kSignatureName) return "the name is reserved";
  return jxinstall::nameProblem(path);
}

std::string pathsProblem(const std::vector<std::string>& paths) {
  return failureOf([&] {
    jxinstall::EntryNames names;
    names.add(jxinstall::kManifestName, false);
    names.add(jxinstall::kSignatureName, false);
    for (const std::string& path : paths) names.add(path, false);
  });
}

}  // namespace jxpack
