#ifndef KW_OS_PROFILE_H_
#define KW_OS_PROFILE_H_

#include <cstddef>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "os/platform.h"

namespace kw {

/// The text of a profile file as read (in profile.cc).
struct ProfileText;

/// The keys of a profile (ini) file, parsed once, so that a look-up touches no file. Of each
/// section name only the first section counts, and in it the first line of each key, as the
/// Windows profile API finds them.
class Profile {
 public:
  /// Parses a whole file's bytes in time linear in their number: UTF-16 with a byte-order mark,
  /// or 8-bit text past any UTF-8 mark, as UTF-8 or in the locale's encoding (see ReadsAsUtf8).
  static Profile Parse(std::string bytes);

  /// A key's value as the Windows profile API reads it: trimmed, one pair of matching outer quotes
  /// removed, cut to 253 characters; the default when the section or the key is missing.
  std::wstring Get(const std::wstring& section, const std::wstring& key,
                   const std::wstring& default_value) const;

 private:
  /// A key line that a look-up can reach: the hash of its name in ASCII lower case, and where its
  /// text lies in the file's text (which is decoded again only for a look-up).
  struct Key {
    size_t hash;
    size_t begin;
    size_t end;
  };
  std::shared_ptr<const ProfileText> text_;
  std::vector<Key> keys_;
  /// By section name in ASCII lower case: where its keys lie in keys_, from first to before last.
  std::unordered_map<std::wstring, std::pair<size_t, size_t>> sections_;
};

/// A profile file as read: its keys, or none and why it couldn't be read.
struct ProfileFile {
  Profile profile;      ///< the keys; none when the file couldn't be read
  FileProblem problem;  ///< cause kNone when it was read
};

/// Reads a profile file in one go (one open, one read) and parses it.
ProfileFile ReadProfile(const std::wstring& path);

/// Reads one key of a profile file: the value, or the default when the file, the section or the
/// key is missing. Reads the file on each call; ReadProfile reads it once for many keys.
std::wstring ProfileGetString(const std::wstring& section, const std::wstring& key,
                              const std::wstring& default_value, const std::wstring& path);

/// Sets one key of a profile file, keeping every other byte of it and its encoding; adds the key,
/// the section or the file where needed. Reports nothing.
void ProfileWriteString(const std::wstring& section, const std::wstring& key,
                        const std::wstring& value, const std::wstring& path);

}  // namespace kw

#endif  // KW_OS_PROFILE_H_
