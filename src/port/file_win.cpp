// The file layer's system calls on Windows: the C runtime's descriptors opened
// with its share-mode open. Every file the library opens denies other writers
// while it is open (others may still read it), offsets are 64-bit throughout,
// and a finished replacement is moved over its target with the system's
// rename, which refuses a target that another program holds open.
#include <errno.h>
#include <fcntl.h>
#include <io.h>
#include <share.h>
#include <sys/stat.h>
#include <windows.h>

#include "port/file_os.h"

namespace murv::port::os {

const char* const kSeparators = "/\\:";
const char* const kScratchPrefix = "~";

namespace {

// The system's error of the last failed call, in the runtime's errno terms.
void SetErrnoFromSystem() {
    switch (::GetLastError()) {
        case ERROR_FILE_NOT_FOUND:
        case ERROR_PATH_NOT_FOUND: errno = ENOENT; break;
        case ERROR_ACCESS_DENIED:
        case ERROR_SHARING_VIOLATION:
        case ERROR_LOCK_VIOLATION: errno = EACCES; break;
        case ERROR_FILE_EXISTS:
        case ERROR_ALREADY_EXISTS: errno = EEXIST; break;
        case ERROR_DISK_FULL:
        case ERROR_HANDLE_DISK_FULL: errno = ENOSPC; break;
        case ERROR_NOT_SAME_DEVICE: errno = EXDEV; break;
        default: errno = EIO; break;
    }
}

// Opens with the runtime's share-mode open, denying other writers, and keeps
// the descriptor only when it names a disk file: a pipe, a console or another
// device is refused at once. A descriptor is never inherited by child
// processes.
int OpenShared(const char* name, int oflags) {
    int fd = -1;
    const errno_t err = ::_sopen_s(&fd, name, oflags | _O_BINARY | _O_NOINHERIT, _SH_DENYWR, _S_IREAD | _S_IWRITE);
    if (err != 0 || fd < 0) {
        errno = err != 0 ? err : EIO;
        return -1;
    }
    const HANDLE h = reinterpret_cast<HANDLE>(::_get_osfhandle(fd));
    if (h == INVALID_HANDLE_VALUE || ::GetFileType(h) != FILE_TYPE_DISK) {
        ::_close(fd);
        errno = EINVAL;
        return -1;
    }
    return fd;
}

// The runtime moves at most INT_MAX bytes in one call.
unsigned Chunk(std::size_t len) { return len > 0x40000000u ? 0x40000000u : static_cast<unsigned>(len); }

}  // namespace

int Open(const char* name, const OpenFlags& flags) {
    int oflags = 0;
    if (flags.read && flags.write)
        oflags |= _O_RDWR;
    else if (flags.write)
        oflags |= _O_WRONLY;
    else
        oflags |= _O_RDONLY;
    if (flags.create) oflags |= _O_CREAT;
    if (flags.create && flags.exclusive) oflags |= _O_EXCL;
    if (flags.truncate) oflags |= _O_TRUNC;
    oflags |= _O_SEQUENTIAL;
    return OpenShared(name, oflags);
}

bool CreateNew(const char* name) {
    const int fd = OpenShared(name, _O_WRONLY | _O_CREAT | _O_EXCL);
    if (fd < 0) return false;
    ::_close(fd);
    return true;
}

std::int64_t Read(int fd, void* dst, std::size_t len) { return ::_read(fd, dst, Chunk(len)); }

std::int64_t WriteSome(int fd, const void* src, std::size_t len) { return ::_write(fd, src, Chunk(len)); }

std::int64_t Seek(int fd, std::int64_t offset, int whence) {
    const __int64 r = ::_lseeki64(fd, offset, whence);
    return r < 0 ? -1 : static_cast<std::int64_t>(r);
}

bool Sync(int fd) { return ::_commit(fd) == 0; }

bool Truncate(int fd, std::int64_t size) {
    const errno_t err = ::_chsize_s(fd, size);
    if (err != 0) errno = err;
    return err == 0;
}

bool Close(int fd) { return ::_close(fd) == 0; }

// The rename fails when another program holds the target open without
// letting others delete it, as the runtime's own opens do: the target is
// then left as it was.
bool Rename(const char* from, const char* to) {
    if (::MoveFileExA(from, to, MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) return true;
    SetErrnoFromSystem();
    return false;
}

// Whether the move can succeed shows only when it is made.
bool ReplaceableInPlace(const char*) { return true; }

}  // namespace murv::port::os
