#ifndef KW_OS_PLATFORM_H_
#define KW_OS_PLATFORM_H_

#include <string>

#include "base/error.h"

namespace kw {

/// The raw command line: the text behind the program's own name, as one line.
std::wstring RawCommandLine();

/// The folder that holds the running executable, symlinks resolved.
std::wstring ExecutableFolder();

/// The platform's separator between a folder and a name in a path.
extern const wchar_t kPathSeparator[];

/// Why a file can't be had: the kind of cause and the system's own text (or a short one of ours).
struct FileProblem {
  Cause cause = Cause::kNone;
  std::wstring reason;
};

/// What a system error code (errno; GetLastError on Windows) means for a file: kMissing when
/// nothing is there, kNoPermission when the user may not have it, else kOther; with its text.
FileProblem FileProblemOf(int code);

/// True when the path names a plain file: not a folder or a device (nor, where the file system
/// marks them, a hidden or system file). Otherwise, given why, says why not.
bool PlainFileExists(const std::wstring& path, FileProblem* why = nullptr);

/// Makes the standard streams safe to lose; called first thing, before anything opens a file.
/// Descriptors 0, 1 and 2 are held (on the null device where the caller closed them), so that
/// nothing that the run opens, the serial port above all, can land on them and take standard
/// output's text; and a reader of standard output that goes away costs only the write.
void GuardStandardStreams();

/// Keeps the process's memory, which holds the password, out of core dumps and out of reach of
/// other users' debuggers; called first thing.
void ProtectProcessMemory();

/// Writes the bytes straight to standard output, with no buffer in between; true when all of
/// them were written. A reader that takes nothing is waited for only within the run's output
/// budget (os/output_budget.h); what can't be written in time is dropped.
bool WriteStandardOutput(const std::string& bytes);

/// Records a text in the system's event log, within the same budget; event_type 1 is error, 4 is
/// information. The event ID picks the record's entry in the program's message table on Windows.
void WriteEventLog(const std::wstring& text, int event_type, int event_id);

}  // namespace kw

#endif  // KW_OS_PLATFORM_H_
