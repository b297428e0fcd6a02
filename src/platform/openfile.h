// Resolving paths, opening files and making directories in places where others can put something, too.
#pragma once

#include <cstdio>
#include <memory>
#include <string>

#include <sys/types.h>

namespace NS_BUNDLEMGR1 {

struct CloseStream {
    void operator()(std::FILE* stream) const { std::fclose(stream); }
};
using InputStream = std::unique_ptr<std::FILE, CloseStream>;

/// @return the path that `path` leads to, absolute and without links; empty, with errno set,
///         where nothing is there
std::string ResolvePath(const std::string& path);

/// Opens a regular file for reading. Links are followed; a directory opens and reads as
/// empty. Anything else (a FIFO, a device, a socket) is refused and not waited for.
/// @return null, with errno set, where it cannot be opened
InputStream OpenForReading(const std::string& path);

/// Opens a regular file for writing, with O_CLOEXEC and beyond the standard streams.
/// Anything else of that name, a link included, is refused and not waited for. What is in
/// the file stays.
/// @param flags further ones for open(2), such as O_APPEND
/// @param mode  of the file if this creates it, whatever the process's umask; one that
///              exists keeps its own
/// @return -1, with errno set, where it cannot be opened
int OpenForWriting(const std::string& path, int flags, mode_t mode);

/// Makes a directory of that mode, whatever the process's umask. One that exists is left
/// as it is, as is one that another user puts in its place meanwhile.
void MakeDirectory(const std::string& path, mode_t mode);

}  // namespace NS_BUNDLEMGR1
