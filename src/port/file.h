// A thin layer over the operating system's file descriptors: the few calls
// the byte streams and the open-time probes need, with EINTR handled and
// 64-bit offsets throughout.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace murv::port {

struct OpenFlags {
    bool read = true;
    bool write = false;
    bool create = false;
    bool truncate = false;
    bool append = false;
    bool randomAccess = false;  // access-pattern hint; sequential otherwise
    bool shortLived = false;    // hint only; nothing on this platform uses it
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
// The size of an open file, or -1.
std::int64_t FileSize(int fd);
void CloseFile(int fd);
bool RemoveFile(const char* name);
// The operating system's description of the last error (errno).
std::string LastErrorText();

// The open-time probes of the interface, done with the C runtime's buffered
// open: can an existing file be opened for reading, for update, or a new one
// be created? A file that a probe had to create is removed again.
bool ProbeReadable(const char* name);
bool ProbeCreatable(const char* name);
bool ProbeUpdatable(const char* name);

}  // namespace murv::port
