#include "tests/unit/tools/jxpush/serial/scripted_terminal.h"

#include "tools/jxpush/common/problem.h"

namespace {

const std::string kParameters = "\x02ZOR,JXAPP,XDL,p,,,,1024,,\x03\x57\xCF";

std::size_t bigEndian(const std::string& bytes) {
  std::size_t value = 0;
  for (const char byte : bytes) value = value << 8U | static_cast<unsigned char>(byte);
  return value;
}

}  // namespace

void ScriptedTerminal::reset() {
  fate = nullptr;
  interrupted = nullptr;
  hungUp = nullptr;
  state_ = State();
}

void ScriptedTerminal::write(const void* data, std::size_t size) {
  failWhenHungUp();
  const std::string bytes(static_cast<const char*>(data), size);
  // What goes out in one piece is an enquiry, an end, a record, or an enquiry with a record behind it.
  const bool enquires = bytes[0] == '\x05';
  if (enquires) receive(bytes.substr(0, 1));
  if (size > 1 || !enquires) receive(bytes.substr(enquires ? 1 : 0));
}

void ScriptedTerminal::offer(unsigned char byte) {
  if (now_ >= opensAt) write(&byte, 1);
}

void ScriptedTerminal::receive(const std::string& bytes) {
  if (state_.ended) return;
  if (bytes == "\x05") return answerTo('E', bytes);
  if (bytes == "\x04") return answerTo('.', bytes);
  state_.records.push_back(bytes);
  answerTo(bytes.at(1), bytes);
}

int ScriptedTerminal::readByte(int timeoutMs) {
  failWhenHungUp();
  if (interrupted && interrupted()) throw jxpush::Interrupted();
  if (state_.input.empty()) {
    now_ += std::chrono::milliseconds(timeoutMs);
    return -1;
  }
  const char byte = state_.input.front();
  state_.input.pop_front();
  return static_cast<unsigned char>(byte);
}

void ScriptedTerminal::failWhenHungUp() const {
  if (hungUp && hungUp()) throw jxpush::Problem(jxpush::ExitCode::kGaveUp, "the line was hung up");
}

void ScriptedTerminal::answerTo(char letter, const std::string& record) {
  state_.letters += letter;
  const Fate* const told = fate ? fate(letter, ++state_.counts[static_cast<unsigned char>(letter)]) : nullptr;
  std::string answer;
  if (told == nullptr || told->taken) answer = act(letter, record);
  if (told != nullptr) answer = told->answer;
  state_.input.insert(state_.input.end(), answer.begin(), answer.end());
}

std::string ScriptedTerminal::act(char letter, const std::string& record) {
  switch (letter) {
    case 'E':
      return kParameters;
    case '.':
      return end(0);
    case 'O':
      state_.files.emplace_back();
      state_.open = true;
      return "\x06";
    case 'W': {
      const std::size_t size = bigEndian(record.substr(2, 2));
      if (size > 1024) return end(-4);
      if (!state_.open) return end(-5);
      const std::size_t offset = bigEndian(record.substr(4, 4));
      if (state_.files.back().size() < offset + size) state_.files.back().resize(offset + size);
      state_.files.back().replace(offset, size, record.substr(8, size));
      return "\x06";
    }
    case 'C':
      state_.open = false;
      return "\x06";
    case 'M':
      state_.messages.push_back(record.substr(2, record.size() - 5));
      return "\x06";
    default:
      return "\x15";
  }
}

std::string ScriptedTerminal::end(int result) {
  state_.ended = true;
  state_.result = result;
  return "\x04";
}
