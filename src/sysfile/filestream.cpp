#include "sysfile/filestream.h"

#include <algorithm>
#include <cstring>

#include "port/errors.h"
#include "port/file.h"

namespace murv {

namespace {

bool Has(const char* mode, char c) { return mode && std::strchr(mode, c) != nullptr; }

// Only the presence of each letter matters.
port::OpenFlags ParseMode(const char* mode) {
    port::OpenFlags f;
    if (Has(mode, '+')) {
        f.read = f.write = true;
        f.create = f.truncate = Has(mode, 'w');
    } else if (Has(mode, 'w')) {
        f.read = false;
        f.write = f.create = f.truncate = true;
    }
    f.exclusive = Has(mode, 'x');  // with creation: the file must not exist yet
    return f;
}

}  // namespace

MURV_FileStream::MURV_FileStream() : buffer_(new unsigned char[kBufferSize]) {}

MURV_FileStream::MURV_FileStream(const char* name, const char* mode) : MURV_FileStream() {
    if (!Open(name, mode))
        ErrorText::Throw(kErrStreamOpen, name ? name : "", port::LastErrorText());
}

MURV_FileStream::MURV_FileStream(MURV_FileStream& other) : MURV_FileStream() {
    other.Flush();
    name_ = other.name_;
    port::OpenFlags flags;  // read-only
    fd_ = name_ ? port::OpenFile(name_->c_str(), flags) : -1;
    if (fd_ < 0) {
        ErrorText::Throw(kErrStreamOpen, Name(), port::LastErrorText());
    }
    if (port::SeekFile(fd_, 0, SEEK_SET) != 0) {
        port::CloseFile(fd_);
        fd_ = -1;
        Fail(kErrStreamOpen);
    }
}

MURV_FileStream::~MURV_FileStream() {
    if (fd_ >= 0) {
        try {
            if (writeBuffer_) FlushBuffer();
        } catch (...) {
            // A destructor cannot report; the data that could not be written is lost.
        }
        port::CloseFile(fd_);
        fd_ = -1;
    }
}

void MURV_FileStream::Fail(long number) {
    ErrorText::Throw(number, Name(), port::LastErrorText());
}

bool MURV_FileStream::Open(const char* name, const char* mode) {
    Discard();
    name_ = std::make_shared<const std::string>(name ? name : "");
    fd_ = name ? port::OpenFile(name, ParseMode(mode)) : -1;
    position_ = 0;
    device_ = 0;
    fill_ = 0;
    origin_ = -1;
    writeBuffer_ = false;
    return fd_ >= 0;
}

void MURV_FileStream::SeekDevice(std::int64_t to) {
    if (device_ == to) return;
    if (port::SeekFile(fd_, to, SEEK_SET) != to) Fail(kErrStreamRead);
    device_ = to;
}

void MURV_FileStream::FlushBuffer() {
    if (!writeBuffer_ || fill_ == 0) return;
    if (device_ != origin_) {
        if (port::SeekFile(fd_, origin_, SEEK_SET) != origin_) Fail(kErrStreamWrite);
        device_ = origin_;
    }
    const std::size_t written = port::WriteFile(fd_, buffer_.get(), fill_);
    device_ = origin_ + static_cast<std::int64_t>(written);
    if (written != fill_) Fail(kErrStreamWrite);
    fill_ = 0;
}

bool MURV_FileStream::Flush() {
    if (fd_ < 0) return false;
    FlushBuffer();
    return true;
}

void MURV_FileStream::Sync() {
    if (fd_ < 0) return;
    FlushBuffer();
    if (!port::SyncFile(fd_)) Fail(kErrStreamWrite);
}

void MURV_FileStream::Truncate(std::int64_t size) {
    if (fd_ < 0) return;
    FlushBuffer();
    if (!port::TruncateFile(fd_, size)) Fail(kErrStreamWrite);
}

void MURV_FileStream::Close() {
    if (fd_ < 0) return;
    bool flushed = true;
    try {
        if (writeBuffer_) FlushBuffer();
    } catch (...) {
        flushed = false;
    }
    const bool wrote = writeBuffer_;
    const bool closed = port::CloseFile(fd_);
    fd_ = -1;
    fill_ = 0;
    origin_ = -1;
    writeBuffer_ = false;
    if (!flushed || (wrote && !closed)) Fail(kErrStreamWrite);
}

void MURV_FileStream::Discard() {
    if (fd_ < 0) return;
    port::CloseFile(fd_);
    fd_ = -1;
    fill_ = 0;
    origin_ = -1;
    writeBuffer_ = false;
}

unsigned MURV_FileStream::Read(void* dst, unsigned len) {
    if (fd_ < 0 || len == 0) return 0;
    if (position_ < 0) Fail(kErrStreamRead);  // a seek before the start fails here
    if (writeBuffer_) FlushBuffer();
    auto* out = static_cast<unsigned char*>(dst);
    unsigned delivered = 0;
    auto fromBuffer = [&] {
        if (fill_ > 0 && position_ >= origin_ && position_ < origin_ + fill_) {
            const auto offset = static_cast<unsigned>(position_ - origin_);
            const unsigned n = std::min(fill_ - offset, len - delivered);
            std::memcpy(out + delivered, buffer_.get() + offset, n);
            delivered += n;
            position_ += n;
        }
    };
    fromBuffer();
    if (len - delivered >= kBufferSize) {
        // Large requests go straight into the caller's memory, up to the last
        // 512-byte boundary; the tail comes through the buffer.
        const std::int64_t end = position_ + (len - delivered);
        const std::int64_t direct = (end / kAlignment) * kAlignment - position_;
        if (direct > 0) {
            SeekDevice(position_);
            const std::int64_t n = port::ReadFile(fd_, out + delivered, static_cast<std::size_t>(direct));
            if (n < 0) Fail(kErrStreamRead);
            device_ += n;
            position_ += n;
            delivered += static_cast<unsigned>(n);
        }
    }
    while (delivered < len) {
        const std::int64_t aligned = (position_ / kAlignment) * kAlignment;
        SeekDevice(aligned);
        const std::int64_t n = port::ReadFile(fd_, buffer_.get(), kBufferSize);
        if (n < 0) Fail(kErrStreamRead);
        device_ = aligned + n;
        origin_ = aligned;
        fill_ = static_cast<unsigned>(n);
        if (n == 0) break;
        const unsigned before = delivered;
        fromBuffer();
        // Nothing delivered: the position lies beyond the bytes the file
        // holds. A short fill: the file ends here.
        if (delivered == before || n < static_cast<std::int64_t>(kBufferSize)) break;
    }
    return delivered;
}

unsigned MURV_FileStream::Write(const void* src, unsigned len) {
    if (fd_ < 0 || len == 0) return 0;
    const auto* in = static_cast<const unsigned char*>(src);
    unsigned done = 0;
    if (!writeBuffer_) {
        writeBuffer_ = true;
        fill_ = 0;
    }
    if (fill_ > 0) {
        if (position_ < origin_ || position_ >= origin_ + kBufferSize || position_ > origin_ + fill_) {
            FlushBuffer();
        } else {
            const auto offset = static_cast<unsigned>(position_ - origin_);
            const unsigned n = std::min(kBufferSize - offset, len);
            std::memcpy(buffer_.get() + offset, in, n);
            fill_ = std::max(fill_, offset + n);
            position_ += n;
            done = n;
            if (fill_ == kBufferSize) FlushBuffer();
        }
    }
    const unsigned rest = len - done;
    if (rest >= kBufferSize) {
        if (position_ < 0) Fail(kErrStreamWrite);
        if (device_ != position_) {
            if (port::SeekFile(fd_, position_, SEEK_SET) != position_) Fail(kErrStreamWrite);
            device_ = position_;
        }
        const std::size_t n = port::WriteFile(fd_, in + done, rest);
        device_ += static_cast<std::int64_t>(n);
        position_ += static_cast<std::int64_t>(n);
        if (n != rest) Fail(kErrStreamWrite);
    } else if (rest > 0) {
        // The buffer is empty here: it was flushed above or filled up and written.
        origin_ = position_;
        std::memcpy(buffer_.get(), in + done, rest);
        fill_ = rest;
        position_ += rest;
    }
    return len;
}

int MURV_FileStream::Seek(std::int64_t offset, int whence) {
    if (fd_ < 0) return -1;
    switch (whence) {
        case 1:
            position_ += offset;
            break;
        case 2: {
            std::int64_t end = port::SeekFile(fd_, 0, SEEK_END);
            if (end < 0) Fail(kErrStreamRead);
            device_ = end;
            if (writeBuffer_ && fill_ > 0 && origin_ + fill_ > end) end = origin_ + fill_;
            position_ = end + offset;
            break;
        }
        default:
            position_ = offset;
            break;
    }
    return 0;
}

}  // namespace murv
