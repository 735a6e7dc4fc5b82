// The folder of the installed applications, apps/NAME each.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "base/descriptor.h"
#include "platform/linux/jxapp/file.h"

namespace jxinstall {

struct Application {
  std::string name;
  std::optional<std::string> version;  // nothing when its manifest cannot be read
};

// How an application takes the place of its predecessor.
enum class Replacement {
  kExchange,   // in one step; two renames where the file system cannot
  kTwoRenames  // always by two renames
};

// Beside apps/NAME stand, while NAME is being installed or removed, `.new-NAME` (the new application, or the old one
// after an exchange or a removal) and `.old-NAME` (the old one between two renames). A name that begins with a dot is
// no application's, so what a killed installation left tells by its name what it is. The caller holds the installation
// lock.
class ApplicationStore {
 public:
  // Opens `root`/apps, and creates it where it is missing. Throws Failure.
  explicit ApplicationStore(const std::string& root, Replacement replacement = Replacement::kExchange);

  int directory() const { return apps_.get(); }

  // Puts right what a killed installation left: an old application without a new one in its place goes back, everything
  // else that is not an application is removed. What cannot be removed stays for the next time.
  void sweep() const;

  // The applications, by name.
  [[nodiscard]] std::vector<Application> list() const;

  // The version of an installed application: nothing when there is none or its manifest cannot be read.
  [[nodiscard]] std::optional<std::string> versionOf(const std::string& name) const;

  // An empty directory beside the place of `name`. Throws Failure.
  base::Descriptor stage(const std::string& name) const;

  // Puts the staged directory in the place of `name`, brings that to the disk, and removes the predecessor. Throws
  // Failure when the predecessor, if any, is still in its place.
  void commit(const std::string& name) const;

  // Removes the application `name`; false when there is none. It leaves its place in one step and is on the way out
  // only when the disk has that, so that whoever looks, after a power cut too, finds all of it or nothing. Throws
  // Failure when it is still in its place.
  bool remove(const std::string& name) const;

  // Removes what stage() made.
  void discard(const std::string& name) const;

 private:
  [[nodiscard]] bool putBack(const std::string& name) const;
  void swapIn(const std::string& name) const;
  void swapByTwoRenames(const std::string& name) const;

  base::Descriptor apps_;
  Replacement replacement_;
};

}  // namespace jxinstall
