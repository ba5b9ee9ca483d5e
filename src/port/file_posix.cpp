#include "port/file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <random>

#include "port/faults.h"

namespace murv::port {

namespace {

using faults::Op;

// Opens without ever blocking (a pipe with no writer would otherwise wait
// for one) and keeps the descriptor only when it names a regular file.
int OpenRegular(const char* name, int oflags, mode_t mode) {
    int fd;
    do {
        fd = ::open(name, oflags | O_NONBLOCK | O_CLOEXEC, mode);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0) return -1;
    struct stat st;
    const bool known = ::fstat(fd, &st) == 0;
    if (!known || !S_ISREG(st.st_mode)) {
        const int err = !known ? errno : S_ISDIR(st.st_mode) ? EISDIR : EINVAL;
        ::close(fd);
        errno = err;
        return -1;
    }
    const int fl = ::fcntl(fd, F_GETFL);
    if (fl >= 0) ::fcntl(fd, F_SETFL, fl & ~O_NONBLOCK);
    return fd;
}

std::string DirectoryOf(const std::string& path) {
    const std::size_t slash = path.find_last_of('/');
    if (slash == std::string::npos) return ".";
    if (slash == 0) return "/";
    return path.substr(0, slash);
}

}  // namespace

int OpenFile(const char* name, const OpenFlags& flags) {
    if (!name) {
        errno = EINVAL;
        return -1;
    }
    if (faults::ShouldFail(Op::Open)) return -1;
    int oflags = 0;
    if (flags.read && flags.write)
        oflags |= O_RDWR;
    else if (flags.write)
        oflags |= O_WRONLY;
    else
        oflags |= O_RDONLY;
    if (flags.create) oflags |= O_CREAT;
    if (flags.create && flags.exclusive) oflags |= O_EXCL;
    if (flags.truncate) oflags |= O_TRUNC;
    if (flags.append) oflags |= O_APPEND;
    // A new file gets the permissions the user's umask leaves, as any
    // program's output file does.
    const int fd = OpenRegular(name, oflags, 0666);
    if (fd >= 0) ::posix_fadvise(fd, 0, 0, flags.randomAccess ? POSIX_FADV_RANDOM : POSIX_FADV_SEQUENTIAL);
    return fd;
}

std::int64_t ReadFile(int fd, void* dst, std::size_t len) {
    if (faults::ShouldFail(Op::Read)) return -1;
    for (;;) {
        ssize_t n = ::read(fd, dst, len);
        if (n >= 0) return n;
        if (errno != EINTR) return -1;
    }
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
    if (faults::ShouldFail(Op::Seek)) return -1;
    const off_t r = ::lseek(fd, static_cast<off_t>(offset), whence);
    return r < 0 ? -1 : static_cast<std::int64_t>(r);
}

std::int64_t FileSize(int fd) {
    struct stat st;
    if (::fstat(fd, &st) != 0) return -1;
    return static_cast<std::int64_t>(st.st_size);
}

bool SyncFile(int fd) {
    if (faults::ShouldFail(Op::Sync)) return false;
    int r;
    do {
        r = ::fsync(fd);
    } while (r != 0 && errno == EINTR);
    return r == 0;
}

bool TruncateFile(int fd, std::int64_t size) {
    if (faults::ShouldFail(Op::Truncate)) return false;
    int r;
    do {
        r = ::ftruncate(fd, static_cast<off_t>(size));
    } while (r != 0 && errno == EINTR);
    return r == 0;
}

bool CloseFile(int fd) {
    if (fd < 0) return true;
    const bool injected = faults::ShouldFail(Op::Close);
    const int err = errno;
    // The descriptor is released even when close reports an error; it must
    // not be closed again (it may already belong to another file).
    const bool ok = ::close(fd) == 0 || errno == EINTR;
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
    const std::size_t slash = path.find_last_of('/');
    const std::string dir = slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
    const std::string base = slash == std::string::npos ? path : path.substr(slash + 1);
    static const char kDigits[] = "0123456789abcdefghijklmnopqrstuvwxyz";
    std::random_device seed;
    std::minstd_rand rng(seed());
    for (int attempt = 0; attempt < 100; ++attempt) {
        std::string name = dir + "." + base + ".";
        for (int i = 0; i < 8; ++i) name += kDigits[rng() % 36];
        name += ".tmp";
        int fd;
        do {
            fd = ::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR);
        } while (fd < 0 && errno == EINTR);
        if (fd >= 0) {
            ::close(fd);
            return name;
        }
        if (errno != EEXIST) return std::string();
    }
    errno = EEXIST;
    return std::string();
}

bool ReplaceFile(const char* from, const char* to) {
    if (!from || !to) {
        errno = EINVAL;
        return false;
    }
    struct stat st;
    if (::stat(to, &st) == 0) ::chmod(from, st.st_mode & 07777);
    if (faults::ShouldFail(Op::Rename)) return false;
    if (::rename(from, to) != 0) return false;
    // The new directory entry reaches the disk with the directory; a failure
    // here leaves the replacement in place, so it is not reported.
    const int dfd = ::open(DirectoryOf(to).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dfd >= 0) {
        ::fsync(dfd);
        ::close(dfd);
    }
    return true;
}

namespace {

bool ProbeOpen(const char* name, int oflags) {
    if (!name) return false;
    if (faults::ShouldFail(Op::Open)) return false;
    const int fd = OpenRegular(name, oflags, S_IRUSR | S_IWUSR);
    if (fd < 0) return false;
    ::close(fd);
    return true;
}

}  // namespace

bool ProbeReadable(const char* name) { return ProbeOpen(name, O_RDONLY); }

bool ProbeUpdatable(const char* name) { return ProbeOpen(name, O_RDWR); }

// An existing file must be writable, and its directory too, since its
// replacement is written beside it and moved over it when complete.
// Otherwise the file must be creatable, and the one made to find out is
// removed again so that the probe leaves no trace. The test file is created
// exclusively: a file that exists but cannot be read (so that the first open
// failed) is never truncated or removed, and the probe fails for it.
bool ProbeCreatable(const char* name) {
    if (!name) return false;
    if (ProbeOpen(name, O_RDONLY)) return ProbeOpen(name, O_RDWR) && ::access(DirectoryOf(name).c_str(), W_OK | X_OK) == 0;
    if (faults::ShouldFail(Op::Open)) return false;
    int fd;
    do {
        fd = ::open(name, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NONBLOCK, S_IRUSR | S_IWUSR);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0) return false;
    ::close(fd);
    std::remove(name);
    return true;
}

}  // namespace murv::port
