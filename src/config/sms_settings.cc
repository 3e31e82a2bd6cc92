#include "config/sms_settings.h"

#include "base/error.h"
#include "base/error_numbers.h"
#include "config/ini_access.h"
#include "log/logging.h"

namespace kw {
namespace {

/// One key of the file and the field it fills, in the file's canonical order.
struct SettingKey {
  const wchar_t* section;
  const wchar_t* key;
  std::wstring SmsSettings::*field;
  const wchar_t* default_value;
};

const SettingKey kKeys[] = {
    {L"Provider", L"Id", &SmsSettings::provider, L""},
    {L"Provider", L"Protocol", &SmsSettings::protocol, L""},
    {L"Provider", L"SmsCenterNumber", &SmsSettings::sms_center_number, L""},
    {L"Provider", L"SmsCenterAddress", &SmsSettings::sms_center_address, L""},
    {L"Provider", L"OpType", &SmsSettings::op_type, L""},
    {L"Provider", L"Authentication", &SmsSettings::authentication, L""},
    {L"Provider", L"Legitimization", &SmsSettings::legitimization, L""},
    {L"Provider", L"CommSettings", &SmsSettings::comm_settings, L""},
    {L"Provider", L"BaudRate", &SmsSettings::baud_rate, L""},
    {L"Provider", L"TextLength", &SmsSettings::text_length, L""},
    {L"Modem", L"Port", &SmsSettings::port, L""},
    {L"Modem", L"ConnectionTimeout", &SmsSettings::connection_timeout, L"20"},
    {L"Modem", L"DialPrefix", &SmsSettings::dial_prefix, L""},
    {L"User", L"SenderNumber", &SmsSettings::sender_number, L""},
};

/// The listing of ShowSettings: a label and its field, shown only when not empty.
struct ShownSetting {
  const wchar_t* label;
  std::wstring SmsSettings::*field;
};

const ShownSetting kShown[] = {
    {L"Provider Id : ", &SmsSettings::provider},
    {L"Protocol : ", &SmsSettings::protocol},
    {L"SmsCenterNumber : ", &SmsSettings::sms_center_number},
    {L"SmsCenterAddress : ", &SmsSettings::sms_center_address},
    {L"OpType : ", &SmsSettings::op_type},
    {L"Authentication : ", &SmsSettings::authentication},
    {L"Legitimization : ", &SmsSettings::legitimization},
    {L"CommSettings : ", &SmsSettings::comm_settings},
    {L"BaudRate : ", &SmsSettings::baud_rate},
    {L"TextLength : ", &SmsSettings::text_length},
    {L"Port : ", &SmsSettings::port},
    {L"SenderNumber : ", &SmsSettings::sender_number},
    {L"ConnectionTimeout : ", &SmsSettings::connection_timeout},
    {L"DialPrefix : ", &SmsSettings::dial_prefix},
};

}  // namespace

void SmsSettings::Load(IniFile& ini) {
  config_file = ini.path();
  for (const SettingKey& k : kKeys) this->*k.field = ini.Get(k.section, k.key, k.default_value);
  unread = ini.Contents().problem;
  ShowSettings();
}

void SmsSettings::Save() {
  for (const SettingKey& k : kKeys) {
    try {
      IniPut(config_file, k.section, k.key, this->*k.field);
    } catch (const Error&) {
    }
  }
}

void SmsSettings::Validate() {
  if (protocol.empty()) {
    Error error = AppError(kNoProtocol, L"No protocol specified");
    // A file that couldn't be read gave no key at all: the error says why.
    if (unread.cause != Cause::kNone) error.WithCause(unread.cause, config_file, unread.reason);
    throw error;
  }
  if (protocol != L"UCP" && protocol != L"TAP") {
    throw AppError(kUnknownProtocol, L"Unknown protocol specified : " + protocol);
  }
}

void SmsSettings::ShowSettings() {
  LogDebug(L"");
  LogDebug(L"Using the following configuration settings:");
  for (const ShownSetting& s : kShown) {
    if (!(this->*s.field).empty()) LogDebug(s.label + this->*s.field);
  }
  LogDebug(L"");
}

}  // namespace kw
