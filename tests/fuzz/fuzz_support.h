// Helpers shared by the fuzz targets.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace murv::fuzz {

// A file in memory that the library opens by name (/proc/self/fd/N), reused
// by every run of a target: nothing reaches the disk, and the memory goes
// with the process.
class MemoryFile {
public:
    explicit MemoryFile(const char* tag) : fd_(::memfd_create(tag, 0)) {
        if (fd_ < 0) {
            std::perror("memfd_create");
            std::abort();
        }
        path_ = "/proc/self/fd/" + std::to_string(fd_);
    }

    const char* Path() const { return path_.c_str(); }

    // Replaces the content with the given bytes (none: empties it).
    void Fill(const std::uint8_t* data, std::size_t size) {
        if (::ftruncate(fd_, 0) != 0) std::abort();
        for (std::size_t done = 0; done < size;) {
            const ssize_t n = ::pwrite(fd_, data + done, size - done, static_cast<off_t>(done));
            if (n <= 0) std::abort();
            done += static_cast<std::size_t>(n);
        }
    }

private:
    int fd_;
    std::string path_;
};

// A path in a private scratch directory, for targets that write files: the
// library writes a new file beside an existing one and moves it into place,
// which needs a real directory. Remove() clears the way for the next run.
class ScratchFile {
public:
    explicit ScratchFile(const char* name) {
        const char* tmp = std::getenv("TMPDIR");
        dir_ = std::string(tmp && *tmp ? tmp : "/tmp") + "/murvio-fuzz-XXXXXX";
        if (!::mkdtemp(dir_.data())) {
            std::perror("mkdtemp");
            std::abort();
        }
        path_ = dir_ + "/" + name;
    }
    ~ScratchFile() {
        Remove();
        ::rmdir(dir_.c_str());
    }

    const char* Path() const { return path_.c_str(); }
    void Remove() { ::unlink(path_.c_str()); }

private:
    std::string dir_;
    std::string path_;
};

// Reads values off the front of the fuzz input; past its end every value is 0.
class Input {
public:
    Input(const std::uint8_t* data, std::size_t size) : p_(data), end_(data + size) {}

    bool Empty() const { return p_ >= end_; }
    std::uint8_t Byte() { return p_ < end_ ? *p_++ : 0; }
    int Signed() { return static_cast<std::int8_t>(Byte()); }
    // n bytes, least significant first.
    std::uint64_t Bits(int n) {
        std::uint64_t v = 0;
        for (int i = 0; i < n; ++i) v |= static_cast<std::uint64_t>(Byte()) << (8 * i);
        return v;
    }
    double Double() { return std::bit_cast<double>(Bits(8)); }
    // A text of up to max bytes: a length byte, then the bytes (a NUL ends it
    // early, as it would for the library).
    std::string Text(std::size_t max = 255) {
        const std::size_t n = std::min({std::size_t{Byte()}, max, static_cast<std::size_t>(end_ - p_)});
        std::string s(reinterpret_cast<const char*>(p_), n);
        p_ += n;
        return s.c_str();
    }

private:
    const std::uint8_t* p_;
    const std::uint8_t* end_;
};

// Aborts with a message: a broken invariant is a finding like a crash.
[[noreturn]] inline void Fail(const char* what) {
    std::fprintf(stderr, "invariant broken: %s\n", what);
    std::abort();
}

}  // namespace murv::fuzz
