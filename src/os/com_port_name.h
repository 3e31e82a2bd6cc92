#ifndef KW_OS_COM_PORT_NAME_H_
#define KW_OS_COM_PORT_NAME_H_

#include <string>

namespace kw {

/// The Windows path that opens a configured device name: a bare COM port name ("COM10", any case
/// and number) becomes "\\.\COM10", since by the bare name only COM1 to COM9 open; any other
/// name stays as it is.
std::wstring ComPortDevicePath(const std::wstring& name);

}  // namespace kw

#endif  // KW_OS_COM_PORT_NAME_H_
