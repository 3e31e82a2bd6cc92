// Kept apart from the Windows runtime, which alone uses it, so that every build tests it.
#include "os/com_port_name.h"

#include <cwctype>

namespace kw {

std::wstring ComPortDevicePath(const std::wstring& name) {
  if (name.size() < 4 || std::towupper(name[0]) != L'C' || std::towupper(name[1]) != L'O' ||
      std::towupper(name[2]) != L'M') {
    return name;
  }
  for (size_t i = 3; i < name.size(); ++i) {
    if (name[i] < L'0' || name[i] > L'9') return name;
  }
  return L"\\\\.\\" + name;
}

}  // namespace kw
