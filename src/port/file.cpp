#include "port/file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace murv::port {

int OpenFile(const char* name, const OpenFlags& flags) {
    if (!name) {
        errno = EINVAL;
        return -1;
    }
    int oflags = O_CLOEXEC;
    if (flags.read && flags.write)
        oflags |= O_RDWR;
    else if (flags.write)
        oflags |= O_WRONLY;
    else
        oflags |= O_RDONLY;
    if (flags.create) oflags |= O_CREAT;
    if (flags.truncate) oflags |= O_TRUNC;
    if (flags.append) oflags |= O_APPEND;
    int fd;
    do {
        fd = ::open(name, oflags, S_IRUSR | S_IWUSR);
    } while (fd < 0 && errno == EINTR);
    if (fd >= 0) {
        struct stat st;
        // A directory opens read-only on this platform but is no file.
        if (::fstat(fd, &st) == 0 && S_ISDIR(st.st_mode)) {
            ::close(fd);
            errno = EISDIR;
            return -1;
        }
        ::posix_fadvise(fd, 0, 0, flags.randomAccess ? POSIX_FADV_RANDOM : POSIX_FADV_SEQUENTIAL);
    }
    return fd;
}

std::int64_t ReadFile(int fd, void* dst, std::size_t len) {
    for (;;) {
        ssize_t n = ::read(fd, dst, len);
        if (n >= 0) return n;
        if (errno != EINTR) return -1;
    }
}

std::size_t WriteFile(int fd, const void* src, std::size_t len) {
    const char* p = static_cast<const char*>(src);
    std::size_t done = 0;
    while (done < len) {
        ssize_t n = ::write(fd, p + done, len - done);
        if (n < 0) {
            if (errno == EINTR) continue;
            break;
        }
        if (n == 0) {
            errno = EIO;
            break;
        }
        done += static_cast<std::size_t>(n);
    }
    return done;
}

std::int64_t SeekFile(int fd, std::int64_t offset, int whence) {
    const off_t r = ::lseek(fd, static_cast<off_t>(offset), whence);
    return r < 0 ? -1 : static_cast<std::int64_t>(r);
}

std::int64_t FileSize(int fd) {
    struct stat st;
    if (::fstat(fd, &st) != 0) return -1;
    return static_cast<std::int64_t>(st.st_size);
}

void CloseFile(int fd) {
    if (fd >= 0) ::close(fd);
}

bool RemoveFile(const char* name) { return name && std::remove(name) == 0; }

std::string LastErrorText() { return std::strerror(errno); }

namespace {

bool ProbeOpen(const char* name, const char* mode) {
    if (!name) return false;
    std::FILE* f = std::fopen(name, mode);
    if (!f) return false;
    struct stat st;
    const bool isDir = ::fstat(::fileno(f), &st) == 0 && S_ISDIR(st.st_mode);
    std::fclose(f);
    return !isDir;
}

}  // namespace

bool ProbeReadable(const char* name) { return ProbeOpen(name, "rb"); }

bool ProbeUpdatable(const char* name) { return ProbeOpen(name, "rb+"); }

// An existing file must be writable; otherwise the file must be creatable,
// and the one made to find out is removed again so that the probe leaves no
// trace. The test file is created exclusively: a file that exists but cannot
// be read (so that the first open failed) is never truncated or removed, and
// the probe fails for it, since the writer must read its file back to finish it.
bool ProbeCreatable(const char* name) {
    if (!name) return false;
    if (ProbeOpen(name, "rb")) return ProbeOpen(name, "rb+");
    int fd;
    do {
        fd = ::open(name, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0) return false;
    ::close(fd);
    std::remove(name);
    return true;
}

}  // namespace murv::port
