#ifndef KW_OS_PLATFORM_H_
#define KW_OS_PLATFORM_H_

#include <string>

namespace kw {

/// The raw command line: the text behind the program's own name, as one line.
std::wstring RawCommandLine();

/// The folder that holds the running executable, symlinks resolved.
std::wstring ExecutableFolder();

/// The platform's separator between a folder and a name in a path.
extern const wchar_t kPathSeparator[];

/// True when the path names a plain file: not a folder or a device (nor, where the file system
/// marks them, a hidden or system file).
bool PlainFileExists(const std::wstring& path);

/// Makes the standard streams safe to lose; called first thing, before anything opens a file.
/// Descriptors 0, 1 and 2 are held (on the null device where the caller closed them), so that
/// nothing that the run opens, the serial port above all, can land on them and take standard
/// output's text; and a reader of standard output that goes away costs only the write.
void GuardStandardStreams();

/// Writes the bytes straight to standard output, with no buffer in between; true when all of
/// them were written.
bool WriteStandardOutput(const std::string& bytes);

/// Records a text in the system's event log; event_type 1 is error, 4 is information. The
/// event ID picks the record's entry in the program's message table on Windows.
void WriteEventLog(const std::wstring& text, int event_type, int event_id);

}  // namespace kw

#endif  // KW_OS_PLATFORM_H_
