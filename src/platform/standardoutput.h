// The library's only way onto the standard streams.
#pragma once

#include <string_view>

namespace NS_BUNDLEMGR1 {

/// @name Printing
/// As std::printf, std::fputs and std::fprintf do, with these differences: a text that
/// cannot be written, because a file is full or a pipe has no reader any more, is lost and
/// does not end the process; and errno stays as it was. The stream keeps its error flag, as
/// its owner may look at it, and takes the next text all the same.
///
/// While stdio merely buffers, this costs no system call. What is left in the buffer at the
/// end of the process is written under the same protection.
///
/// May be called from any thread, and after the stream was closed.
/// @{

/// @param format what is printed on standard output, as printf's
void PrintOut(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// @param text what is printed on standard output, as it stands
void PrintOutText(std::string_view text);

/// @param format what is printed on standard error, as printf's
void PrintError(const char* format, ...) __attribute__((format(printf, 1, 2)));
/// @}

}  // namespace NS_BUNDLEMGR1
