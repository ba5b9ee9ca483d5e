// The operating system's half of the file layer: raw calls without fault
// injection, each failing with errno set. file.cpp builds the public calls of
// file.h on them; file_posix.cpp and file_win.cpp implement them.
#pragma once

#include <cstddef>
#include <cstdint>

#include "port/file.h"

namespace murv::port::os {

// Opens a regular file (anything else is refused at once, never waited on).
// A file that it creates gets the permissions a new file of the user gets.
int Open(const char* name, const OpenFlags& flags);
// Creates name, which must not exist, for the owner alone, and closes it.
bool CreateNew(const char* name);
std::int64_t Read(int fd, void* dst, std::size_t len);
// One write of up to len bytes: the count written, or -1.
std::int64_t WriteSome(int fd, const void* src, std::size_t len);
std::int64_t Seek(int fd, std::int64_t offset, int whence);
bool Sync(int fd);
bool Truncate(int fd, std::int64_t size);
bool Close(int fd);
// Moves from over to in one step (to keeps its permissions where files have
// them) and makes the move durable as far as the system allows.
bool Rename(const char* from, const char* to);
// Whether a replacement of the existing file name could be moved over it.
bool ReplaceableInPlace(const char* name);

// The characters that end a directory part of a path, and the text that
// starts the name of a replacement written beside its target.
extern const char* const kSeparators;
extern const char* const kScratchPrefix;

}  // namespace murv::port::os
