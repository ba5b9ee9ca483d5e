// The file layer's calls over the system's raw ones (file_os.h), with the
// failures that tests can inject (faults.h) and the parts that are the same
// on every system: whole writes, replacement names and the open-time probes.
#include "port/file.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <random>

#include "port/faults.h"
#include "port/file_os.h"

namespace murv::port {

using faults::Op;

int OpenFile(const char* name, const OpenFlags& flags) {
    if (!name) {
        errno = EINVAL;
        return -1;
    }
    if (faults::ShouldFail(Op::Open)) return -1;
    return os::Open(name, flags);
}

std::int64_t ReadFile(int fd, void* dst, std::size_t len) {
    if (faults::ShouldFail(Op::Read)) return -1;
    return os::Read(fd, dst, len);
}

std::size_t WriteFile(int fd, const void* src, std::size_t len) {
    const char* p = static_cast<const char*>(src);
    faults::Kind kind;
    if (faults::ShouldFail(Op::Write, &kind)) {
        if (kind != faults::Kind::ShortWrite || len < 2) return 0;
        const int err = errno;  // half goes out, then the disk is full
        const std::size_t done = WriteFile(fd, src, len / 2);
        errno = err;
        return done;
    }
    std::size_t done = 0;
    while (done < len) {
        const std::int64_t n = os::WriteSome(fd, p + done, len - done);
        if (n < 0) break;
        if (n == 0) {
            errno = ENOSPC;  // nothing written and no error: the disk is full
            break;
        }
        done += static_cast<std::size_t>(n);
    }
    return done;
}

std::int64_t SeekFile(int fd, std::int64_t offset, int whence) {
    if (faults::ShouldFail(Op::Seek)) return -1;
    return os::Seek(fd, offset, whence);
}

bool SyncFile(int fd) { return !faults::ShouldFail(Op::Sync) && os::Sync(fd); }

bool TruncateFile(int fd, std::int64_t size) { return !faults::ShouldFail(Op::Truncate) && os::Truncate(fd, size); }

bool CloseFile(int fd) {
    if (fd < 0) return true;
    const bool injected = faults::ShouldFail(Op::Close);
    const int err = errno;
    // The descriptor is released even when the system reports an error; it
    // must not be closed again (it may already belong to another file).
    const bool ok = os::Close(fd);
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
    const std::size_t cut = path.find_last_of(os::kSeparators);
    const std::size_t start = cut == std::string::npos ? 0 : cut + 1;
    const std::string stem = path.substr(0, start) + os::kScratchPrefix + path.substr(start) + ".";
    static const char kDigits[] = "0123456789abcdefghijklmnopqrstuvwxyz";
    std::random_device seed;
    std::minstd_rand rng(seed());
    for (int attempt = 0; attempt < 100; ++attempt) {
        std::string name = stem;
        for (int i = 0; i < 8; ++i) name += kDigits[rng() % 36];
        name += ".tmp";
        if (os::CreateNew(name.c_str())) return name;
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
    if (faults::ShouldFail(Op::Rename)) return false;
    return os::Rename(from, to);
}

namespace {

bool ProbeOpen(const char* name, bool write) {
    if (!name) return false;
    if (faults::ShouldFail(Op::Open)) return false;
    OpenFlags flags;
    flags.write = write;
    const int fd = os::Open(name, flags);
    if (fd < 0) return false;
    os::Close(fd);
    return true;
}

}  // namespace

bool ProbeReadable(const char* name) { return ProbeOpen(name, false); }

bool ProbeUpdatable(const char* name) { return ProbeOpen(name, true); }

// An existing file must open for update, and its replacement must be able to
// take its place (it is written beside it and moved over it when complete).
// Otherwise the file must be creatable, and the one made to find out is
// removed again so that the probe leaves no trace. The test file is created
// exclusively: a file that exists but cannot be read (so that the first open
// failed) is never truncated or removed, and the probe fails for it.
bool ProbeCreatable(const char* name) {
    if (!name) return false;
    if (ProbeOpen(name, false)) return ProbeOpen(name, true) && os::ReplaceableInPlace(name);
    if (faults::ShouldFail(Op::Open)) return false;
    if (!os::CreateNew(name)) return false;
    std::remove(name);
    return true;
}

}  // namespace murv::port
