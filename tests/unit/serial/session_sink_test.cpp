// The sink of a session, reached through what the progress page's callback is given.
#include <cstring>

#include "tests/unit/serial/session.h"

namespace {

// The download's sink as the Itanium ABI lays it out.
struct CallbackLayout {
  void** slots;
  std::FILE* file;
  int counter;
  PageVars* vars;
  void* pageContext;
};

// Behind the receiver's slots lies its System, the sink.
void* sinkOf(const ShownPage& page) {
  void* sink = nullptr;
  std::memcpy(&sink, static_cast<char*>(page.data) + sizeof(void*), sizeof sink);
  return sink;
}

}  // namespace

TEST_F(Session, Sink_HoldsFileCounterVariablesAndContextInThisOrder) {
  int messages = 0;
  FakeGui::instance().onAsync([&](const ShownPage& page) {
    if (page.vars.count("message") == 0) return;
    void* const sink = sinkOf(page);
    CallbackLayout layout{};
    std::memcpy(&layout, sink, sizeof layout);
    EXPECT_EQ(messages == 0, layout.file == nullptr);
    EXPECT_EQ(messages, layout.counter);
    EXPECT_EQ(page.vars.at("message"), layout.vars->at("message"));
    EXPECT_EQ(page.data, layout.pageContext);
    ++messages;
  });
  beginAndConnect();
  exchange(textRecord('M', "before"));
  exchange(openRecord("a"));
  exchange(textRecord('M', "after"));
  exchange("\x04");
  EXPECT_EQ(0, end());
  EXPECT_EQ(2, messages);
}

TEST_F(Session, FailedOpen_UsesUpItsNumber) {
  std::vector<bool> opened;
  FakeGui::instance().onAsync([&](const ShownPage& page) {
    if (page.vars.count("message") == 0) return;
    void* const sink = sinkOf(page);
    const std::string folder = installer().sourceDir;
    installer().sourceDir = root_ + "/absent/source";
    opened.push_back(static_cast<Tessolan::System*>(sink)->openFile("a"));
    installer().sourceDir = folder;
  });
  beginAndConnect();
  exchange(textRecord('M', "now"));
  EXPECT_EQ("\x06", exchange(openRecord("b")));
  exchange("\x04");
  EXPECT_EQ(0, end());
  EXPECT_EQ(std::vector<bool>{false}, opened);
  EXPECT_EQ("absent", archive(0));
  EXPECT_EQ("", archive(1));
}

TEST_F(Session, MessageWithoutAPageContext_IsAcceptedSilently) {
  int shown = 0;
  bool accepted = false;
  FakeGui::instance().onAsync([&](const ShownPage& page) {
    if (++shown != 2) return;
    void* const sink = sinkOf(page);
    CallbackLayout layout{};
    std::memcpy(&layout, sink, sizeof layout);
    void* const context = layout.pageContext;
    layout.pageContext = nullptr;
    std::memcpy(sink, &layout, sizeof layout);
    accepted = static_cast<Tessolan::System*>(sink)->showMessage("unseen");
    layout.pageContext = context;
    std::memcpy(sink, &layout, sizeof layout);
  });
  beginAndConnect();
  exchange(textRecord('M', "seen"));
  exchange("\x04");
  EXPECT_EQ(0, end());
  EXPECT_TRUE(accepted);
  EXPECT_EQ((Names{"download-ddl.html", "download-ddl.html", "install-ddl.html", "result.html"}),
            FakeGui::instance().shownNames());
}
