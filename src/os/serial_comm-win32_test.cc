#include "os/serial_comm-win32.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "base/error.h"
#include "os/system_runtime.h"
#include "temp_dir.h"

namespace kw {
namespace {

/// Opens the port; the error number it raises, or 0 when it opened.
int32_t OpenError(SerialComm& comm) try {
  comm.SetPortOpen(true);
  return 0;
} catch (const Error& e) {
  return e.number();
}

TEST(Win32SerialComm, OpeningFailsOnWhatIsNotAPortOrIsHeld) {
  const std::filesystem::path folder = MakeTempFolder("kw-serial-");
  const std::wstring file = (folder / "plain.txt").wstring();
  std::ofstream(folder / "plain.txt") << "x";
  // Another run holds COM7: its mutex stands, whatever spelling of the port it used.
  const HANDLE held = ::CreateMutexW(nullptr, TRUE, L"Global\\Kestrawind.Port.COM7");
  ASSERT_NE(held, nullptr);
  auto runtime = NewSystemRuntime(nullptr);
  const struct {
    int16_t port;
    std::wstring device;
    int32_t error;
  } cases[] = {{1, L"Z:\\nonexistent\\ttyKW0", 8002},
               {1, file, 8002},
               {0, L"\\\\.\\COM1", 8002},
               {2, L"", 8002},
               {1, L"\\\\.\\com7", 8005},
               {1, L"COM7", 8005}};
  for (const auto& c : cases) {
    Win32SerialComm comm(*runtime, [&](int16_t port) { return port == c.port ? c.device : L""; });
    comm.SetCommPort(c.port);
    EXPECT_EQ(OpenError(comm), c.error) << ::testing::PrintToString(c.device);
    EXPECT_FALSE(comm.PortOpen());
    EXPECT_THROW(comm.SetOutput(L"AT\r"), Error);  // nothing reaches a port that isn't open
    EXPECT_THROW(comm.Input(), Error);
  }
  ::ReleaseMutex(held);
  ::CloseHandle(held);
  // The refused openings kept no hold of their own: with the other run gone, the port is free
  // (and only found missing, as there is no COM7 here).
  Win32SerialComm comm(*runtime, [](int16_t) { return std::wstring(L"COM7"); });
  EXPECT_EQ(OpenError(comm), 8002);
  std::filesystem::remove_all(folder);
}

}  // namespace
}  // namespace kw
