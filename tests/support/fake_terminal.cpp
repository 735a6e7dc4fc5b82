#include "tests/support/fake_terminal.h"

#include <zorguiprt.h>
#include <zorplatforminfo.h>
#include <zorsec.h>

#include <algorithm>
#include <cstring>

FakeTerminal& FakeTerminal::instance() {
  static FakeTerminal terminal;
  return terminal;
}

void FakeTerminal::reset() {
  const std::lock_guard<std::mutex> lock(mutex_);
  guiVersion = nullptr;
  serialNumber.clear();
  serialResult = 0;
  informationQueries.clear();
  diagnosticQueries.clear();
  diagnostics_.clear();
  onDiagnostic = nullptr;
}

void FakeTerminal::diagnose(const Diagnostic& answer) {
  const std::lock_guard<std::mutex> lock(mutex_);
  diagnostics_.push_back(answer);
}

std::size_t FakeTerminal::diagnosticCalls() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return diagnosticQueries.size();
}

std::size_t FakeTerminal::diagnosticsLeft() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return diagnostics_.size();
}

int FakeTerminal::nextDiagnostic(int query, unsigned char* buffer, unsigned short* length) {
  const std::lock_guard<std::mutex> lock(mutex_);
  diagnosticQueries.push_back(query);
  if (diagnostics_.empty()) return -1;
  const Diagnostic answer = diagnostics_.front();
  diagnostics_.pop_front();
  std::copy_n(answer.record.begin(), std::min<std::size_t>(answer.record.size(), *length), buffer);
  *length = answer.length.value_or(static_cast<unsigned short>(answer.record.size()));
  return answer.result;
}

int CMDiag(int query, unsigned char* buffer, unsigned short* length) {
  if (FakeTerminal::instance().onDiagnostic) FakeTerminal::instance().onDiagnostic();
  return FakeTerminal::instance().nextDiagnostic(query, buffer, length);
}

int platforminfo_get(int item, char* buffer, unsigned long size, unsigned long* returnedLength) {
  FakeTerminal& terminal = FakeTerminal::instance();
  const bool cleared = std::all_of(buffer, buffer + 20, [](char c) { return c == '\0'; });
  terminal.informationQueries.push_back({item, size, *returnedLength, cleared});
  *returnedLength = std::min<unsigned long>(terminal.serialNumber.size(), size);
  std::memcpy(buffer, terminal.serialNumber.data(), *returnedLength);
  return terminal.serialResult;
}

namespace zorgui {

const char* gui_GetSvcVersion() { return FakeTerminal::instance().guiVersion; }

}  // namespace zorgui
