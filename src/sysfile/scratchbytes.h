// A byte buffer for input and output staging whose bytes are left unset
// when it grows: a reader or writer then costs only the pages it fills, not
// a clearing of its whole buffer (which a small file or a single case would
// mostly never use).
#pragma once

#include <cstddef>
#include <memory>

namespace murv {

class ScratchBytes {
public:
    unsigned char* data() { return bytes_.get(); }
    const unsigned char* data() const { return bytes_.get(); }
    std::size_t size() const { return size_; }
    bool empty() const { return size_ == 0; }
    // Makes room for at least n bytes. What the buffer held is gone when it
    // has to grow.
    void Reserve(std::size_t n) {
        if (n <= size_) return;
        bytes_.reset(new unsigned char[n]);
        size_ = n;
    }

private:
    std::unique_ptr<unsigned char[]> bytes_;
    std::size_t size_ = 0;
};

}  // namespace murv
