// The file layer on Windows: the C runtime's descriptors opened with its
// share-mode open. Every file the library opens denies other writers while it
// is open (others may still read it), offsets are 64-bit throughout, and a
// finished replacement is moved over its target with the system's rename,
// which refuses a target that another program holds open.
#include <errno.h>
#include <fcntl.h>
#include <io.h>
#include <share.h>
#include <sys/stat.h>
#include <windows.h>
// The system header names a function of its own ReplaceFile (a macro).
#undef ReplaceFile

#include <cstdio>
#include <cstring>
#include <random>

#include "port/faults.h"
#include "port/file.h"

namespace murv::port {

namespace {

using faults::Op;

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

// Opens with the runtime's share-mode open and keeps the descriptor only
// when it names a disk file: a pipe, a console or another device is refused
// at once. A descriptor is never inherited by child processes.
int OpenShared(const char* name, int oflags, int share) {
    int fd = -1;
    const errno_t err = ::_sopen_s(&fd, name, oflags | _O_BINARY | _O_NOINHERIT, share, _S_IREAD | _S_IWRITE);
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

bool IsSeparator(char c) { return c == '/' || c == '\\'; }

}  // namespace

int OpenFile(const char* name, const OpenFlags& flags) {
    if (!name) {
        errno = EINVAL;
        return -1;
    }
    if (faults::ShouldFail(Op::Open)) return -1;
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
    if (flags.append) oflags |= _O_APPEND;
    oflags |= flags.randomAccess ? _O_RANDOM : _O_SEQUENTIAL;
    if (flags.shortLived) oflags |= _O_SHORT_LIVED;
    return OpenShared(name, oflags, _SH_DENYWR);
}

std::int64_t ReadFile(int fd, void* dst, std::size_t len) {
    if (faults::ShouldFail(Op::Read)) return -1;
    // The runtime reads at most INT_MAX bytes at once.
    const unsigned chunk = len > 0x40000000u ? 0x40000000u : static_cast<unsigned>(len);
    const int n = ::_read(fd, dst, chunk);
    return n < 0 ? -1 : n;
}

std::size_t WriteFile(int fd, const void* src, std::size_t len) {
    const char* p = static_cast<const char*>(src);
    std::size_t done = 0;
    faults::Kind kind;
    if (faults::ShouldFail(Op::Write, &kind)) {
        if (kind != faults::Kind::ShortWrite || len < 2) return 0;
        len /= 2;  // half goes out, then the disk is full
        const int err = errno;
        done = WriteFile(fd, src, len);
        errno = err;
        return done;
    }
    while (done < len) {
        const std::size_t left = len - done;
        const unsigned chunk = left > 0x40000000u ? 0x40000000u : static_cast<unsigned>(left);
        const int n = ::_write(fd, p + done, chunk);
        if (n < 0) break;
        if (n == 0) {
            errno = ENOSPC;  // the runtime writes nothing when the disk is full
            break;
        }
        done += static_cast<std::size_t>(n);
    }
    return done;
}

std::int64_t SeekFile(int fd, std::int64_t offset, int whence) {
    if (faults::ShouldFail(Op::Seek)) return -1;
    const __int64 r = ::_lseeki64(fd, offset, whence);
    return r < 0 ? -1 : static_cast<std::int64_t>(r);
}

std::int64_t FileSize(int fd) {
    const __int64 n = ::_filelengthi64(fd);
    return n < 0 ? -1 : static_cast<std::int64_t>(n);
}

bool SyncFile(int fd) {
    if (faults::ShouldFail(Op::Sync)) return false;
    return ::_commit(fd) == 0;
}

bool TruncateFile(int fd, std::int64_t size) {
    if (faults::ShouldFail(Op::Truncate)) return false;
    const errno_t err = ::_chsize_s(fd, size);
    if (err != 0) errno = err;
    return err == 0;
}

bool CloseFile(int fd) {
    if (fd < 0) return true;
    const bool injected = faults::ShouldFail(Op::Close);
    const int err = errno;
    const bool ok = ::_close(fd) == 0;
    if (injected) errno = err;
    return ok && !injected;
}

bool RemoveFile(const char* name) { return name && std::remove(name) == 0; }

bool LastErrorWasExists() { return errno == EEXIST; }

std::string LastErrorText() { return std::strerror(errno); }

std::string CreateFileBeside(const char* target) {
    if (!target || !*target) {
        errno = EINVAL;
        return std::string();
    }
    if (faults::ShouldFail(Op::Open)) return std::string();
    const std::string path(target);
    std::size_t cut = path.size();
    while (cut > 0 && !IsSeparator(path[cut - 1]) && path[cut - 1] != ':') --cut;
    const std::string dir = path.substr(0, cut);
    const std::string base = path.substr(cut);
    static const char kDigits[] = "0123456789abcdefghijklmnopqrstuvwxyz";
    std::random_device seed;
    std::minstd_rand rng(seed());
    for (int attempt = 0; attempt < 100; ++attempt) {
        std::string name = dir + "~" + base + ".";
        for (int i = 0; i < 8; ++i) name += kDigits[rng() % 36];
        name += ".tmp";
        const int fd = OpenShared(name.c_str(), _O_WRONLY | _O_CREAT | _O_EXCL, _SH_DENYWR);
        if (fd >= 0) {
            ::_close(fd);
            return name;
        }
        if (errno != EEXIST) return std::string();
    }
    errno = EEXIST;
    return std::string();
}

// The rename fails when another program holds the target open without
// letting others delete it, as the runtime's own opens do: the target is
// then left as it was.
bool ReplaceFile(const char* from, const char* to) {
    if (!from || !to) {
        errno = EINVAL;
        return false;
    }
    if (faults::ShouldFail(Op::Rename)) return false;
    if (!::MoveFileExA(from, to, MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) {
        SetErrnoFromSystem();
        return false;
    }
    return true;
}

namespace {

// The probes open as the library's streams do, denying other writers while
// they hold the file, and close again at once.
bool ProbeOpen(const char* name, int oflags) {
    if (!name) return false;
    if (faults::ShouldFail(Op::Open)) return false;
    const int fd = OpenShared(name, oflags, _SH_DENYWR);
    if (fd < 0) return false;
    ::_close(fd);
    return true;
}

}  // namespace

bool ProbeReadable(const char* name) { return ProbeOpen(name, _O_RDONLY); }

bool ProbeUpdatable(const char* name) { return ProbeOpen(name, _O_RDWR); }

// An existing file must open for update (its replacement is written beside
// it and moved over it when complete). Otherwise the file must be creatable;
// the one made to find out is removed again. The test file is created
// exclusively, so a file that exists but cannot be read is never touched.
bool ProbeCreatable(const char* name) {
    if (!name) return false;
    if (ProbeOpen(name, _O_RDONLY)) return ProbeOpen(name, _O_RDWR);
    if (faults::ShouldFail(Op::Open)) return false;
    const int fd = OpenShared(name, _O_WRONLY | _O_CREAT | _O_EXCL, _SH_DENYWR);
    if (fd < 0) return false;
    ::_close(fd);
    std::remove(name);
    return true;
}

}  // namespace murv::port
