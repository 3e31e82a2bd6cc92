#include "config/sms_settings.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>

#include "base/error.h"
#include "base/text.h"
#include "frontend/logging.h"
#include "line_fixture.h"
#include "sim/virtual_runtime.h"
#include "temp_dir.h"

namespace kw {
namespace {

class SmsSettingsTest : public testing::Test {
 protected:
  void SetUp() override { folder_ = MakeTempFolder("kw-settings-").string(); }
  void TearDown() override {
    std::remove(Path("a.ini").c_str());
    std::remove(Path("b.ini").c_str());
    std::remove(folder_.c_str());
    DebugMode = false;
  }
  std::string Path(const char* name) const { return folder_ + "/" + name; }
  void Write(const char* name, const std::string& bytes) {
    std::ofstream(Path(name), std::ios::binary) << bytes;
  }
  std::string Read(const char* name) {
    std::ifstream in(Path(name), std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
  }
  /// The debug lines that ShowSettings writes, without their stamps.
  std::vector<std::string> Listing(SmsSettings& settings) {
    sim::VirtualRuntime runtime;
    ScopedRuntime installed(runtime);
    DebugMode = true;
    testing::internal::CaptureStdout();
    settings.ShowSettings();
    const std::string out = test::CapturedStdoutLf();
    std::vector<std::string> lines;
    for (size_t at = 0; at < out.size();) {
      const size_t end = std::min(out.find('\n', at), out.size());
      const std::string line = out.substr(at, end - at);
      EXPECT_EQ(line.rfind("T+1000\t", 0), 0u) << line;
      lines.push_back(line.substr(line.find('\t') + 1));
      at = end + 1;
    }
    return lines;
  }

  std::string folder_;
};

TEST_F(SmsSettingsTest, MinimalFileGivesDefaultsAndShortListing) {
  Write("a.ini", "[Provider]\r\nProtocol=TAP\r\n");
  SmsSettings settings;
  settings.ConfigFile = FromLocale(Path("a.ini"));
  settings.Load();
  settings.Validate();
  EXPECT_EQ(settings.Protocol, L"TAP");
  EXPECT_EQ(settings.ConnectionTimeout, L"20");
  EXPECT_EQ(settings.Port, L"");
  EXPECT_EQ(Listing(settings),
            (std::vector<std::string>{"", "Using the following configuration settings:",
                                      "Protocol : TAP", "ConnectionTimeout : 20", ""}));
}

TEST_F(SmsSettingsTest, LoadReplacesEveryFieldAndEmptyValueBeatsDefault) {
  Write("a.ini", "[Modem]\nConnectionTimeout=\n");
  SmsSettings settings;
  settings.ConfigFile = FromLocale(Path("a.ini"));
  settings.Provider = L"old";
  settings.Port = L"3";
  settings.Load();
  EXPECT_EQ(settings.Provider, L"");
  EXPECT_EQ(settings.Port, L"");
  EXPECT_EQ(settings.ConnectionTimeout, L"");
  EXPECT_EQ(settings.ConfigFile, FromLocale(Path("a.ini")));
}

TEST_F(SmsSettingsTest, ListingFollowsItsOwnOrder) {
  SmsSettings s;
  s.Provider = L"p";
  s.Protocol = L"UCP";
  s.SmsCenterNumber = L"06";
  s.OpType = L"01";
  s.Authentication = L"pw";
  s.Legitimization = L"lg";
  s.CommSettings = L"9600,n,8,1";
  s.Baudrate = L"9600";
  s.TextLength = L"320";
  s.Port = L"1";
  s.ConnectionTimeout = L"20";
  s.DialPrefix = L"0,";
  s.SenderNumber = L"31";
  EXPECT_EQ(
      Listing(s),
      (std::vector<std::string>{
          "", "Using the following configuration settings:", "Provider Id : p", "Protocol : UCP",
          "SmsCenterNumber : 06", "OpType : 01", "Authentication : pw", "Legitimization : lg",
          "CommSettings : 9600,n,8,1", "BaudRate : 9600", "TextLength : 320", "Port : 1",
          "SenderNumber : 31", "ConnectionTimeout : 20", "DialPrefix : 0,", ""}));
}

TEST_F(SmsSettingsTest, ValidateAcceptsExactlyTapAndUcp) {
  const std::pair<const wchar_t*, int> cases[] = {{L"TAP", 0},   {L"UCP", 0},    {L"", 540},
                                                  {L"tap", 541}, {L" TAP", 541}, {L"SMPP", 541}};
  for (const auto& [protocol, n] : cases) {
    SmsSettings settings;
    settings.Protocol = protocol;
    try {
      settings.Validate();
      EXPECT_EQ(n, 0) << std::wstring(protocol);
    } catch (const Error& e) {
      EXPECT_EQ(e.number(), ErrorBase + n);
      EXPECT_EQ(e.description(), n == 540
                                     ? std::wstring(L"No protocol specified")
                                     : L"Unknown protocol specified : " + std::wstring(protocol));
    }
  }
}

TEST_F(SmsSettingsTest, LoadThenSaveReproducesTheCanonicalFile) {
  const std::string canonical =
      "[Provider]\r\nId=Demo\r\nProtocol=TAP\r\nSmsCenterNumber=0612345678\r\nOpType=01\r\n"
      "Authentication=secret\r\nLegitimization=\r\nCommSettings=9600,n,8,1\r\nBaudRate=9600\r\n"
      "TextLength=320\r\n[Modem]\r\nPort=1\r\nConnectionTimeout=20\r\nDialPrefix=0\r\n"
      "[User]\r\nSenderNumber=0611111111\r\n";
  Write("a.ini", canonical);
  SmsSettings settings;
  settings.ConfigFile = FromLocale(Path("a.ini"));
  settings.Load();
  settings.ConfigFile = FromLocale(Path("b.ini"));
  settings.Save();
  EXPECT_EQ(Read("b.ini"), canonical);
}

}  // namespace
}  // namespace kw
