#include "tests/unit/serial/download.h"

#include <dirent.h>
#include <gtest/gtest.h>

#include <chrono>
#include <exception>
#include <utility>

#include "serial/crc16.h"
#include "tests/unit/serial/calls.h"

namespace {

std::string checked(const std::string& covered) { return "\x02" + covered + checkValue(covered); }

std::string bigEndian(std::uint32_t value, unsigned size) {
  std::string out;
  while (size-- > 0) out += static_cast<char>((value >> (8U * size)) & 0xFFU);
  return out;
}

}  // namespace

const std::string kParameterRecord = "\x02ZOR,JXAPP,XDL,p,,,,1024,,\x03\x57\xCF";

const std::vector<State> kStates = {
    {"behind the letter of a text", "\x02M"},
    {"in a text", "\x02Mabc"},
    {"in a text's check value", "\x02Mab\x03\x01"},
    {
        "behind the letter of a signal",
        "\x02"
        "C",
    },
    {
        "in a signal's check value",
        "\x02"
        "C\x03\x8A",
    },
    {"behind the letter of data", "\x02W"},
    {"in a data header", bytes("\x02W\0\4\0")},
    {"behind a data header", bytes("\x02W\0\4\0\0\0\0")},
    {"in data", bytes("\x02W\0\4\0\0\0\0ab")},
    {"in data's check value", bytes("\x02W\0\4\0\0\0\0abcd\1")},
};

std::string checkValue(const std::string& covered) {
  const std::uint16_t crc = crc16(covered.data(), covered.size());
  return {static_cast<char>(crc >> 8U), static_cast<char>(crc & 0xFFU)};
}

std::string textRecord(char letter, const std::string& text) { return checked(letter + text + "\x03"); }

std::string openRecord(const std::string& name) { return textRecord('O', std::string(39, ' ') + name); }

std::string signalRecord(char letter) { return checked(std::string(1, letter) + "\x03"); }

std::string dataRecord(std::uint32_t offset, const std::string& data) {
  return checked("W" + bigEndian(static_cast<std::uint32_t>(data.size()), 2) + bigEndian(offset, 4) + data);
}

std::string damaged(std::string record) {
  record.back() = static_cast<char>(record.back() ^ 1);
  return record;
}

bool RecordingSystem::writeBlock(std::uint32_t offset, const unsigned char* data, std::uint32_t length) {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (content_.size() < std::size_t{offset} + length && offset < 100000000) content_.resize(offset + length);
    if (offset < 100000000) content_.replace(offset, length, reinterpret_cast<const char*>(data), length);
  }
  return note("write " + std::to_string(offset) + " " + std::to_string(length));
}

bool RecordingSystem::note(const std::string& call) {
  std::function<void()> hook;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    calls_.push_back(call);
    hook = hook_;
  }
  if (hook) hook();
  return refuse.empty() || call.compare(0, refuse.size(), refuse) != 0;
}

void RecordingSystem::onCall(std::function<void()> hook) {
  const std::lock_guard<std::mutex> lock(mutex_);
  hook_ = std::move(hook);
}

std::vector<std::string> RecordingSystem::calls() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return calls_;
}

std::string RecordingSystem::content() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return content_;
}

int openFiles() {
  int count = 0;
  DIR* const folder = opendir("/proc/self/fd");
  while (readdir(folder) != nullptr) ++count;
  closedir(folder);
  return count;
}

void untilReady(const std::function<void()>& begin) {
  const int before = Calls::instance().flushes;
  begin();
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (Calls::instance().flushes < before + 2) {
    if (std::chrono::steady_clock::now() > end) {
      ADD_FAILURE() << "the line was not flushed twice";
      return;
    }
    std::this_thread::yield();
  }
}

Download::Download(const std::string& refuse, const std::string& path) : receiver(&system) {
  system.refuse = refuse;
  const std::string device = path.empty() ? line.path() : path;
  const auto begin = [this, device] {
    thread_ = std::thread([this, device] {
      Calls::thisThreadReceives();
      try {
        result_ = receiver.receive(device.c_str());
      } catch (const std::exception&) {
        result_ = 99;
      }
    });
  };
  path.empty() ? untilReady(begin) : begin();
}

Download::~Download() {
  receiver.requestAbort();
  line.send("~");  // ends the wait, so that the abort is seen at once
  if (thread_.joinable()) thread_.join();
}

std::string Download::exchange(const std::string& record, std::size_t answer) {
  line.send(record);
  return line.receive(answer);
}

void feed(const PtyPair& line, const std::string& bytes) {
  const Calls& calls = Calls::instance();
  const std::size_t before = calls.bytesRead;
  line.send(bytes);
  while (calls.bytesRead < before + bytes.size()) std::this_thread::yield();
}

int Download::result() {
  thread_.join();
  return result_;
}
