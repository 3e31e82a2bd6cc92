#include "config/sms_settings.h"

#include <gtest/gtest.h>

#include <regex>

#include "config/ini_access.h"
#include "log/logging.h"
#include "unit_util.h"

// Loading lists under /DEBUG what it read, in an order of its own, each setting only if not empty.
TEST(SmsSettings, LoadReadsEveryKeyAndListsIt) {
  kw::TempFolder folder;
  std::ofstream(folder.path / "k.ini")
      << "[provider]\nId=p\nProtocol=UCP\nSmsCenterNumber=06\nOpType=01\nAuthentication=a\n"
         "Legitimization=\nCommSettings=c\nBaudRate=9\nTextLength=3\n[Modem]\nPort=1\n"
         "DialPrefix=0,\n[User]\nSenderNumber=31\n";
  kw::SmsSettings settings;
  kw::IniFile ini((folder.path / "k.ini").wstring());
  kw::g_debug_mode = true;
  testing::internal::CaptureStdout();
  settings.Load(ini);
  kw::g_debug_mode = false;
  // Each line's time stamp goes, up to its tab; Windows captures the line ends as LF alone.
  EXPECT_EQ(
      std::regex_replace(testing::internal::GetCapturedStdout(), std::regex("[^\n]*\t|\r"), ""),
      "\nUsing the following configuration settings:\nProvider Id : p\nProtocol : UCP\n"
      "SmsCenterNumber : 06\nOpType : 01\nAuthentication : a\nCommSettings : c\nBaudRate : 9\n"
      "TextLength : 3\nPort : 1\nSenderNumber : 31\nConnectionTimeout : 20\nDialPrefix : 0,\n\n");
}
