// The process id in a UUCP lock file: never one below 1 accepted, the same reading as a plain one
// of the HDB form (at most ten digits with blanks before them and blanks or line feeds after),
// and the text that the program writes for any id reads back as that id.
#include <climits>
#include <cstdint>
#include <cstring>
#include <string>

#include "os/port_lock-posix.h"
#include "require.h"

using kw::fuzz::Require;

namespace {

/// The id in the text, read by trimming and checking what is left; -1 for none.
long long Reference(std::string text) {
  while (!text.empty() && (text.back() == ' ' || text.back() == '\n')) text.pop_back();
  text.erase(0, text.find_first_not_of(' '));
  if (text.empty() || text.size() > 10 ||
      text.find_first_not_of("0123456789") != std::string::npos) {
    return -1;
  }
  const long long id = std::stoll(text);
  return id >= 1 && id <= INT_MAX ? id : -1;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  const pid_t pid = kw::ParsePid(text);
  Require(pid == -1 || pid >= 1, "no id below 1 is accepted");
  Require(pid == Reference(text), "the id agrees with a plain reading of the HDB form");

  // The input's first four bytes as an id, in the text of our own lock files.
  int32_t id = 0;
  if (size >= sizeof id) std::memcpy(&id, data, sizeof id);
  Require(id < 1 || kw::ParsePid(kw::PortLockText(id)) == id, "our own lock text reads back");
  return 0;
}
