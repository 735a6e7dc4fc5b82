// The system calls that mean the simulated line's device, or go through.
#pragma once

class SimulatedLine;

struct SimulatedDevice {
  static SimulatedDevice& instance();
  SimulatedLine* line = nullptr;  // null: every call goes through
};
