#include "platform/linux/zorhtml/script_processors.h"

#include <map>
#include <mutex>

namespace jxplatform {
namespace {

struct Registry {
  std::mutex mutex;
  std::map<std::string, RegisteredProcessor> processors;
};

// Never destroyed: a page may still be processed on another thread while the program ends.
Registry& registry() {
  static auto* const instance = new Registry;
  return *instance;
}

}  // namespace

RegisteredProcessor findScriptProcessor(const std::string& name) {
  const std::lock_guard<std::mutex> lock(registry().mutex);
  const auto found = registry().processors.find(name);
  return found == registry().processors.end() ? RegisteredProcessor{} : found->second;
}

}  // namespace jxplatform

namespace zorhtml {

void htmlSetScriptProcessor(const char* name, ScriptProcessor processor, void* userData) {
  if (name == nullptr) return;
  jxplatform::Registry& registry = jxplatform::registry();
  const std::lock_guard<std::mutex> lock(registry.mutex);
  if (processor == nullptr) {
    registry.processors.erase(name);
  } else {
    registry.processors[name] = {processor, userData};
  }
}

}  // namespace zorhtml
