// The classes as compiled: fields in their order, virtual operations in their slots (Itanium C++ ABI).
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <type_traits>

#include "tests/unit/http/tracer.h"

namespace {

using zorhtml::HttpHeaders;
using zorhtml::HttpMethod;
using zorhtml::HttpProto;
using zorhtml::HttpThread;
using zorhtml::Thread;
using zorhtml::ThreadControl;

// Calls what stands in slot `slot` of the table that `object` begins with.
template <class Result, class... Arguments>
Result callSlot(void* object, std::size_t slot, Arguments... arguments) {
  void* const* table = nullptr;
  std::memcpy(&table, object, sizeof table);
  Result (*function)(void*, Arguments...) = nullptr;
  std::memcpy(&function, table + slot, sizeof function);
  return function(object, arguments...);
}

using Text = const std::string&;
using Fields = const HttpHeaders&;

// The slot of a virtual operation, from the pointer to the member: it holds the offset in the table, beside a set bit
// that stands in the first word on most processors and in the second on ARM.
template <class Member>
std::size_t slotOf(Member member) {
  std::size_t words[2];
  static_assert(sizeof words == sizeof member);
  std::memcpy(words, &member, sizeof words);
  EXPECT_EQ((words[0] | words[1]) & 1U, 1U) << "not virtual";
  return (words[0] & ~std::size_t{1}) / sizeof(void*);
}

// A wrong order shows here by name; the calls below would follow a wrong slot.
TEST(Slots, Numbers_AreStated) {
  using P = HttpProto;
  using Bytes = std::vector<unsigned char>;
  EXPECT_EQ(slotOf(&P::readHeader), 0U);
  EXPECT_EQ(slotOf(&P::readRequest), 3U);
  EXPECT_EQ(slotOf(&P::readResponse), 4U);
  EXPECT_EQ(slotOf(&P::getBasicAuth), 5U);
  EXPECT_EQ(slotOf<int (P::*)(void*, int)>(&P::readBody), 6U);
  EXPECT_EQ(slotOf<int (P::*)(std::string&)>(&P::readBody), 7U);
  EXPECT_EQ(slotOf<int (P::*)(Bytes&)>(&P::readBody), 8U);
  EXPECT_EQ(slotOf(&P::writeResponseHeader), 9U);
  EXPECT_EQ(slotOf(&P::setBasicAuth), 10U);
  EXPECT_EQ(slotOf(&P::writeRequestHeader), 11U);
  EXPECT_EQ(slotOf<bool (P::*)(const void*, int)>(&P::writeBody), 12U);
  EXPECT_EQ(slotOf<bool (P::*)(const std::string&)>(&P::writeBody), 13U);
  EXPECT_EQ(slotOf<bool (P::*)(const Bytes&)>(&P::writeBody), 14U);
  EXPECT_EQ(slotOf(&P::finishBody), 15U);
  EXPECT_EQ(slotOf(&P::request), 16U);
  EXPECT_EQ(slotOf(&P::sendFile), 17U);
  EXPECT_EQ(slotOf(&P::isClosed), 18U);
  EXPECT_EQ(slotOf(&HttpThread::run), 19U);
  EXPECT_EQ(slotOf(&HttpThread::sendResponse), 20U);
  EXPECT_EQ(slotOf(&HttpThread::sendResponseClose), 21U);
  EXPECT_EQ(slotOf(&HttpThread::doGET), 22U);
  EXPECT_EQ(slotOf(&HttpThread::doPOST), 23U);
  EXPECT_EQ(slotOf(&HttpThread::doHEAD), 24U);
  EXPECT_EQ(slotOf(&Thread::run), 2U);
  EXPECT_EQ(slotOf(&Thread::onStart), 3U);
}

class SlotTest : public testing::Test {
 protected:
  // The operation that slot `slot` of the object's first table holds.
  template <class Result, class... Arguments>
  std::string operationOf(std::size_t slot, Arguments... arguments) {
    trace_.clear();
    callSlot<Result, Arguments...>(&tracer_, slot, arguments...);
    return trace_.empty() ? "" : trace_.front();
  }

  Trace trace_;
  Tracer tracer_{trace_};
  HttpMethod method_ = HttpMethod::Get;
  std::string text_ = "h", out_;
  std::vector<unsigned char> bytes_;
  HttpHeaders fields_;
  bool flag_ = false;
  char byte_ = 0;
};

TEST_F(SlotTest, ReadingOperations_StandInTheirSlots) {
  using Method = HttpMethod&;
  using Out = std::string&;
  EXPECT_EQ((operationOf<int, Method, Out, bool&>(0, method_, out_, flag_)), "readHeader");
  EXPECT_EQ((operationOf<int, Method, Out>(3, method_, out_)), "readRequest");
  EXPECT_EQ((operationOf<int, bool&>(4, flag_)), "readResponse");
  EXPECT_EQ((operationOf<void, Out, Out>(5, out_, text_)), "getBasicAuth");
  EXPECT_EQ((operationOf<int, void*, int>(6, &byte_, 1)), "readBody buffer");
  EXPECT_EQ((operationOf<int, Out>(7, out_)), "readBody string");
  EXPECT_EQ((operationOf<int, std::vector<unsigned char>&>(8, bytes_)), "readBody vector");
}

TEST_F(SlotTest, WritingOperations_StandInTheirSlots) {
  EXPECT_EQ((operationOf<bool, int, int, Text, bool, Fields>(9, 200, 0, text_, true, fields_)), "writeResponseHeader");
  EXPECT_EQ((operationOf<void, Text, Text>(10, text_, text_)), "setBasicAuth");
  EXPECT_EQ((operationOf<bool, HttpMethod, Text, int, Text, bool, Fields>(11, method_, text_, 0, text_, true, fields_)),
            "writeRequestHeader");
  EXPECT_EQ((operationOf<bool, const void*, int>(12, &byte_, 1)), "writeBody buffer");
  EXPECT_EQ((operationOf<bool, Text>(13, text_)), "writeBody string");
  EXPECT_EQ((operationOf<bool, const std::vector<unsigned char>&>(14, bytes_)), "writeBody vector");
  EXPECT_EQ((operationOf<bool>(15)), "finishBody");
  std::string body;
  EXPECT_EQ((operationOf<int, HttpMethod, Text, Text, Text, std::string&, std::string&, bool>(16, method_, text_, text_,
                                                                                              text_, out_, body, true)),
            "request");
  EXPECT_EQ((operationOf<bool, int, Text, Text, bool, Fields>(17, 200, text_, text_, true, fields_)), "sendFile");
  EXPECT_EQ((operationOf<bool>(18)), "isClosed");
}

TEST_F(SlotTest, ServerOperations_StandBehindThem) {
  EXPECT_EQ((operationOf<int>(19)), "run");
  EXPECT_EQ((operationOf<bool, int, Text, Text, Fields>(20, 200, text_, text_, fields_)), "sendResponse");
  EXPECT_EQ((operationOf<bool, int, Text, Text, Fields>(21, 200, text_, text_, fields_)), "sendResponseClose");
  EXPECT_EQ((operationOf<bool, Text>(22, text_)), "doGET h");
  EXPECT_EQ((operationOf<bool, Text>(23, text_)), "doPOST h");
  EXPECT_EQ((operationOf<bool, Text>(24, text_)), "doHEAD h");
}

TEST_F(SlotTest, ThreadTable_ForwardsToTheObject) {
  Thread* thread = &tracer_;
  EXPECT_EQ((callSlot<int>(thread, 2)), 0);
  EXPECT_EQ(trace_.front(), "run");
  trace_.clear();
  callSlot<void, void*>(thread, 3, &byte_);
  EXPECT_EQ(trace_, (Trace{"onStart"}));
  EXPECT_EQ(tracer_.started, &byte_);
}

// Calls the destructor in slot `slot` and the deleting one behind it, seen from the first base or from the thread's.
template <class Base>
void expectDestructorsAt(std::size_t slot) {
  Trace trace;
  Tracer::deletions = 0;
  alignas(Tracer) unsigned char place[sizeof(Tracer)];
  callSlot<void>(static_cast<Base*>(new (place) Tracer(trace)), slot);
  EXPECT_EQ(trace, (Trace{"destructor"}));
  EXPECT_EQ(Tracer::deletions, 0);
  callSlot<void>(static_cast<Base*>(new Tracer(trace)), slot + 1);
  EXPECT_EQ(trace, (Trace{"destructor", "destructor"}));
  EXPECT_EQ(Tracer::deletions, 1);
}

TEST(Slots, Destructors_StandInTheirSlots) {
  expectDestructorsAt<HttpProto>(1);
  expectDestructorsAt<Thread>(0);
}

struct Control : ThreadControl {
  explicit Control(Trace& calls) : ThreadControl(nullptr, true), trace(calls) {}
  ~Control() override { trace.emplace_back("destructor"); }
  Trace& trace;
};

TEST(Slots, ThreadControlDestructors_StandInTheirSlots) {
  Trace trace;
  alignas(Control) unsigned char place[sizeof(Control)];
  callSlot<void>(new (static_cast<void*>(place)) Control(trace), 0);
  callSlot<void>(new Control(trace), 1);
  EXPECT_EQ(trace, (Trace{"destructor", "destructor"}));
}

// Offsets of fields that follow each other without a gap but for their alignment.
class Cursor {
 public:
  explicit Cursor(const void* object) : base_(address(object)), next_(sizeof(void*)) {}

  template <class Field>
  void expect(const Field& field, const char* name) {
    next_ = (next_ + alignof(Field) - 1) / alignof(Field) * alignof(Field);
    EXPECT_EQ(address(&field) - base_, next_) << name;
    next_ += sizeof(Field);  // NOLINT(bugprone-sizeof-expression): of a pointer where the field is one
  }

 private:
  static std::uintptr_t address(const void* at) { return reinterpret_cast<std::uintptr_t>(at); }
  std::uintptr_t base_;
  std::uintptr_t next_;
};

struct Fielded : TestServer {
  void expectOrder() const {
    Cursor cursor(static_cast<const HttpProto*>(this));
    cursor.expect(connection, "connection");
    cursor.expect(timeout, "timeout");
    cursor.expect(bodyRemaining, "bodyRemaining");
    cursor.expect(chunkRemaining, "chunkRemaining");
    cursor.expect(basicAuth, "basicAuth");
    cursor.expect(flag, "flag");
    cursor.expect(clientMode, "clientMode");
    cursor.expect(proxyForm, "proxyForm");
    cursor.expect(headers, "headers");
    cursor.expect(static_cast<const Thread&>(*this), "Thread");
    cursor.expect(buffer, "buffer");
    cursor.expect(fill, "fill");
  }
};

TEST(Fields, Connection_StandInTheirOrder) {
  const Fielded server;
  server.expectOrder();
  EXPECT_EQ(static_cast<const void*>(static_cast<const HttpProto*>(&server)), static_cast<const void*>(&server));
  EXPECT_EQ(sizeof server.buffer, 4096U);
  EXPECT_EQ(sizeof(Thread), sizeof(void*));
}

TEST(Fields, ThreadControl_StandInTheirOrder) {
  Trace trace;
  const Control control(trace);
  Cursor cursor(static_cast<const ThreadControl*>(&control));
  cursor.expect(control.thread, "thread");
  cursor.expect(control.state, "state");
}

// One handler alone makes no server.
struct WithoutPost : HttpThread {
  bool doGET(const std::string&) override { return false; }
};
struct WithoutGet : HttpThread {
  bool doPOST(const std::string&) override { return false; }
};

// Holds at compile time.
static_assert(std::is_abstract_v<WithoutPost> && std::is_abstract_v<WithoutGet>);
static_assert(std::is_same_v<decltype(TestServer::timeout), std::int32_t>);
static_assert(std::is_same_v<decltype(TestServer::bodyRemaining), std::int32_t>);
static_assert(std::is_same_v<decltype(TestServer::chunkRemaining), std::int32_t>);
static_assert(std::is_same_v<decltype(TestServer::flag), std::int32_t>);
static_assert(std::is_same_v<decltype(TestServer::clientMode), std::int32_t>);
static_assert(std::is_same_v<decltype(TestServer::proxyForm), std::int32_t>);
static_assert(std::is_same_v<decltype(TestServer::fill), int>);
static_assert(std::is_same_v<decltype(Control::state), int>);
static_assert(std::is_same_v<decltype(Control::thread), pthread_t>);
static_assert(std::is_same_v<std::underlying_type_t<HttpMethod>, int>);
static_assert(std::is_abstract_v<HttpThread> && std::is_abstract_v<Thread> && !std::is_abstract_v<HttpProto>);
static_assert(std::is_copy_constructible_v<HttpProto> && std::is_copy_constructible_v<TestServer>);
static_assert(!std::is_copy_assignable_v<HttpProto> && !std::is_copy_constructible_v<ThreadControl>);

}  // namespace
