// Byte streams: every byte of a system file passes through one of these.
//
// MURV_FileStream keeps one 4096-byte buffer over a file descriptor, with
// 64-bit positions. Buffer fills start at 512-byte boundaries; requests of
// 4096 bytes or more bypass the buffer, so that case records and compressed
// blocks are copied at most once. Failed reads, writes and seeks throw
// ErrorText (1003, 1002); only Open reports failure by its result.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace murv {

class MURV_FileStream {
public:
    static constexpr unsigned kBufferSize = 4096;
    static constexpr unsigned kAlignment = 512;

    MURV_FileStream();
    // Opens name with mode; throws error 1000 naming the file on failure.
    MURV_FileStream(const char* name, const char* mode);
    // A second, read-only stream on the other's file, positioned at 0 (the
    // case iterators read through their own). Flushes the other first.
    explicit MURV_FileStream(MURV_FileStream& other);
    MURV_FileStream(const MURV_FileStream&) = delete;
    MURV_FileStream& operator=(const MURV_FileStream&) = delete;
    // Writes back a dirty buffer and closes the file. Never throws.
    ~MURV_FileStream();

    unsigned Read(void* dst, unsigned len);
    unsigned Write(const void* src, unsigned len);
    // whence 0 from the start, 1 from the current position, 2 from the end.
    int Seek(std::int64_t offset, int whence);
    std::int64_t Tell() const { return position_; }

    // Mode letters: r w + (access), x (with w: the file must not exist yet).
    // Closes an open file first, without flushing it.
    bool Open(const char* name, const char* mode);
    bool Flush();
    // Writes the buffer out and makes the file's data durable; throws 1002.
    void Sync();
    // Writes the buffer out and cuts the file to size bytes; throws 1002.
    void Truncate(std::int64_t size);
    // Writes the buffer out and closes the file; throws 1002 when data
    // written through the stream may not have reached the file (the file is
    // closed all the same).
    void Close();
    // Closes the file, dropping whatever the buffer holds.
    void Discard();

    const char* Name() const { return name_ ? name_->c_str() : ""; }
    bool IsOpen() const { return fd_ >= 0; }

private:
    void FlushBuffer();  // throws 1002
    void SeekDevice(std::int64_t to);  // throws 1003
    [[noreturn]] void Fail(long number);

    std::unique_ptr<unsigned char[]> buffer_;
    unsigned fill_ = 0;                 // valid bytes in the buffer
    std::int64_t origin_ = -1;          // file offset of the buffer's first byte
    std::int64_t device_ = 0;           // where the descriptor's pointer stands
    std::int64_t position_ = 0;         // where the next read or write happens
    int fd_ = -1;
    std::shared_ptr<const std::string> name_;  // shared by streams copied from one another
    bool writeBuffer_ = false;          // the buffer is written back at the next flush
};

}  // namespace murv
