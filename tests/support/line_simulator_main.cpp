// A faulty serial line as a program: prints the two device paths, runs until its standard input ends. A line on
// standard input gives the host's end free after its user was killed; it is answered by one.
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <iterator>

#include "tests/support/line_simulator.h"

namespace {

constexpr const char* kUsage =
    "Usage: line_simulator [rate=BYTES_PER_SECOND] [seed=N] [to_terminal=ONE_IN] [to_host=ONE_IN] [delay_ms=N]\n";

bool setOption(LineSimulator::Settings& settings, const char* word) {
  struct Option {
    const char* name;
    std::uint32_t* value;
  };
  const Option options[] = {{"rate=", &settings.bytesPerSecond},
                            {"seed=", &settings.seed},
                            {"to_terminal=", &settings.toTerminal},
                            {"to_host=", &settings.toHost},
                            {"delay_ms=", &settings.delayMs}};
  const auto* const found = std::find_if(std::begin(options), std::end(options), [word](const Option& option) {
    return std::strncmp(word, option.name, std::strlen(option.name)) == 0;
  });
  if (found == std::end(options)) return false;
  *found->value = static_cast<std::uint32_t>(std::strtoul(word + std::strlen(found->name), nullptr, 10));
  return true;
}

int run(const LineSimulator::Settings& settings) {
  const LineSimulator line(settings);
  std::printf("{\"host\":\"%s\",\"terminal\":\"%s\"}\n", line.hostPath().c_str(), line.terminalPath().c_str());
  std::fflush(stdout);
  char byte = 0;
  while (read(STDIN_FILENO, &byte, 1) > 0) {
    if (byte != '\n') continue;
    line.hostEnd().release();
    while (!line.quiet()) usleep(1000);
    std::puts("free");
    std::fflush(stdout);
  }
  std::printf("{\"faults\":%zu}\n", line.faults());
  return 0;
}

}  // namespace

int main(int argc, char** argv) try {
  std::signal(SIGPIPE, SIG_IGN);  // whoever read the reports may have gone
  LineSimulator::Settings settings;
  for (int i = 1; i < argc; ++i) {
    if (!setOption(settings, argv[i])) return std::fputs(kUsage, stderr) < 0 ? 1 : 2;
  }
  return run(settings);
} catch (const std::exception& failure) {
  std::fprintf(stderr, "line_simulator: %s\n", failure.what());
  return 1;
}
