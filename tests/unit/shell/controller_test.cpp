#include "shell/controller.h"

#include "tests/unit/shell/fixture.h"

namespace {

using ControllerTest = ShellTest;

TEST_F(ControllerTest, Notification_CarriesCommandAndVersion) {
  notifyController("libmac_show_desktop");
  const auto sent = controller.sent();
  ASSERT_EQ(sent.size(), 1U);
  EXPECT_EQ(sent[0].receiver, "_mac");
  EXPECT_EQ(sent[0].name, "_mac_control_trigger");
  EXPECT_EQ(sent[0].flags, 0U);
  EXPECT_EQ(sent[0].sender, "jxdownloader");
  EXPECT_TRUE(sent[0].message.isObject());
  EXPECT_EQ(sent[0].message.size(), 2U);
  EXPECT_TRUE(sent[0].message["libmac_cmd"].isString());
  EXPECT_EQ(sent[0].message["libmac_cmd"].getString(), "libmac_show_desktop");
  EXPECT_TRUE(sent[0].message["libmac_version"].isString());
  EXPECT_EQ(sent[0].message["libmac_version"].getString(), "3.16.5-79");
}

TEST_F(ControllerTest, FailedSend_IsIgnored) {
  controller.setResult(-1);
  notifyController("libmac_scan_manifests");
  EXPECT_EQ(controller.commands(), (Names{"libmac_scan_manifests"}));
}

TEST_F(ControllerTest, ExceptionInTheSend_IsIgnored) {
  controller.onNotify([] { throw std::bad_alloc(); });
  EXPECT_NO_THROW(notifyController("libmac_scan_manifests"));
}

}  // namespace
