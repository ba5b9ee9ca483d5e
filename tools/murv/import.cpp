// `murv import`: a CSV file (RFC 4180, a header row of names) to a system
// file, in one pass over the input.
//
// The dictionary must be complete before the first case is written, but the
// type and width of a column are known only after its last row. So the rows
// are kept, as parsed cells, in a spill store (a buffer of a few MiB, then a
// temporary file) while the columns are measured; then the file is written
// from the store, the cells decoded into case records on a second thread
// while the first writes them. Memory stays bounded whatever the size of the
// input, and the input is read once, so it may be a pipe.
#include <fcntl.h>
#include <iconv.h>
#include <langinfo.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <fast_float/fast_float.h>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>
#include <unordered_set>

#include "murv.h"
#include "pipe.h"

namespace murv {

namespace {

// Pieces of input read at once, and the size of a batch of split records.
// The fuzz target builds with small ones, so that each run is cheap and the
// edges of pieces, batches and the spill buffer are met often.
#ifndef MURV_IMPORT_CHUNK
#define MURV_IMPORT_CHUNK (1 << 20)
#endif
#ifndef MURV_IMPORT_SPILL
#define MURV_IMPORT_SPILL (4u << 20)
#endif
constexpr std::size_t kChunk = MURV_IMPORT_CHUNK;
constexpr int kMaxStringWidth = 32767;

// ---- input: bytes of the CSV file in the locale's code page ----

class Input {
public:
    Input(const std::string& path, const std::string& encoding) : path_(path) {
        if (path == "-") {
            fd_ = STDIN_FILENO;
        } else {
            fd_ = ::open(path.c_str(), O_RDONLY);
            if (fd_ < 0) throw Failure(kExitIo, path + ": cannot open: " + std::strerror(errno));
            struct stat st {};
            if (::fstat(fd_, &st) == 0 && S_ISREG(st.st_mode)) size_ = static_cast<std::int64_t>(st.st_size);
        }
        // A byte-order mark: UTF-8's is dropped (spreadsheets start their
        // UTF-8 CSV files with one); UTF-16's chooses UTF-16 when no encoding
        // is given, and the conversion reads it.
        std::string from = encoding;
        head_.resize(4);
        std::size_t got = 0;
        while (got < head_.size()) {
            const ssize_t n = ::read(fd_, head_.data() + got, head_.size() - got);
            if (n < 0 && errno == EINTR) continue;
            if (n < 0) throw Failure(kExitIo, path_ + ": reading: " + std::strerror(errno));
            if (n == 0) break;
            got += static_cast<std::size_t>(n);
        }
        head_.resize(got);
        consumed_ = static_cast<std::int64_t>(got);
        std::string upper = from;
        for (char& c : upper) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
        if (head_.compare(0, 3, "\xEF\xBB\xBF") == 0 && (from.empty() || upper == "UTF-8" || upper == "UTF8"))
            head_.erase(0, 3);
        else if (from.empty() && (head_.compare(0, 2, "\xFF\xFE") == 0 || head_.compare(0, 2, "\xFE\xFF") == 0))
            from = "UTF-16";
        if (!from.empty()) {
            const char* to = nl_langinfo(CODESET);
            cd_ = iconv_open(to, from.c_str());
            if (cd_ == reinterpret_cast<iconv_t>(-1))
                throw Failure(kExitUsage, "--encoding: cannot convert from " + from + " to " + to);
            raw_.assign(head_.begin(), head_.end());
            pending_ = head_.size();
            head_.clear();
        }
    }
    ~Input() {
        if (fd_ > STDIN_FILENO) ::close(fd_);
        if (cd_ != reinterpret_cast<iconv_t>(-1)) iconv_close(cd_);
    }
    std::int64_t size() const { return size_; }
    std::int64_t consumed() const { return consumed_; }

    // Appends the next piece of input to `out`; false at the end.
    bool Read(std::string& out) {
        if (!head_.empty()) {  // the bytes read to look for a byte-order mark
            out += head_;
            head_.clear();
            return true;
        }
        if (eof_) return false;
        if (cd_ == reinterpret_cast<iconv_t>(-1)) {
            // Straight into the caller's buffer.
            const std::size_t old = out.size();
            out.resize(old + kChunk);
            ssize_t n;
            do {
                n = ::read(fd_, out.data() + old, kChunk);
            } while (n < 0 && errno == EINTR);
            if (n < 0) throw Failure(kExitIo, path_ + ": reading: " + std::strerror(errno));
            out.resize(old + static_cast<std::size_t>(n));
            consumed_ += n;
            eof_ = n == 0;
            return n > 0;
        }
        raw_.resize(pending_ + kChunk);
        ssize_t n;
        do {
            n = ::read(fd_, raw_.data() + pending_, kChunk);
        } while (n < 0 && errno == EINTR);
        if (n < 0) throw Failure(kExitIo, path_ + ": reading: " + std::strerror(errno));
        consumed_ += n;
        if (n == 0) eof_ = true;
        const std::size_t have = pending_ + static_cast<std::size_t>(n);
        // Convert; an incomplete character at the end waits for the next piece.
        char* in = raw_.data();
        std::size_t inLeft = have;
        while (inLeft > 0) {
            char buf[1 << 16];
            char* o = buf;
            std::size_t oLeft = sizeof buf;
            const std::size_t r = iconv(cd_, &in, &inLeft, &o, &oLeft);
            out.append(buf, static_cast<std::size_t>(o - buf));
            if (r != static_cast<std::size_t>(-1)) continue;
            if (errno == E2BIG) continue;
            if (errno == EINVAL && !eof_) break;
            throw Failure(kExitIo, path_ + ": a character that cannot be converted to the locale's code page, near byte " +
                                       std::to_string(consumed_ - static_cast<std::int64_t>(inLeft)));
        }
        pending_ = inLeft;
        std::memmove(raw_.data(), in, pending_);
        // A byte-order mark that the conversion kept (UTF-16LE names no
        // order, so its mark is a character) is not part of the first name.
        if (std::exchange(first_, false) && out.compare(0, 3, "\xEF\xBB\xBF") == 0) out.erase(0, 3);
        return n > 0 || pending_ > 0;
    }

private:
    std::string path_;
    int fd_ = -1;
    std::int64_t size_ = -1, consumed_ = 0;
    bool eof_ = false;
    iconv_t cd_ = reinterpret_cast<iconv_t>(-1);
    std::vector<char> raw_;
    std::size_t pending_ = 0;
    std::string head_;
    bool first_ = true;  // no converted text given out yet
};

// ---- RFC 4180 records ----

class CsvReader {
public:
    CsvReader(Input& in, char delim) : in_(in), delim_(delim) {
        for (unsigned char c : {'\n', '\r', '"'}) special_[c] = true;
        special_[static_cast<unsigned char>(delim)] = true;
    }

    // The next record's fields (views valid until the next call); false at the end.
    bool Next(std::vector<std::string_view>& fields) {
        for (;;) {
            const int r = Parse(fields);
            if (r > 0) return true;
            if (r == 0 && !atEnd_) {
                // Incomplete: drop what is consumed and read more.
                data_.erase(0, pos_);
                pos_ = 0;
                if (!in_.Read(data_)) atEnd_ = true;
                continue;
            }
            return false;
        }
    }
    std::int64_t line() const { return line_; }

    // Drops n lines before the records (a preamble need not be CSV).
    void SkipLines(std::int64_t n) {
        while (n > 0) {
            const void* nl = std::memchr(data_.data() + pos_, '\n', data_.size() - pos_);
            if (nl) {
                pos_ = static_cast<std::size_t>(static_cast<const char*>(nl) - data_.data()) + 1;
                ++line_;
                --n;
                continue;
            }
            if (atEnd_) {  // fewer lines than that: nothing is left
                pos_ = data_.size();
                return;
            }
            data_.erase(0, pos_);
            pos_ = 0;
            if (!in_.Read(data_)) atEnd_ = true;
        }
    }

private:
    // 1: a record; 0: the data ends before the record does; -1: no more data.
    int Parse(std::vector<std::string_view>& fields) {
        fields.clear();
        escaped_.clear();
        const char* const base = data_.data();
        const std::size_t n = data_.size();
        std::size_t p = pos_;
        if (p >= n) return atEnd_ ? -1 : 0;
        std::int64_t lines = 0;
        for (;;) {
            if (p < n && base[p] == '"') {
                // Quoted field: "" is a quote; ends at the closing quote.
                std::size_t q = p + 1;
                std::size_t start = q;
                bool copied = false;
                std::string* buf = nullptr;
                for (;;) {
                    const void* hit = std::memchr(base + q, '"', n - q);
                    if (!hit) return atEnd_ ? Fail("a quoted field is not closed") : 0;
                    const std::size_t at = static_cast<std::size_t>(static_cast<const char*>(hit) - base);
                    for (std::size_t k = q; k < at; ++k) lines += base[k] == '\n';
                    if (at + 1 >= n && !atEnd_) return 0;
                    if (at + 1 < n && base[at + 1] == '"') {
                        if (!copied) {
                            escaped_.emplace_back();
                            buf = &escaped_.back();
                            copied = true;
                        }
                        buf->append(base + start, at + 1 - start);
                        q = start = at + 2;
                        continue;
                    }
                    if (copied) {
                        buf->append(base + start, at - start);
                        fields.emplace_back(*buf);
                    } else {
                        fields.emplace_back(base + start, at - start);
                    }
                    p = at + 1;
                    break;
                }
                if (p < n && base[p] != delim_ && base[p] != '\n' && base[p] != '\r')
                    return Fail("text after the closing quote of a field");
            } else {
                std::size_t q = p;
                while (q < n && !special_[static_cast<unsigned char>(base[q])]) ++q;
                if (q < n && base[q] == '"') return Fail("a quote inside an unquoted field");
                fields.emplace_back(base + p, q - p);
                p = q;
            }
            if (p >= n) {
                if (!atEnd_) return 0;
                break;  // the last record has no line end
            }
            if (base[p] == delim_) {
                ++p;
                continue;
            }
            // Line end: \n, \r\n or \r.
            if (base[p] == '\r') {
                if (p + 1 >= n && !atEnd_) return 0;
                ++p;
                if (p < n && base[p] == '\n') ++p;
            } else {
                ++p;
            }
            break;
        }
        pos_ = p;
        line_ += 1 + lines;
        return 1;
    }

    int Fail(const char* what) {
        throw Failure(kExitIo, "line " + std::to_string(line_ + 1) + ": " + what);
    }

    Input& in_;
    char delim_;
    bool special_[256] = {};  // the bytes that end an unquoted field
    std::string data_;
    std::size_t pos_ = 0;
    bool atEnd_ = false;
    std::int64_t line_ = 0;
    // Fields that held "" escapes, unescaped; a deque keeps the views valid.
    std::deque<std::string> escaped_;
};

// ---- the spill store ----

// Cells one after the other. Each starts with a varint h: h & 3 is the kind,
// 0 empty, 1 a plain decimal (h >> 2 = its decimals k, then the zigzag varint
// of its digits x: the value is x / 10^k and the text is exactly x written
// with k decimals), 2 a text (h >> 2 = its length in bytes, then the bytes).
// Plain decimals, the bulk of most tables, so take a few bytes and need no
// second parse.
class Spill {
public:
    Spill() : buf_(new char[kLimit + kSlack]), p_(buf_.get()) {}
    ~Spill() {
        if (writer_.joinable()) {
            {
                std::lock_guard lock(mutex_);
                quit_ = true;
            }
            changed_.notify_all();
            writer_.join();
        }
        if (file_) std::fclose(file_);
    }
    // Room for `n` more bytes at Out().
    char* Out(std::size_t n) {
        if (static_cast<std::size_t>(p_ - buf_.get()) + n > kLimit + kSlack) {
            Drain();
            if (n > kLimit + kSlack) Grow(n);
        }
        return p_;
    }
    void Advance(char* to) {
        p_ = to;
        if (static_cast<std::size_t>(p_ - buf_.get()) >= kLimit) Drain();
    }
    static char* PutVarint(char* p, std::uint64_t v) {
        while (v >= 0x80) {
            *p++ = static_cast<char>(v | 0x80);
            v >>= 7;
        }
        *p++ = static_cast<char>(v);
        return p;
    }
    void PutEmpty() {
        char* p = Out(1);
        *p = 0;
        Advance(p + 1);
    }
    void PutDecimal(std::int64_t x, int k) {
        char* p = Out(12);
        *p++ = static_cast<char>((k << 2) | 1);
        Advance(PutVarint(p, (static_cast<std::uint64_t>(x) << 1) ^ static_cast<std::uint64_t>(x >> 63)));
    }
    void PutText(std::string_view t) {
        char* p = Out(t.size() + 10);
        p = PutVarint(p, (static_cast<std::uint64_t>(t.size()) << 2) | 2);
        std::memcpy(p, t.data(), t.size());
        Advance(p + t.size());
    }

    // Switches to reading from the start.
    void Rewind() {
        end_ = p_;
        if (file_) {
            Drain();
            WaitForWriter();
            if (std::fflush(file_) != 0 || std::fseek(file_, 0, SEEK_SET) != 0)
                throw Failure(kExitIo, std::string("temporary file: ") + std::strerror(errno));
            end_ = buf_.get();
        }
        p_ = buf_.get();
    }
    // Makes n bytes available at In(); false when the store holds fewer.
    bool Ensure(std::size_t n) {
        if (static_cast<std::size_t>(end_ - p_) >= n) return true;
        if (!file_) return false;
        const std::size_t left = static_cast<std::size_t>(end_ - p_);
        if (n > kLimit + kSlack) Grow(n);
        std::memmove(buf_.get(), p_, left);
        p_ = buf_.get();
        end_ = p_ + left;
        const std::size_t got = std::fread(end_, 1, kLimit + kSlack - left, file_);
        if (got == 0 && std::ferror(file_)) throw Failure(kExitIo, std::string("temporary file: ") + std::strerror(errno));
        end_ += got;
        return static_cast<std::size_t>(end_ - p_) >= n;
    }
    const char* In() const { return p_; }
    void Skip(std::size_t n) { p_ += n; }
    std::uint64_t GetVarint() {
        if (!Ensure(10)) Ensure(1);
        std::uint64_t v = 0;
        for (int shift = 0; p_ < end_ && shift < 64; shift += 7) {
            const auto b = static_cast<unsigned char>(*p_++);
            v |= static_cast<std::uint64_t>(b & 0x7F) << shift;
            if (!(b & 0x80)) return v;
        }
        throw Failure(kExitIo, "temporary file ends early");
    }

private:
    // The buffer, reused: small enough to stay in the processor's cache, so
    // that filling it and handing it to the file are cheap. A store larger
    // than this goes to a temporary file.
    static constexpr std::size_t kLimit = MURV_IMPORT_SPILL;
    static constexpr std::size_t kSlack = 64u << 10;
    // A full buffer goes to the temporary file on a thread of its own while
    // the other buffer fills.
    void Drain() {
        if (!file_) {
            file_ = std::tmpfile();
            if (!file_) throw Failure(kExitIo, std::string("cannot make a temporary file: ") + std::strerror(errno));
            spare_.reset(new char[kLimit + kSlack]);
            writer_ = std::thread([this] { WriteOut(); });
        }
        const std::size_t n = static_cast<std::size_t>(p_ - buf_.get());
        WaitForWriter();
        if (n) {
            std::lock_guard lock(mutex_);
            std::swap(buf_, spare_);
            pending_ = n;
            changed_.notify_all();
        }
        p_ = buf_.get();
    }
    // Waits until the writing thread has written what it was given.
    void WaitForWriter() {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return pending_ == 0; });
        if (error_) throw Failure(kExitIo, std::string("writing the temporary file: ") + std::strerror(error_));
    }
    void WriteOut() {
        std::unique_lock lock(mutex_);
        for (;;) {
            changed_.wait(lock, [&] { return pending_ != 0 || quit_; });
            if (pending_ == 0) return;
            const std::size_t n = pending_;
            lock.unlock();
            const bool ok = std::fwrite(spare_.get(), 1, n, file_) == n;
            const int err = errno;
            lock.lock();
            if (!ok && !error_) error_ = err ? err : EIO;
            pending_ = 0;
            changed_.notify_all();
        }
    }
    // No cell is longer than 32767 bytes and a few more, well within the slack.
    void Grow(std::size_t) { throw Failure(kExitIo, "a value too long for the spill buffer"); }

    std::unique_ptr<char[]> buf_;
    std::unique_ptr<char[]> spare_;  // the buffer being written out
    std::thread writer_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::size_t pending_ = 0;  // bytes of spare_ still to be written
    bool quit_ = false;
    int error_ = 0;
    char* p_;
    char* end_ = nullptr;
    std::FILE* file_ = nullptr;
};

// ---- columns ----

struct ColumnStats {
    bool numeric = true;
    bool exponent = false;
    int width = 0;      // longest value in bytes
    int intDigits = 1;  // of numbers, for the display format
    int decimals = 0;
    bool negative = false;
    // ISO dates: 0 none seen yet, 1 dates only, 2 date-times too, -1 a value
    // that is neither (or dates are not wanted in this column).
    int dates = 0;
    int secondDecimals = 0;  // digits of fractional seconds
};

std::string_view Trim(std::string_view s) {
    std::size_t a = 0, b = s.size();
    while (a < b && (s[a] == ' ' || s[a] == '\t')) ++a;
    while (b > a && (s[b - 1] == ' ' || s[b - 1] == '\t')) --b;
    return s.substr(a, b - a);
}

// A finite decimal number, the whole field; counts digits for the format.
bool ParseNumber(std::string_view f, double& v, ColumnStats& st) {
    const char* p = f.data();
    const char* end = p + f.size();
    const bool plus = p < end && *p == '+';
    if (plus) ++p;
    const char* digits = !plus && p < end && *p == '-' ? p + 1 : p;  // one sign at most
    if (digits >= end || !((*digits >= '0' && *digits <= '9') || *digits == '.')) return false;
    const auto r = fast_float::from_chars(p, end, v);
    if (r.ec != std::errc() || r.ptr != end || !std::isfinite(v)) return false;
    int intDigits = 0, decimals = 0;
    const char* q = digits;
    while (q < end && *q >= '0' && *q <= '9') ++q, ++intDigits;
    if (q < end && *q == '.') {
        ++q;
        while (q < end && *q >= '0' && *q <= '9') ++q, ++decimals;
    }
    if (q < end) st.exponent = true;
    st.intDigits = std::max(st.intDigits, intDigits);
    st.decimals = std::max(st.decimals, decimals);
    st.negative |= digits != p;
    return true;
}

// The common number, [-]digits[.digits] with at most 15 digits: its digits x
// and decimals k, the value x / 10^k (exact: both are exact doubles and the
// quotient is rounded correctly, as a full parse would round the text).
// `plain` tells whether x written with k decimals gives the text back (no
// leading zeros or lone point), so the text need not be kept.
bool ParseDecimal(std::string_view f, std::int64_t& x, int& k, bool& plain, ColumnStats& st) {
    const char* p = f.data();
    const char* const end = p + f.size();
    const bool negative = p < end && *p == '-';
    if (negative) ++p;
    const char* const intStart = p;
    // Unsigned, so that a long run of digits wraps harmlessly before the
    // count of digits refuses it.
    std::uint64_t v = 0;
    while (p < end && static_cast<unsigned>(*p - '0') < 10) v = v * 10 + static_cast<unsigned>(*p++ - '0');
    const int intDigits = static_cast<int>(p - intStart);
    int decimals = 0;
    bool point = false;
    if (p < end && *p == '.') {
        point = true;
        ++p;
        const char* const fracStart = p;
        while (p < end && static_cast<unsigned>(*p - '0') < 10) v = v * 10 + static_cast<unsigned>(*p++ - '0');
        decimals = static_cast<int>(p - fracStart);
    }
    if (p != end || intDigits + decimals == 0 || intDigits + decimals > 15) return false;
    x = negative ? -static_cast<std::int64_t>(v) : static_cast<std::int64_t>(v);
    k = decimals;
    plain = intDigits > 0 && !(intDigits > 1 && *intStart == '0') && !(point && decimals == 0) && !(negative && v == 0);
    st.intDigits = std::max(st.intDigits, intDigits);
    st.decimals = std::max(st.decimals, decimals);
    st.negative |= negative;
    return true;
}

// An ISO 8601 date (YYYY-MM-DD) or date-time (YYYY-MM-DD HH:MM[:SS[.f]],
// with a space or T): its value in seconds since the calendar's start, and
// kind 1 for a date, 2 for a date-time.
bool ParseIsoDate(std::string_view s, double& v, int& kind, int& fraction) {
    const std::size_t n = s.size();
    if (n < 10 || s[4] != '-' || s[7] != '-') return false;
    auto digits = [&](std::size_t at, std::size_t len, int& out) {
        out = 0;
        for (std::size_t i = at; i < at + len; ++i) {
            if (i >= n || static_cast<unsigned>(s[i] - '0') > 9) return false;
            out = out * 10 + (s[i] - '0');
        }
        return true;
    };
    int y, mo, d, h = 0, mi = 0, sec = 0;
    if (!digits(0, 4, y) || !digits(5, 2, mo) || !digits(8, 2, d)) return false;
    double part = 0;
    fraction = 0;
    kind = 1;
    if (n > 10) {
        if ((s[10] != 'T' && s[10] != ' ') || n < 16 || !digits(11, 2, h) || s[13] != ':' || !digits(14, 2, mi))
            return false;
        std::size_t at = 16;
        if (at < n) {
            if (s[at] != ':' || !digits(at + 1, 2, sec)) return false;
            at += 3;
            if (at < n) {
                if (s[at] != '.' || at + 1 == n || n - at - 1 > 9) return false;
                double scale = 0.1;
                for (std::size_t i = at + 1; i < n; ++i, scale /= 10) {
                    if (static_cast<unsigned>(s[i] - '0') > 9) return false;
                    part += (s[i] - '0') * scale;
                }
                fraction = static_cast<int>(n - at - 1);
            }
        }
        if (h > 23 || mi > 59 || sec > 59) return false;
        kind = 2;
    }
    double day = 0;
    if (mo < 1 || mo > 12 || d < 1 || d > 31 || murvConvertDate(d, mo, y, &day) != MURV_RC_OK) return false;
    v = day + h * 3600.0 + mi * 60.0 + sec + part;
    return true;
}

// With a decimal comma, the text a number parser reads: the comma as a
// point; a point in the text is then not a number's.
std::string_view AsPointDecimal(std::string_view f, char decimal, std::string& scratch) {
    if (decimal != ',') return f;
    scratch.assign(f);
    for (char& c : scratch) {
        if (c == '.') return std::string_view("x");  // not a number
        if (c == ',') c = '.';
    }
    return scratch;
}

// Well-formed UTF-8 (no overlong forms, surrogates or values past U+10FFFF).
bool ValidUtf8(std::string_view s) {
    const auto* p = reinterpret_cast<const unsigned char*>(s.data());
    const std::size_t n = s.size();
    for (std::size_t i = 0; i < n;) {
        const unsigned c = p[i];
        if (c < 0x80) {
            ++i;
            continue;
        }
        std::size_t len;
        unsigned lo = 0x80, hi = 0xBF;
        if (c >= 0xC2 && c <= 0xDF) len = 2;
        else if (c >= 0xE0 && c <= 0xEF) len = 3, lo = c == 0xE0 ? 0xA0 : 0x80, hi = c == 0xED ? 0x9F : 0xBF;
        else if (c >= 0xF0 && c <= 0xF4) len = 4, lo = c == 0xF0 ? 0x90 : 0x80, hi = c == 0xF4 ? 0x8F : 0xBF;
        else return false;
        if (i + len > n || p[i + 1] < lo || p[i + 1] > hi) return false;
        for (std::size_t k = 2; k < len; ++k)
            if ((p[i + k] & 0xC0) != 0x80) return false;
        i += len;
    }
    return true;
}

bool Ascii(std::string_view s) {
    for (char c : s)
        if (static_cast<unsigned char>(c) >= 0x80) return false;
    return true;
}

std::string Upper(std::string s) {
    for (char& c : s) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return s;
}

// Comma-separated texts ("NA,.,N/A"); empty items are dropped.
std::vector<std::string> SplitList(const std::string& list) {
    std::vector<std::string> out;
    std::size_t pos = 0;
    while (pos <= list.size()) {
        std::size_t comma = list.find(',', pos);
        if (comma == std::string::npos) comma = list.size();
        std::string item = list.substr(pos, comma - pos);
        pos = comma + 1;
        if (!item.empty()) out.push_back(std::move(item));
    }
    return out;
}

// The texts that mean a missing value, tested on a cell as read (blanks
// around it do not count): a test that costs nothing when there are none,
// and one table lookup when the cell's first byte starts none of them (a
// digit, for most cells of most tables).
class MissingTexts {
public:
    explicit MissingTexts(std::vector<std::string> texts) : texts_(std::move(texts)) {
        for (const std::string& t : texts_) first_[static_cast<unsigned char>(t[0])] = true;
        first_[static_cast<unsigned char>(' ')] = first_[static_cast<unsigned char>('\t')] = !texts_.empty();
    }
    bool Has(std::string_view f) const {
        if (f.empty() || !first_[static_cast<unsigned char>(f[0])]) return false;
        f = Trim(f);
        for (const std::string& t : texts_)
            if (t == f) return true;
        return false;
    }

private:
    std::vector<std::string> texts_;
    bool first_[256] = {};
};

// Names the library accepts, unique without regard to case: a column name
// is kept when murvValidateVarname calls it an ordinary name; otherwise its
// disallowed characters become "_", a name that cannot start a name gets a
// "v" in front, a reserved word gets "_" after it, and a name that is still
// refused (or empty) becomes v<column number>. A name already taken gets
// _2, _3, ... (cut to stay within 64 bytes).
std::vector<std::string> MakeNames(const std::vector<std::string_view>& header, std::vector<std::string>& renamed) {
    std::vector<std::string> names;
    std::unordered_set<std::string> taken;
    auto cut = [](std::string s, std::size_t max) {
        // Cut at a character boundary under the locale.
        std::size_t keep = 0;
        while (keep < s.size()) {
            int len = std::mblen(s.data() + keep, s.size() - keep);
            if (len < 1) len = 1;
            if (keep + static_cast<std::size_t>(len) > max) break;
            keep += static_cast<std::size_t>(len);
        }
        s.resize(keep);
        std::mblen(nullptr, 0);
        return s;
    };
    for (std::size_t i = 0; i < header.size(); ++i) {
        const std::string original(Trim(header[i]));
        std::string name = original;
        // A NUL byte would end the name early for the library: it is a
        // character a name cannot hold, like any other.
        std::replace(name.begin(), name.end(), '\0', '_');
        if (murvValidateVarname(name.c_str()) != 0 || name.size() > 64) {
            for (char& c : name) {
                const auto u = static_cast<unsigned char>(c);
                if (u < 128 && !std::isalnum(u) && c != '@' && c != '#' && c != '$' && c != '_' && c != '.') c = '_';
            }
            if (!name.empty() && (std::isdigit(static_cast<unsigned char>(name[0])) || name[0] == '_' ||
                                  name[0] == '.' || name[0] == '#' || name[0] == '$'))
                name = "v" + name;
            name = cut(name, 64);
            if (murvValidateVarname(name.c_str()) == 5) name = name + "_";
            if (name.empty() || murvValidateVarname(name.c_str()) != 0) name = "v" + std::to_string(i + 1);
        }
        if (taken.count(NameKey(name))) {
            for (int k = 2;; ++k) {
                const std::string suffix = "_" + std::to_string(k);
                std::string candidate = cut(name, 64 - suffix.size()) + suffix;
                if (!taken.count(NameKey(candidate)) && murvValidateVarname(candidate.c_str()) == 0) {
                    name = candidate;
                    break;
                }
            }
        }
        taken.insert(NameKey(name));
        if (name != original) {
            std::string shown = original;
            std::size_t at = 0;
            while ((at = shown.find('\0', at)) != std::string::npos) shown.replace(at, 1, "\\0");
            renamed.push_back("'" + shown + "' -> " + name);
        }
        names.push_back(std::move(name));
    }
    return names;
}


// Variable and value labels from a codebook, a CSV file of rows
// variable,value,label (an empty value: the variable's own label), with or
// without a header row of those three words.
template <class Find>
void ApplyCodebook(const ImportOptions& opt, int h, const std::vector<std::string>& names, Find&& findColumn,
                   const std::vector<ColumnStats>& stats, const std::vector<char>& isDate) {
    Input in(opt.labels, "");
    CsvReader csv(in, ',');
    std::vector<std::string_view> f;
    std::string scratch;
    bool first = true;
    while (csv.Next(f)) {
        const std::int64_t line = csv.line();
        auto fail = [&](const std::string& what) {
            throw Failure(kExitIo, opt.labels + ": line " + std::to_string(line) + ": " + what);
        };
        if (f.size() == 1 && Trim(f[0]).empty()) continue;
        if (std::exchange(first, false) && f.size() == 3 && Upper(std::string(Trim(f[0]))) == "VARIABLE" &&
            Upper(std::string(Trim(f[1]))) == "VALUE" && Upper(std::string(Trim(f[2]))) == "LABEL")
            continue;
        if (f.size() != 3) fail("expected variable,value,label");
        const std::string var(Trim(f[0])), value(Trim(f[1])), label(f[2]);
        const std::size_t c = findColumn(var);
        if (c == names.size()) fail("no column " + var + " in " + opt.csv);
        const char* name = names[c].c_str();
        if (value.empty()) {
            Check(murvSetVarLabel(h, name, label.c_str()), opt.out, "label of " + names[c]);
        } else if (stats[c].numeric || isDate[c]) {
            double v = 0;
            int kind, fraction;
            ColumnStats ignored;
            if (isDate[c] ? !ParseIsoDate(value, v, kind, fraction)
                          : !ParseNumber(AsPointDecimal(value, opt.decimal, scratch), v, ignored))
                fail(value + " is not a value of the numeric variable " + names[c]);
            Check(murvSetVarNValueLabel(h, name, v, label.c_str()), opt.out, "value labels of " + names[c]);
        } else {
            if (value.size() > static_cast<std::size_t>(std::max(1, stats[c].width)))
                fail("'" + value + "' is longer than any value of " + names[c]);
            Check(murvSetVarCValueLabel(h, name, value.c_str(), label.c_str()), opt.out, "value labels of " + names[c]);
        }
    }
}

}  // namespace

int RunImport(const ImportOptions& opt) {
    ReplaceFile dest(opt.out, opt.csv);  // a destination that cannot be written is refused before any work
    Input input(opt.csv, opt.encoding);
    CsvReader csv(input, opt.delimiter);
    // Invalid UTF-8 is refused only where the locale is UTF-8 and the input
    // is taken as it is; text in other code pages needs --encoding.
    const bool checkUtf8 = opt.encoding.empty() && Upper(nl_langinfo(CODESET)).find("UTF") != std::string::npos &&
                           Upper(nl_langinfo(CODESET)).find("8") != std::string::npos;
    try {
        csv.SkipLines(opt.skip);
    } catch (const Failure& f) {
        throw Failure(f.exit, opt.csv + ": " + f.what());
    }
    std::vector<std::string_view> fields;
    if (!csv.Next(fields)) throw Failure(kExitIo, opt.csv + ": empty: no " + (opt.header ? "header row" : "rows"));
    // Without a header the first row is data: a copy of it is measured first.
    std::vector<std::string> firstRow;
    std::int64_t firstLine = csv.line();
    std::vector<std::string> header;
    for (std::size_t i = 0; i < fields.size(); ++i) {
        if (opt.header) {
            if (checkUtf8 && !ValidUtf8(fields[i]))
                throw Failure(kExitIo, opt.csv + ": line " + std::to_string(firstLine) +
                                           ": not UTF-8 (give the file's character set with --encoding)");
            header.emplace_back(fields[i]);
        } else {
            firstRow.emplace_back(fields[i]);
            header.push_back("V" + std::to_string(i + 1));
        }
    }
    std::vector<std::string> renamed;
    const std::vector<std::string> names = MakeNames(std::vector<std::string_view>(header.begin(), header.end()), renamed);
    const std::size_t ncols = names.size();
    std::vector<ColumnStats> stats(ncols);
    // A column is found by the name the file gives it or its header's text.
    auto findColumn = [&](const std::string& name) -> std::size_t {
        const std::string key = NameKey(name);
        for (std::size_t c = 0; c < ncols; ++c)
            if (NameKey(names[c]) == key || NameKey(Trim(header[c])) == key) return c;
        return ncols;
    };
    for (const std::string& t : SplitList(opt.text)) {
        const std::size_t c = findColumn(t);
        if (c == ncols) throw Failure(kExitUsage, "--text: no column " + t + " in " + opt.csv);
        stats[c].numeric = false;
        stats[c].dates = -1;
    }
    if (!opt.dates)
        for (ColumnStats& st : stats) st.dates = -1;
    const MissingTexts na(opt.na);
    const char decimal = opt.decimal;

    // Pass over the input: measure the columns and keep the cells. The
    // records are split into fields on a second thread, a batch at a time.
    struct Rows {
        std::string bytes;              // the fields one after the other
        std::vector<std::size_t> ends;  // where each field ends in bytes
        std::vector<std::size_t> rowEnds;  // fields up to the end of each row
        std::vector<std::int64_t> lines;   // the line each row ends on
        std::int64_t consumed = 0;          // input read by then
    };
    Handoff<Rows> handoff;
    std::thread splitter([&] {
        try {
            Rows* b = &handoff.Fill();
            auto clear = [&] {
                b->bytes.clear();
                b->ends.clear();
                b->rowEnds.clear();
                b->lines.clear();
            };
            clear();
            std::vector<std::string_view> split;
            while (csv.Next(split)) {
                if (split.size() == 1 && split[0].empty() && ncols > 1) continue;  // a blank line
                for (const std::string_view f : split) {
                    b->bytes.append(f);
                    b->ends.push_back(b->bytes.size());
                }
                b->rowEnds.push_back(b->ends.size());
                b->lines.push_back(csv.line());
                if (b->bytes.size() >= kChunk) {
                    b->consumed = input.consumed();
                    handoff.Publish();
                    b = &handoff.Fill();
                    clear();
                }
            }
            b->consumed = input.consumed();
            handoff.Publish();
            handoff.Done(nullptr);
        } catch (const Handoff<Rows>::Stopped&) {
            handoff.Done(nullptr);
        } catch (...) {
            handoff.Done(std::current_exception());
        }
    });
    Spill spill;
    std::int64_t rows = 0;
    // Rows with fewer fields than the header names: their last cells are
    // empty, and the count is said on standard error, as are the cells that
    // --na made missing.
    std::int64_t shortRows = 0, firstShort = 0, madeMissing = 0;
    std::string scratch;
    auto measureRow = [&](const std::vector<std::string_view>& row, std::int64_t line) {
        if (row.size() < ncols && shortRows++ == 0) firstShort = line;
        if (row.size() > ncols)
            throw Failure(kExitIo, "line " + std::to_string(line) + ": " + std::to_string(row.size()) +
                                       " fields, the header names " + std::to_string(ncols));
        for (std::size_t c = 0; c < ncols; ++c) {
            const std::string_view f = c < row.size() ? row[c] : std::string_view();
            ColumnStats& st = stats[c];
            if (na.Has(f)) {
                spill.PutEmpty();
                ++madeMissing;
                continue;
            }
            if (st.numeric) {
                std::int64_t x;
                int k;
                bool plain;
                if (!f.empty() && ParseDecimal(AsPointDecimal(f, decimal, scratch), x, k, plain, st)) {
                    st.width = std::max(st.width, static_cast<int>(f.size()));
                    st.dates = -1;  // numbers are not dates
                    if (plain)
                        spill.PutDecimal(x, k);
                    else
                        spill.PutText(f);
                    continue;
                }
            }
            const std::string_view value = TrimRight(f);
            if (value.size() > static_cast<std::size_t>(kMaxStringWidth))
                throw Failure(kExitIo, "line " + std::to_string(line) + ", column " + names[c] +
                                           ": a value longer than " + std::to_string(kMaxStringWidth) + " bytes");
            const std::string_view trimmed = Trim(f);
            if (trimmed.empty()) {
                spill.PutEmpty();
                continue;
            }
            st.width = std::max(st.width, static_cast<int>(value.size()));
            double v;
            if (st.numeric) {
                if (ParseNumber(Trim(AsPointDecimal(f, decimal, scratch)), v, st))
                    st.dates = -1;
                else
                    st.numeric = false;
            }
            if (!st.numeric && st.dates >= 0) {
                int kind, fraction;
                if (ParseIsoDate(trimmed, v, kind, fraction)) {
                    st.dates = std::max(st.dates, kind);
                    st.secondDecimals = std::max(st.secondDecimals, fraction);
                } else {
                    st.dates = -1;
                }
            }
            if (checkUtf8 && !Ascii(value) && !ValidUtf8(value))
                throw Failure(kExitIo, "line " + std::to_string(line) + ", column " + names[c] +
                                           ": not UTF-8 (give the file's character set with --encoding)");
            spill.PutText(value);
        }
        ++rows;
    };
    try {
        if (!opt.header) measureRow(std::vector<std::string_view>(firstRow.begin(), firstRow.end()), firstLine);
        Progress progress("reading CSV", input.size());
        while (Rows* b = handoff.Take()) {
            std::size_t field = 0;
            for (std::size_t r = 0; r < b->rowEnds.size(); ++r) {
                fields.clear();
                for (; field < b->rowEnds[r]; ++field) {
                    const std::size_t from = field ? b->ends[field - 1] : 0;
                    fields.emplace_back(b->bytes.data() + from, b->ends[field] - from);
                }
                measureRow(fields, b->lines[r]);
            }
            progress.Update(b->consumed);
            handoff.Release();
        }
    } catch (const Failure& f) {
        handoff.Stop();
        splitter.join();
        throw Failure(f.exit, opt.csv + ": " + f.what());
    } catch (...) {
        handoff.Stop();
        splitter.join();
        throw;
    }
    splitter.join();
    if (madeMissing > 0)
        std::fprintf(opt.notes, "murv import: %lld cell%s made missing by --na\n", static_cast<long long>(madeMissing),
                     madeMissing == 1 ? "" : "s");
    if (shortRows > 0)
        std::fprintf(opt.notes,
                     "murv import: %lld row%s had fewer fields than the header names (the first on line %lld); the "
                     "missing cells are empty\n",
                     static_cast<long long>(shortRows), shortRows == 1 ? "" : "s", static_cast<long long>(firstShort));
    if (!renamed.empty()) {
        std::string list;
        for (const std::string& r : renamed) list += (list.empty() ? "" : ", ") + r;
        std::fprintf(opt.notes, "murv import: names changed to names the library accepts: %s\n", list.c_str());
    }

    // The dictionary.
    int h = -1;
    Check(murvOpenWrite(dest.temp().c_str(), &h), opt.out, "creating the file");
    struct Closer {
        int& h;
        ~Closer() {
            if (h >= 0) murvCloseWrite(h);
        }
    } closer{h};
    std::vector<double> handles(ncols);
    std::vector<std::size_t> offsets(ncols);
    std::size_t caseBytes = 0;
    // A column of ISO dates (and nothing else but empty cells) becomes a
    // numeric date variable.
    std::vector<char> isDate(ncols);
    for (std::size_t c = 0; c < ncols; ++c) isDate[c] = !stats[c].numeric && stats[c].dates > 0;
    for (std::size_t c = 0; c < ncols; ++c) {
        const ColumnStats& st = stats[c];
        const int type = st.numeric || isDate[c] ? 0 : std::max(1, st.width);
        Check(murvSetVarName(h, names[c].c_str(), type), opt.out, "defining variable " + names[c]);
        if (isDate[c]) {
            // DATE dd-mmm-yyyy, DATETIME dd-mmm-yyyy hh:mm:ss[.f]
            const int fmt = st.dates == 2 ? 22 : 20;
            const int decimals = st.dates == 2 ? std::min(st.secondDecimals, 6) : 0;
            const int width = st.dates == 2 ? 20 + (decimals ? decimals + 1 : 0) : 11;
            Check(murvSetVarPrintFormat(h, names[c].c_str(), fmt, decimals, width), opt.out, "format of " + names[c]);
            Check(murvSetVarWriteFormat(h, names[c].c_str(), fmt, decimals, width), opt.out, "format of " + names[c]);
        } else if (st.numeric && !st.exponent) {
            const int decimals = std::min(st.decimals, 16);
            const int width = std::min(40, std::max(1, st.intDigits + (st.negative ? 1 : 0) + (decimals ? decimals + 1 : 0)));
            Check(murvSetVarPrintFormat(h, names[c].c_str(), 5, decimals, width), opt.out, "format of " + names[c]);
            Check(murvSetVarWriteFormat(h, names[c].c_str(), 5, decimals, width), opt.out, "format of " + names[c]);
        }
        Check(murvGetVarHandle(h, names[c].c_str(), &handles[c]), opt.out, "variable " + names[c]);
        offsets[c] = caseBytes;
        caseBytes += type == 0 ? 8 : static_cast<std::size_t>((type + 7) / 8) * 8;
    }
    if (!opt.labels.empty()) ApplyCodebook(opt, h, names, findColumn, stats, isDate);
    if (opt.compress) Check(murvSetCompression(h, 1), opt.out, "setting compression");
    Check(murvCommitHeader(h), opt.out, "writing the dictionary");

    // The cases, from the spill store: decoded into records on a second
    // thread while this one writes them.
    const double sysmis = murvSysmisVal();
    Progress progress("writing cases", rows);
    spill.Rewind();
    RecordPipe pipe(caseBytes);
    std::thread producer([&] {
        std::string decoded;
        try {
            for (std::int64_t r = 0; r < rows; ++r) {
                char* const record = pipe.Slot();
                for (std::size_t c = 0; c < ncols; ++c) {
                    const std::uint64_t head = spill.GetVarint();
                    char* cell = record + offsets[c];
                    const bool numeric = stats[c].numeric || isDate[c];
                    const std::size_t cellBytes =
                        numeric ? 8 : static_cast<std::size_t>((std::max(1, stats[c].width) + 7) / 8) * 8;
                    switch (head & 3) {
                        case 0:
                            if (numeric)
                                std::memcpy(cell, &sysmis, 8);
                            else
                                std::memset(cell, ' ', cellBytes);
                            break;
                        case 1: {
                            const std::uint64_t z = spill.GetVarint();
                            const auto x = static_cast<std::int64_t>((z >> 1) ^ (~(z & 1) + 1));
                            const int k = static_cast<int>(head >> 2);
                            if (numeric) {
                                const double v = static_cast<double>(x) / kPowersOf10[k];
                                std::memcpy(cell, &v, 8);
                            } else {
                                char text[48];
                                const std::size_t len = static_cast<std::size_t>(WriteDecimal(text, x, k) - text);
                                if (decimal == ',') std::replace(text, text + len, '.', ',');
                                std::memcpy(cell, text, len);
                                std::memset(cell + len, ' ', cellBytes - len);
                            }
                            break;
                        }
                        default: {
                            const auto len = static_cast<std::size_t>(head >> 2);
                            if (!spill.Ensure(len)) throw Failure(kExitIo, "temporary file ends early");
                            const std::string_view text(spill.In(), len);
                            if (isDate[c]) {
                                double v = sysmis;
                                int kind, fraction;
                                ParseIsoDate(Trim(text), v, kind, fraction);
                                std::memcpy(cell, &v, 8);
                            } else if (numeric) {
                                double v = sysmis;
                                ColumnStats ignored;
                                ParseNumber(Trim(AsPointDecimal(text, decimal, decoded)), v, ignored);
                                std::memcpy(cell, &v, 8);
                            } else {
                                std::memcpy(cell, text.data(), len);
                                std::memset(cell + len, ' ', cellBytes - len);
                            }
                            spill.Skip(len);
                        }
                    }
                }
            }
            pipe.Done(nullptr);
        } catch (const RecordPipe::Stopped&) {
            pipe.Done(nullptr);
        } catch (...) {
            pipe.Done(std::current_exception());
        }
    });
    std::int64_t written = 0;
    try {
        pipe.Drain([&](const char* record) {
            Check(murvWholeCaseOut(h, record), opt.out, "writing case " + std::to_string(written + 1));
            progress.Update(written++);
        });
    } catch (...) {
        pipe.Stop();
        producer.join();
        throw;
    }
    producer.join();
    progress.Finish();
    const int crc = murvCloseWrite(h);
    h = -1;
    Check(crc, opt.out, "finishing the file");
    dest.Commit();
    return kExitOk;
}

}  // namespace murv
