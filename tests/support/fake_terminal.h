// A scripted stand-in for what the terminal tells about itself: GUI version, serial number, diagnostic records.
#pragma once

#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

class FakeTerminal {
 public:
  // One answer of the diagnostic query. Without a length the record's own.
  struct Diagnostic {
    int result = 0;
    std::string record;
    std::optional<unsigned short> length;
  };

  static FakeTerminal& instance();

  // Back to: nothing known, no records.
  void reset();

  const char* guiVersion = nullptr;
  std::string serialNumber;  // what is written into the buffer, also when the query fails
  int serialResult = 0;

  std::function<void()> onDiagnostic;       // runs within each diagnostic query, before its answer
  void diagnose(const Diagnostic& answer);  // queues an answer; without one the query fails with -1
  std::size_t diagnosticCalls() const;
  std::size_t diagnosticsLeft() const;

  // What the fakes of the libraries call.
  int nextDiagnostic(int query, unsigned char* buffer, unsigned short* length);

  struct InformationQuery {
    int item;
    unsigned long size;
    unsigned long returnedLength;
    bool bufferCleared;  // all of the 20 bytes
  };
  std::vector<InformationQuery> informationQueries;
  std::vector<int> diagnosticQueries;

 private:
  mutable std::mutex mutex_;
  std::deque<Diagnostic> diagnostics_;
};
