#ifndef KW_CONFIG_SMS_SETTINGS_H_
#define KW_CONFIG_SMS_SETTINGS_H_

#include <string>

#include "os/platform.h"

namespace kw {

class IniFile;

/// All configuration of one run, as plain texts read from kestrawind.ini.
class SmsSettings {
 public:
  std::wstring config_file;         ///< full path of the configuration file
  std::wstring provider;            ///< [Provider] Id: shown only
  std::wstring sms_center_number;   ///< [Provider] SmsCenterNumber: dialled behind DialPrefix
  std::wstring sms_center_address;  ///< [Provider] SmsCenterAddress: HOST:PORT, no modem
  std::wstring authentication;      ///< [Provider] Authentication: TAP password, UCP field
  std::wstring legitimization;      ///< [Provider] Legitimization: held for UCP
  std::wstring protocol;            ///< [Provider] Protocol: "TAP" or "UCP"
  std::wstring op_type;             ///< [Provider] OpType: UCP operation type
  std::wstring comm_settings;       ///< [Provider] CommSettings: shown only
  std::wstring baud_rate;           ///< [Provider] BaudRate: shown only
  std::wstring text_length;         ///< [Provider] TextLength: UCP limit on the encoded text
  std::wstring port;                ///< [Modem] Port: serial port number
  std::wstring connection_timeout;  ///< [Modem] ConnectionTimeout: seconds, default 20
  std::wstring dial_prefix;         ///< [Modem] DialPrefix: dialled before the centre's number
  std::wstring sender_number;       ///< [User] SenderNumber: UCP sender
  FileProblem unread;               ///< why config_file could not be read (cause kNone when it was)

  /// Fills the fields and config_file from the ini file, then lists them.
  void Load(IniFile& ini);
  /// Writes every field to config_file in the canonical order; reports nothing.
  void Save();
  /// Raises 540 or 541 unless Protocol is "TAP" or "UCP"; 540 says why when the file was unread.
  void Validate();
  /// Lists the settings in the debug log.
  void ShowSettings();
};

}  // namespace kw

#endif  // KW_CONFIG_SMS_SETTINGS_H_
