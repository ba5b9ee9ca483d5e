// A thin layer over the operating system's file descriptors: the few calls
// the byte streams and the open-time probes need, with EINTR handled and
// 64-bit offsets throughout. Only regular files are opened: a pipe, a device,
// a directory or a socket is refused at once, never waited on.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace murv::port {

struct OpenFlags {
    bool read = true;
    bool write = false;
    bool create = false;
    bool exclusive = false;  // with create: fail when the file exists
    bool truncate = false;
};

// Opens a file with owner read/write permission for files it creates.
// Returns the descriptor, or -1 with errno set.
int OpenFile(const char* name, const OpenFlags& flags);
// Reads up to len bytes; 0 at end of file, -1 on error.
std::int64_t ReadFile(int fd, void* dst, std::size_t len);
// Writes all len bytes unless an error stops it; returns the count written
// (less than len on error).
std::size_t WriteFile(int fd, const void* src, std::size_t len);
// Moves the file pointer; returns the new offset or -1.
std::int64_t SeekFile(int fd, std::int64_t offset, int whence);
// Makes the file's data durable; false on failure.
bool SyncFile(int fd);
// Cuts or extends the file to size bytes; false on failure.
bool TruncateFile(int fd, std::int64_t size);
// Closes the descriptor; false when the system reports a failure (data
// written through it may then be lost). The descriptor is gone either way.
bool CloseFile(int fd);
bool RemoveFile(const char* name);
// Whether the last failed open found the file already there (exclusive create).
bool LastErrorWasExists();
// The operating system's description of the last error (errno).
std::string LastErrorText();

// Creates a new empty file in the directory of target, under a name no other
// file has, for a replacement of target to be written into. Returns its name,
// or an empty string with errno set.
std::string CreateFileBeside(const char* target);
// Moves the finished file from onto to, replacing it in one step; to keeps
// its permission bits. The directory entry is made durable as far as the
// system allows. False with errno set when the move failed (to is untouched).
bool ReplaceFile(const char* from, const char* to);

// The open-time probes of the interface: can an existing file be opened for
// reading, for update, or a new one be created (or an existing one be
// replaced)? A file that a probe had to create is removed again.
bool ProbeReadable(const char* name);
bool ProbeCreatable(const char* name);
bool ProbeUpdatable(const char* name);

}  // namespace murv::port
