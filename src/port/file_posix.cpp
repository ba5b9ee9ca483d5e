// The file layer's system calls on POSIX systems: EINTR retried, 64-bit
// offsets, only regular files opened.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string>

#include "port/file_os.h"

namespace murv::port::os {

const char* const kSeparators = "/";
const char* const kScratchPrefix = ".";  // a hidden file beside its target

namespace {

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

int Open(const char* name, const OpenFlags& flags) {
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
    // A new file gets the permissions the user's umask leaves, as any
    // program's output file does.
    const int fd = OpenRegular(name, oflags, 0666);
    if (fd >= 0) ::posix_fadvise(fd, 0, 0, POSIX_FADV_SEQUENTIAL);
    return fd;
}

bool CreateNew(const char* name) {
    const int fd = OpenRegular(name, O_WRONLY | O_CREAT | O_EXCL, S_IRUSR | S_IWUSR);
    if (fd < 0) return false;
    ::close(fd);
    return true;
}

std::int64_t Read(int fd, void* dst, std::size_t len) {
    for (;;) {
        const ssize_t n = ::read(fd, dst, len);
        if (n >= 0 || errno != EINTR) return n;
    }
}

std::int64_t WriteSome(int fd, const void* src, std::size_t len) {
    for (;;) {
        const ssize_t n = ::write(fd, src, len);
        if (n >= 0 || errno != EINTR) return n;
    }
}

std::int64_t Seek(int fd, std::int64_t offset, int whence) {
    const off_t r = ::lseek(fd, static_cast<off_t>(offset), whence);
    return r < 0 ? -1 : static_cast<std::int64_t>(r);
}

bool Sync(int fd) {
    int r;
    do {
        r = ::fsync(fd);
    } while (r != 0 && errno == EINTR);
    return r == 0;
}

bool Truncate(int fd, std::int64_t size) {
    int r;
    do {
        r = ::ftruncate(fd, static_cast<off_t>(size));
    } while (r != 0 && errno == EINTR);
    return r == 0;
}

// An interrupted close has released the descriptor all the same.
bool Close(int fd) { return ::close(fd) == 0 || errno == EINTR; }

bool Rename(const char* from, const char* to) {
    struct stat st;
    if (::stat(to, &st) == 0) ::chmod(from, st.st_mode & 07777);
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

// The replacement is made in the directory, which must therefore be writable.
bool ReplaceableInPlace(const char* name) { return ::access(DirectoryOf(name).c_str(), W_OK | X_OK) == 0; }

}  // namespace murv::port::os
