// The user's locale on POSIX, loaded the first time the program needs it.
#ifndef KW_OS_LOCALE_TEXT_POSIX_H_
#define KW_OS_LOCALE_TEXT_POSIX_H_

namespace kw {

/// Loads, once per process, the parts of the locale named by the environment that the program
/// uses: the encoding of text, the date and time, and the system's error texts. Until then the
/// program runs in the C locale, where plain ASCII reads and writes the same as in any other.
void LoadUserLocale();

}  // namespace kw

#endif  // KW_OS_LOCALE_TEXT_POSIX_H_
