#ifndef KW_CONFIG_SMS_SETTINGS_H_
#define KW_CONFIG_SMS_SETTINGS_H_

#include <string>

namespace kw {

/// All configuration of one run, as plain texts read from kestrawind.ini.
class SmsSettings {
 public:
  std::wstring ConfigFile;         ///< full path of the configuration file
  std::wstring Provider;           ///< [Provider] Id: shown only
  std::wstring SmsCenterNumber;    ///< [Provider] SmsCenterNumber: dialled behind DialPrefix
  std::wstring Authentication;     ///< [Provider] Authentication: TAP password, UCP field
  std::wstring Legitimization;     ///< [Provider] Legitimization: held for UCP
  std::wstring Protocol;           ///< [Provider] Protocol: "TAP" or "UCP"
  std::wstring OpType;             ///< [Provider] OpType: UCP operation type
  std::wstring CommSettings;       ///< [Provider] CommSettings: shown only
  std::wstring Baudrate;           ///< [Provider] BaudRate: shown only
  std::wstring TextLength;         ///< [Provider] TextLength: UCP limit on the encoded text
  std::wstring Port;               ///< [Modem] Port: serial port number
  std::wstring ConnectionTimeout;  ///< [Modem] ConnectionTimeout: seconds, default 20
  std::wstring DialPrefix;         ///< [Modem] DialPrefix: dialled before the centre's number
  std::wstring SenderNumber;       ///< [User] SenderNumber: UCP sender

  /// Fills the fields from ConfigFile, then lists them.
  void Load();
  /// Writes every field to ConfigFile in the canonical order; reports nothing.
  void Save();
  /// Raises 540 or 541 unless Protocol is "TAP" or "UCP".
  void Validate();
  /// Lists the settings in the debug log.
  void ShowSettings();
};

}  // namespace kw

#endif  // KW_CONFIG_SMS_SETTINGS_H_
