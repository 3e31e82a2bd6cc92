#include "config/sms_settings.h"

#include "base/error.h"
#include "config/ini_access.h"
#include "log/logging.h"

namespace kw {
namespace {

/// One key of the file and the field it fills, in the file's canonical order.
struct SettingKey {
  const wchar_t* section;
  const wchar_t* key;
  std::wstring SmsSettings::*field;
  const wchar_t* defaultValue;
};

const SettingKey kKeys[] = {
    {L"Provider", L"Id", &SmsSettings::Provider, L""},
    {L"Provider", L"Protocol", &SmsSettings::Protocol, L""},
    {L"Provider", L"SmsCenterNumber", &SmsSettings::SmsCenterNumber, L""},
    {L"Provider", L"OpType", &SmsSettings::OpType, L""},
    {L"Provider", L"Authentication", &SmsSettings::Authentication, L""},
    {L"Provider", L"Legitimization", &SmsSettings::Legitimization, L""},
    {L"Provider", L"CommSettings", &SmsSettings::CommSettings, L""},
    {L"Provider", L"BaudRate", &SmsSettings::Baudrate, L""},
    {L"Provider", L"TextLength", &SmsSettings::TextLength, L""},
    {L"Modem", L"Port", &SmsSettings::Port, L""},
    {L"Modem", L"ConnectionTimeout", &SmsSettings::ConnectionTimeout, L"20"},
    {L"Modem", L"DialPrefix", &SmsSettings::DialPrefix, L""},
    {L"User", L"SenderNumber", &SmsSettings::SenderNumber, L""},
};

/// The listing of ShowSettings: a label and its field, shown only when not empty.
struct ShownSetting {
  const wchar_t* label;
  std::wstring SmsSettings::*field;
};

const ShownSetting kShown[] = {
    {L"Provider Id : ", &SmsSettings::Provider},
    {L"Protocol : ", &SmsSettings::Protocol},
    {L"SmsCenterNumber : ", &SmsSettings::SmsCenterNumber},
    {L"OpType : ", &SmsSettings::OpType},
    {L"Authentication : ", &SmsSettings::Authentication},
    {L"Legitimization : ", &SmsSettings::Legitimization},
    {L"CommSettings : ", &SmsSettings::CommSettings},
    {L"BaudRate : ", &SmsSettings::Baudrate},
    {L"TextLength : ", &SmsSettings::TextLength},
    {L"Port : ", &SmsSettings::Port},
    {L"SenderNumber : ", &SmsSettings::SenderNumber},
    {L"ConnectionTimeout : ", &SmsSettings::ConnectionTimeout},
    {L"DialPrefix : ", &SmsSettings::DialPrefix},
};

}  // namespace

void SmsSettings::Load() {
  // A read that fails leaves its field as it was; the next read runs.
  for (const SettingKey& k : kKeys) {
    try {
      this->*k.field = IniGet(ConfigFile, k.section, k.key, k.defaultValue);
    } catch (const Error&) {
    }
  }
  ShowSettings();
}

void SmsSettings::Save() {
  for (const SettingKey& k : kKeys) {
    try {
      IniPut(ConfigFile, k.section, k.key, this->*k.field);
    } catch (const Error&) {
    }
  }
}

void SmsSettings::Validate() {
  if (Protocol.empty()) throw AppError(540, L"No protocol specified");
  if (Protocol != L"UCP" && Protocol != L"TAP") {
    throw AppError(541, L"Unknown protocol specified : " + Protocol);
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
