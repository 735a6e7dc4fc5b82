// The processors registered with htmlSetScriptProcessor.
#pragma once

#include <zorhtml.h>

#include <string>

namespace jxplatform {

struct RegisteredProcessor {
  zorhtml::ScriptProcessor run = nullptr;  // null: none is registered
  void* userData = nullptr;
};

// The processor registered for the instruction `name` at this moment. It is called without a lock: a processor may
// register others, and one that is replaced while it runs ends in its own time. Any thread.
[[nodiscard]] RegisteredProcessor findScriptProcessor(const std::string& name);

}  // namespace jxplatform
