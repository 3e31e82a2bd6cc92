#include "os/com_port_name.h"

#include <gtest/gtest.h>

// Only a whole bare COM name gets the device prefix; paths and near misses go through as written.
TEST(ComPortDevicePath, PrefixesBareComNamesOnly) {
  std::wstring paths;
  for (const wchar_t* name : {L"COM10", L"com3", L"Com9", L"COM", L"COM1:", L"COM 1", L"COMX1",
                              L"CXM1", L"CON1", L"XCOM1", L"\\\\.\\COM12", L"Z:\\dev\\ttyS0", L""})
    paths += kw::ComPortDevicePath(name) + L"|";
  EXPECT_EQ(
      paths,
      L"\\\\.\\COM10|\\\\.\\com3|\\\\.\\Com9|COM|COM1:|COM 1|COMX1|CXM1|CON1|XCOM1|\\\\.\\COM12|"
      L"Z:\\dev\\ttyS0||");
}
