// The process id in a UUCP lock file: never one below 1 accepted, the same reading as a plain one
// of the HDB form (at most ten digits with blanks before them and blanks or line feeds after),
// and the text that the program writes for any id reads back as that id.
#include <climits>
#include <cstring>
#include <regex>

#include "fuzz_util.h"
#include "os/port_lock-posix.h"

namespace kw::fuzz {

void FuzzOne(const std::string& input) {
  static const std::regex& hdb = *new std::regex(" *([0-9]{1,10})[ \n]*");
  std::smatch digits;
  const long long id = std::regex_match(input, digits, hdb) ? std::stoll(digits[1]) : -1;
  const pid_t pid = ParsePid(input);
  Require(pid == (id >= 1 && id <= INT_MAX ? id : -1), "the id agrees with a plain reading");

  // The input's first four bytes as an id, in the text of our own lock files.
  int32_t own = 0;
  if (input.size() >= sizeof own) std::memcpy(&own, input.data(), sizeof own);
  Require(own < 1 || ParsePid(PortLockText(own)) == own, "our own lock text reads back");
}

}  // namespace kw::fuzz
