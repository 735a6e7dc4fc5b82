// The receiver with its port operations and fields in reach of tests.
#pragma once

#include <string>
#include <vector>

#include "serial/tessolan.h"

class OpenReceiver : public Tessolan {
 public:
  explicit OpenReceiver(System* callbacks = nullptr) : Tessolan(callbacks) {}
  using Tessolan::abortFlag;
  using Tessolan::fd;
  using Tessolan::readBytes;
  using Tessolan::readRecordBody;
  using Tessolan::setupPort;
  using Tessolan::system;
  using Tessolan::waitForInput;
  using Tessolan::writeBytes;
};
