#include "sysfile/codec_kernels.h"

#include <atomic>
#include <cstring>

#include "port/cpu.h"

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#define MURV_X86_KERNELS 1
#include <immintrin.h>
#endif

namespace murv::codec {

namespace {

// ---- scalar: any processor ----

std::size_t EncodeScalar(const unsigned char* cells, std::size_t blocks, unsigned char* out) {
    unsigned char* o = out;
    for (; blocks > 0; --blocks, cells += kKeySize * kCellBytes) {
        // Each cell is written whether stored or not, and only a stored one
        // advances.
        unsigned char* values = o + kKeySize;
        unsigned k = 0;
        for (int i = 0; i < kKeySize; ++i) {
            const std::uint64_t bits = LoadU64(cells + i * kCellBytes);
            const unsigned code = EncodeBits(bits);
            o[i] = static_cast<unsigned char>(code);
            StoreU64(values + k * kCellBytes, bits);
            k += code == kCodeStored;
        }
        o += kKeySize + k * kCellBytes;
    }
    return static_cast<std::size_t>(o - out);
}

std::size_t WalkScalar(const unsigned char*& p, const unsigned char* last, unsigned char* out, std::size_t blocks,
                       unsigned& length) {
    const unsigned char* q = p;
    std::size_t n = 0;
    for (; n < blocks && q <= last; ++n) {
        const std::uint64_t word = LoadU64(q);
        if (!WholeBlock(word)) break;
        if (out) {
            DecodeBlock(q, q + kKeySize, out);
            out += kKeySize * kCellBytes;
        }
        length = kKeySize + StoredCount(word) * kCellBytes;
        q += length;
    }
    p = q;
    return n;
}

constexpr Kernel kScalar{"scalar", EncodeScalar, WalkScalar};

#if MURV_X86_KERNELS

// For each mask of eight flags, a word with the bytes of the set flags all
// ones.
constexpr std::array<std::uint64_t, 256> MakeByteMasks() {
    std::array<std::uint64_t, 256> t{};
    for (unsigned m = 0; m < 256; ++m)
        for (unsigned i = 0; i < 8; ++i)
            if (m & (1u << i)) t[m] |= std::uint64_t{0xFF} << (8 * i);
    return t;
}
constexpr std::array<std::uint64_t, 256> kByteMasks = MakeByteMasks();

// The eight commands of a block from the flags of its cells (bit i for cell
// i) and the codes of the small integers (byte i for cell i): the small
// integer's code, or 253, 254 blanks, 255 system-missing.
inline std::uint64_t Commands(std::uint64_t smallCodes, unsigned small, unsigned sysmis, unsigned blanks) {
    const std::uint64_t other =
        Repeated(kCodeStored) + (kByteMasks[sysmis] & Repeated(2)) + (kByteMasks[blanks] & Repeated(1));
    const std::uint64_t keep = kByteMasks[small];
    return (smallCodes & keep) | (other & ~keep);
}

// ---- SSE2: every 64-bit x86 processor ----
// The commands are found two cells at a time; stored cells are moved
// together in pairs. Decoding keeps the scalar loop, which SSE2 does not
// beat; skipping looks at many blocks at once.

// Bit i set when 64-bit lane i of a equals that of b.
inline unsigned Equal64(__m128i a, __m128i b) {
    const __m128i e = _mm_cmpeq_epi32(a, b);
    return static_cast<unsigned>(_mm_movemask_pd(_mm_castsi128_pd(_mm_and_si128(e, _mm_shuffle_epi32(e, 0xB1)))));
}

std::size_t EncodeSse2(const unsigned char* cells, std::size_t blocks, unsigned char* out) {
    const __m128i sysmis = _mm_set1_epi64x(static_cast<long long>(kSysmisBits));
    const __m128i blank = _mm_set1_epi64x(static_cast<long long>(kBlankCell));
    const __m128i bias = _mm_set1_epi32(kCompressionBias), zero = _mm_setzero_si128(), top = _mm_set1_epi32(252);
    unsigned char* o = out;
    for (; blocks > 0; --blocks, cells += kKeySize * kCellBytes) {
        __m128i v[4], k[4];
        unsigned small = 0, sys = 0, blk = 0;
        for (int j = 0; j < 4; ++j) {
            v[j] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(cells + 16 * j));
            // A small integer converts to an int32 and back to the same bits
            // and lies in -99..151.
            const __m128i i32 = _mm_cvttpd_epi32(_mm_castsi128_pd(v[j]));
            const unsigned exact = Equal64(_mm_castpd_si128(_mm_cvtepi32_pd(i32)), v[j]);
            k[j] = _mm_add_epi32(i32, bias);
            const unsigned inRange = static_cast<unsigned>(
                _mm_movemask_ps(_mm_castsi128_ps(_mm_and_si128(_mm_cmpgt_epi32(k[j], zero), _mm_cmpgt_epi32(top, k[j])))));
            small |= (exact & inRange & 3u) << (2 * j);
            sys |= Equal64(v[j], sysmis) << (2 * j);
            blk |= Equal64(v[j], blank) << (2 * j);
        }
        const __m128i k16 = _mm_packs_epi32(_mm_unpacklo_epi64(k[0], k[1]), _mm_unpacklo_epi64(k[2], k[3]));
        const auto codes = static_cast<std::uint64_t>(_mm_cvtsi128_si64(_mm_packus_epi16(k16, k16)));
        StoreU64(o, Commands(codes, small, sys, blk));
        const unsigned stored = ~(small | sys | blk) & 0xFFu;
        unsigned char* values = o + kKeySize;
        for (int j = 0; j < 4; ++j) {
            // A pair with only its second cell stored moves that cell first.
            const unsigned s = (stored >> (2 * j)) & 3u;
            const __m128i second = _mm_set1_epi32(-static_cast<int>(s == 2));
            const __m128i pair = _mm_or_si128(_mm_and_si128(second, _mm_unpackhi_epi64(v[j], v[j])),
                                              _mm_andnot_si128(second, v[j]));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(values), pair);
            values += ((s & 1u) + (s >> 1)) * kCellBytes;
        }
        o = values;
    }
    return static_cast<std::size_t>(o - out);
}

// Skipping: a block's length in words of eight bytes is one plus its stored
// commands, and every block starts on a word. So the length a block would
// have is worked out for every word of a window at once (whether a block
// starts there or not: a stored cell gives a length nobody uses), and the
// blocks are then followed through those lengths, a load and an add each,
// instead of a compare and a count each. A word that would start a block
// that is not whole gets 0, which stops the following.
constexpr std::size_t kSkipWindow = 64;  // words

// Follows the blocks from word 0 of a window of `words` lengths: returns the
// word behind the last block followed; n counts them, up to `blocks`.
inline std::size_t Follow(const std::uint64_t* steps, std::size_t words, std::size_t& n, std::size_t blocks,
                          unsigned& length) {
    std::size_t w = 0;
    while (w < words && n < blocks) {
        const std::uint64_t step = steps[w];
        if (step == 0) break;
        length = static_cast<unsigned>(step) * kCellBytes;
        w += step;
        ++n;
    }
    return w;
}

// The number of words a window at q may have: those where a block may start
// (at or before last), at most kSkipWindow.
inline std::size_t WindowWords(const unsigned char* q, const unsigned char* last) {
    const auto words = static_cast<std::size_t>(last - q) / kCellBytes + 1;
    return words < kSkipWindow ? words : kSkipWindow;
}

std::size_t SkipSse2(const unsigned char*& p, const unsigned char* last, std::size_t blocks, unsigned& length) {
    const __m128i stored253 = _mm_set1_epi8(static_cast<char>(kCodeStored));
    const __m128i end252 = _mm_set1_epi8(static_cast<char>(kCodeEndOfBlock));
    const __m128i zero = _mm_setzero_si128(), ones = _mm_set1_epi8(1), one64 = _mm_set_epi32(0, 1, 0, 1);
    alignas(16) std::uint64_t steps[kSkipWindow];
    const unsigned char* q = p;
    std::size_t n = 0;
    while (n < blocks && q <= last) {
        const std::size_t words = WindowWords(q, last);
        // (Two words at a time; the last pair may read one word beyond the
        // window, which still lies within kMaxBlockBytes of last.)
        for (std::size_t w = 0; w < words; w += 2) {
            const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(q + w * kCellBytes));
            const __m128i count = _mm_sad_epu8(_mm_and_si128(_mm_cmpeq_epi8(v, stored253), ones), zero);
            const __m128i bad = _mm_or_si128(_mm_cmpeq_epi8(v, zero), _mm_cmpeq_epi8(v, end252));
            // (Each 64-bit sum is below 9, so a 32-bit compare with zero
            // decides it; the upper half of the step is zero either way.)
            const __m128i whole = _mm_cmpeq_epi32(_mm_sad_epu8(_mm_and_si128(bad, ones), zero), zero);
            _mm_store_si128(reinterpret_cast<__m128i*>(steps + w), _mm_and_si128(whole, _mm_add_epi64(count, one64)));
        }
        const std::size_t w = Follow(steps, words, n, blocks, length);
        q += w * kCellBytes;
        if (w < words) break;
    }
    p = q;
    return n;
}

std::size_t WalkSse2(const unsigned char*& p, const unsigned char* last, unsigned char* out, std::size_t blocks,
                     unsigned& length) {
    return out ? WalkScalar(p, last, out, blocks, length) : SkipSse2(p, last, blocks, length);
}

constexpr Kernel kSse2{"sse2", EncodeSse2, WalkSse2};

// ---- SSE4.1 (with SSSE3 and POPCNT) ----
// Coding as with SSE2, with a 64-bit compare and a population count;
// decoding two cells at a time: the values of the commands converted, then
// system-missing, blanks and stored cells blended in.

#define MURV_SSE41 __attribute__((target("sse4.1,ssse3,popcnt")))

MURV_SSE41 inline unsigned Equal64Sse41(__m128i a, __m128i b) {
    return static_cast<unsigned>(_mm_movemask_pd(_mm_castsi128_pd(_mm_cmpeq_epi64(a, b))));
}

MURV_SSE41 std::size_t EncodeSse41(const unsigned char* cells, std::size_t blocks, unsigned char* out) {
    const __m128i sysmis = _mm_set1_epi64x(static_cast<long long>(kSysmisBits));
    const __m128i blank = _mm_set1_epi64x(static_cast<long long>(kBlankCell));
    const __m128i bias = _mm_set1_epi32(kCompressionBias), zero = _mm_setzero_si128(), top = _mm_set1_epi32(252);
    unsigned char* o = out;
    for (; blocks > 0; --blocks, cells += kKeySize * kCellBytes) {
        __m128i v[4], k[4];
        unsigned small = 0, sys = 0, blk = 0;
        for (int j = 0; j < 4; ++j) {
            v[j] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(cells + 16 * j));
            const __m128i i32 = _mm_cvttpd_epi32(_mm_castsi128_pd(v[j]));
            const unsigned exact = Equal64Sse41(_mm_castpd_si128(_mm_cvtepi32_pd(i32)), v[j]);
            k[j] = _mm_add_epi32(i32, bias);
            const unsigned inRange = static_cast<unsigned>(
                _mm_movemask_ps(_mm_castsi128_ps(_mm_and_si128(_mm_cmpgt_epi32(k[j], zero), _mm_cmpgt_epi32(top, k[j])))));
            small |= (exact & inRange & 3u) << (2 * j);
            sys |= Equal64Sse41(v[j], sysmis) << (2 * j);
            blk |= Equal64Sse41(v[j], blank) << (2 * j);
        }
        const __m128i k16 = _mm_packs_epi32(_mm_unpacklo_epi64(k[0], k[1]), _mm_unpacklo_epi64(k[2], k[3]));
        const auto codes = static_cast<std::uint64_t>(_mm_cvtsi128_si64(_mm_packus_epi16(k16, k16)));
        StoreU64(o, Commands(codes, small, sys, blk));
        const unsigned stored = ~(small | sys | blk) & 0xFFu;
        unsigned char* values = o + kKeySize;
        for (int j = 0; j < 4; ++j) {
            const unsigned s = (stored >> (2 * j)) & 3u;
            const __m128i pair = s == 2 ? _mm_unpackhi_epi64(v[j], v[j]) : v[j];
            _mm_storeu_si128(reinterpret_cast<__m128i*>(values), pair);
            values += static_cast<unsigned>(_mm_popcnt_u32(s)) * kCellBytes;
        }
        o = values;
    }
    return static_cast<std::size_t>(o - out);
}

MURV_SSE41 std::size_t WalkSse41(const unsigned char*& p, const unsigned char* last, unsigned char* out,
                                 std::size_t blocks, unsigned& length) {
    if (!out) return SkipSse2(p, last, blocks, length);
    const __m128i stored253 = _mm_set1_epi8(static_cast<char>(kCodeStored));
    const __m128i end252 = _mm_set1_epi8(static_cast<char>(kCodeEndOfBlock));
    const __m128i sys255 = _mm_set1_epi8(static_cast<char>(kCodeSysmis));
    const __m128i blank254 = _mm_set1_epi8(static_cast<char>(kCodeBlanks));
    const __m128i zero = _mm_setzero_si128();
    const __m128i bias = _mm_set1_epi32(kCompressionBias);
    const __m128d sysmis = _mm_castsi128_pd(_mm_set1_epi64x(static_cast<long long>(kSysmisBits)));
    const __m128d blank = _mm_castsi128_pd(_mm_set1_epi64x(static_cast<long long>(kBlankCell)));
    const unsigned char* q = p;
    std::size_t n = 0;
    for (; n < blocks && q <= last; ++n) {
        __m128i codes = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(q));
        __m128i isStored = _mm_cmpeq_epi8(codes, stored253);
        const auto bad = static_cast<unsigned>(
            _mm_movemask_epi8(_mm_or_si128(_mm_cmpeq_epi8(codes, zero), _mm_cmpeq_epi8(codes, end252))));
        if (bad & 0xFFu) break;
        const auto stored = static_cast<unsigned>(_mm_movemask_epi8(isStored)) & 0xFFu;
        __m128i isSys = _mm_cmpeq_epi8(codes, sys255), isBlank = _mm_cmpeq_epi8(codes, blank254);
        const unsigned char* from = q + kKeySize;
        for (int j = 0; j < 4; ++j) {
            // (Each pair's commands and flags are moved to the bottom in turn.)
            __m128d v = _mm_cvtepi32_pd(_mm_sub_epi32(_mm_cvtepu8_epi32(codes), bias));
            v = _mm_blendv_pd(v, sysmis, _mm_castsi128_pd(_mm_cvtepi8_epi64(isSys)));
            v = _mm_blendv_pd(v, blank, _mm_castsi128_pd(_mm_cvtepi8_epi64(isBlank)));
            const unsigned s = (stored >> (2 * j)) & 3u;
            const __m128i src = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
            const __m128i spread = s == 2 ? _mm_unpacklo_epi64(src, src) : src;
            v = _mm_blendv_pd(v, _mm_castsi128_pd(spread), _mm_castsi128_pd(_mm_cvtepi8_epi64(isStored)));
            _mm_storeu_pd(reinterpret_cast<double*>(out + 16 * j), v);
            from += static_cast<unsigned>(_mm_popcnt_u32(s)) * kCellBytes;
            codes = _mm_srli_si128(codes, 2);
            isStored = _mm_srli_si128(isStored, 2);
            isSys = _mm_srli_si128(isSys, 2);
            isBlank = _mm_srli_si128(isBlank, 2);
        }
        out += kKeySize * kCellBytes;
        length = kKeySize + static_cast<unsigned>(_mm_popcnt_u32(stored)) * kCellBytes;
        q += length;
    }
    p = q;
    return n;
}

#undef MURV_SSE41

constexpr Kernel kSse41{"sse41", EncodeSse41, WalkSse41};

// ---- AVX2 (with POPCNT and BMI2) ----
// Four cells per vector; stored cells are gathered (coding) and spread
// (decoding) by a permutation chosen by the four cells' stored flags.

#define MURV_AVX2 __attribute__((target("avx2,popcnt,bmi2")))

// For each mask of four flags, the 32-bit lane indices that move the cells
// of the set flags to the front, in order (gather), or the cells at the
// front to the places of the set flags (spread).
struct Permutations {
    alignas(32) std::uint32_t gather[16][8];
    alignas(32) std::uint32_t spread[16][8];
};
constexpr Permutations MakePermutations() {
    Permutations t{};
    for (unsigned m = 0; m < 16; ++m) {
        unsigned r = 0;
        for (unsigned i = 0; i < 4; ++i) {
            if (!(m & (1u << i))) continue;
            t.gather[m][2 * r] = 2 * i;
            t.gather[m][2 * r + 1] = 2 * i + 1;
            t.spread[m][2 * i] = 2 * r;
            t.spread[m][2 * i + 1] = 2 * r + 1;
            ++r;
        }
    }
    return t;
}
constexpr Permutations kPermutations = MakePermutations();

MURV_AVX2 inline __m256i Permutation(const std::uint32_t (&table)[16][8], unsigned m) {
    return _mm256_load_si256(reinterpret_cast<const __m256i*>(table[m]));
}

MURV_AVX2 std::size_t EncodeAvx2(const unsigned char* cells, std::size_t blocks, unsigned char* out) {
    const __m256i sysmis = _mm256_set1_epi64x(static_cast<long long>(kSysmisBits));
    const __m256i blank = _mm256_set1_epi64x(static_cast<long long>(kBlankCell));
    const __m128i bias = _mm_set1_epi32(kCompressionBias), zero = _mm_setzero_si128(), top = _mm_set1_epi32(252);
    unsigned char* o = out;
    for (; blocks > 0; --blocks, cells += kKeySize * kCellBytes) {
        __m256i v[2];
        __m128i k[2];
        unsigned small = 0, sys = 0, blk = 0;
        for (int j = 0; j < 2; ++j) {
            v[j] = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(cells + 32 * j));
            const __m128i i32 = _mm256_cvttpd_epi32(_mm256_castsi256_pd(v[j]));
            const __m256i back = _mm256_castpd_si256(_mm256_cvtepi32_pd(i32));
            const auto exact = static_cast<unsigned>(_mm256_movemask_pd(_mm256_castsi256_pd(_mm256_cmpeq_epi64(back, v[j]))));
            k[j] = _mm_add_epi32(i32, bias);
            const auto inRange = static_cast<unsigned>(
                _mm_movemask_ps(_mm_castsi128_ps(_mm_and_si128(_mm_cmpgt_epi32(k[j], zero), _mm_cmpgt_epi32(top, k[j])))));
            small |= (exact & inRange) << (4 * j);
            sys |= static_cast<unsigned>(_mm256_movemask_pd(_mm256_castsi256_pd(_mm256_cmpeq_epi64(v[j], sysmis)))) << (4 * j);
            blk |= static_cast<unsigned>(_mm256_movemask_pd(_mm256_castsi256_pd(_mm256_cmpeq_epi64(v[j], blank)))) << (4 * j);
        }
        const __m128i k16 = _mm_packs_epi32(k[0], k[1]);
        const auto codes = static_cast<std::uint64_t>(_mm_cvtsi128_si64(_mm_packus_epi16(k16, k16)));
        StoreU64(o, Commands(codes, small, sys, blk));
        const unsigned stored = ~(small | sys | blk) & 0xFFu;
        unsigned char* values = o + kKeySize;
        for (int j = 0; j < 2; ++j) {
            const unsigned s = (stored >> (4 * j)) & 15u;
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(values),
                                _mm256_permutevar8x32_epi32(v[j], Permutation(kPermutations.gather, s)));
            values += static_cast<unsigned>(_mm_popcnt_u32(s)) * kCellBytes;
        }
        o = values;
    }
    return static_cast<std::size_t>(o - out);
}

MURV_AVX2 std::size_t SkipAvx2(const unsigned char*& p, const unsigned char* last, std::size_t blocks,
                               unsigned& length) {
    const __m256i stored253 = _mm256_set1_epi8(static_cast<char>(kCodeStored));
    const __m256i end252 = _mm256_set1_epi8(static_cast<char>(kCodeEndOfBlock));
    const __m256i zero = _mm256_setzero_si256(), ones = _mm256_set1_epi8(1), one64 = _mm256_set1_epi64x(1);
    alignas(32) std::uint64_t steps[kSkipWindow];
    const unsigned char* q = p;
    std::size_t n = 0;
    while (n < blocks && q <= last) {
        const std::size_t words = WindowWords(q, last);
        // (Four words at a time; the last four may read three words beyond
        // the window, which still lie within kMaxBlockBytes of last.)
        for (std::size_t w = 0; w < words; w += 4) {
            const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(q + w * kCellBytes));
            const __m256i count = _mm256_sad_epu8(_mm256_and_si256(_mm256_cmpeq_epi8(v, stored253), ones), zero);
            const __m256i bad = _mm256_or_si256(_mm256_cmpeq_epi8(v, zero), _mm256_cmpeq_epi8(v, end252));
            const __m256i whole = _mm256_cmpeq_epi64(_mm256_sad_epu8(_mm256_and_si256(bad, ones), zero), zero);
            _mm256_store_si256(reinterpret_cast<__m256i*>(steps + w),
                               _mm256_and_si256(whole, _mm256_add_epi64(count, one64)));
        }
        const std::size_t w = Follow(steps, words, n, blocks, length);
        q += w * kCellBytes;
        if (w < words) break;
    }
    p = q;
    return n;
}

MURV_AVX2 std::size_t WalkAvx2(const unsigned char*& p, const unsigned char* last, unsigned char* out,
                               std::size_t blocks, unsigned& length) {
    if (!out) return SkipAvx2(p, last, blocks, length);
    const __m128i stored253 = _mm_set1_epi8(static_cast<char>(kCodeStored));
    const __m128i end252 = _mm_set1_epi8(static_cast<char>(kCodeEndOfBlock));
    const __m128i sys255 = _mm_set1_epi8(static_cast<char>(kCodeSysmis));
    const __m128i blank254 = _mm_set1_epi8(static_cast<char>(kCodeBlanks));
    const __m128i zero = _mm_setzero_si128();
    const __m256i bias = _mm256_set1_epi32(kCompressionBias);
    const __m256d sysmis = _mm256_castsi256_pd(_mm256_set1_epi64x(static_cast<long long>(kSysmisBits)));
    const __m256d blank = _mm256_castsi256_pd(_mm256_set1_epi64x(static_cast<long long>(kBlankCell)));
    const unsigned char* q = p;
    std::size_t n = 0;
    for (; n < blocks && q <= last; ++n) {
        const __m128i codes = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(q));
        // (The upper eight bytes of codes are zero: only the low mask bits count.)
        const __m128i isStored = _mm_cmpeq_epi8(codes, stored253);
        const auto bad = static_cast<unsigned>(
            _mm_movemask_epi8(_mm_or_si128(_mm_cmpeq_epi8(codes, zero), _mm_cmpeq_epi8(codes, end252))));
        if (bad & 0xFFu) break;
        const auto stored = static_cast<unsigned>(_mm_movemask_epi8(isStored)) & 0xFFu;
        if (out) {
            const __m256i k = _mm256_sub_epi32(_mm256_cvtepu8_epi32(codes), bias);
            const __m128i isSys = _mm_cmpeq_epi8(codes, sys255), isBlank = _mm_cmpeq_epi8(codes, blank254);
            const unsigned char* from = q + kKeySize;
            for (int j = 0; j < 2; ++j) {
                const __m128i half = j == 0 ? _mm256_castsi256_si128(k) : _mm256_extracti128_si256(k, 1);
                __m256d v = _mm256_cvtepi32_pd(half);
                const int shift = 4 * j;
                const __m128i sysj = j == 0 ? isSys : _mm_srli_si128(isSys, 4);
                const __m128i blankj = j == 0 ? isBlank : _mm_srli_si128(isBlank, 4);
                const __m128i storedj = j == 0 ? isStored : _mm_srli_si128(isStored, 4);
                v = _mm256_blendv_pd(v, sysmis, _mm256_castsi256_pd(_mm256_cvtepi8_epi64(sysj)));
                v = _mm256_blendv_pd(v, blank, _mm256_castsi256_pd(_mm256_cvtepi8_epi64(blankj)));
                const unsigned s = (stored >> shift) & 15u;
                const __m256i spread = _mm256_permutevar8x32_epi32(
                    _mm256_loadu_si256(reinterpret_cast<const __m256i*>(from)), Permutation(kPermutations.spread, s));
                v = _mm256_blendv_pd(v, _mm256_castsi256_pd(spread), _mm256_castsi256_pd(_mm256_cvtepi8_epi64(storedj)));
                _mm256_storeu_pd(reinterpret_cast<double*>(out + 32 * j), v);
                from += static_cast<unsigned>(_mm_popcnt_u32(s)) * kCellBytes;
            }
            out += kKeySize * kCellBytes;
        }
        length = kKeySize + static_cast<unsigned>(_mm_popcnt_u32(stored)) * kCellBytes;
        q += length;
    }
    p = q;
    return n;
}

#undef MURV_AVX2

constexpr Kernel kAvx2{"avx2", EncodeAvx2, WalkAvx2};

#endif  // MURV_X86_KERNELS

// Every kernel of the build, in the order of preference (the last one the
// processor runs is used).
constexpr const Kernel* kKernels[] = {
    &kScalar,
#if MURV_X86_KERNELS
    &kSse2,
    &kSse41,
    &kAvx2,
#endif
};

bool Runs(const Kernel* k) {
#if MURV_X86_KERNELS
    if (k == &kSse41) return port::Cpu().sse41;
    if (k == &kAvx2) return port::Cpu().avx2;
#endif
    return k != nullptr;
}

const Kernel* Best() {
    const Kernel* best = &kScalar;
    for (const Kernel* k : kKernels)
        if (Runs(k)) best = k;
    return best;
}

// Chosen on first use; changed only by Select.
std::atomic<const Kernel*> gActive{nullptr};

}  // namespace

const Kernel& Active() {
    const Kernel* k = gActive.load(std::memory_order_relaxed);
    if (!k) {
        k = Best();
        gActive.store(k, std::memory_order_relaxed);
    }
    return *k;
}

std::vector<const Kernel*> Supported() {
    std::vector<const Kernel*> out;
    for (const Kernel* k : kKernels)
        if (Runs(k)) out.push_back(k);
    return out;
}

bool Select(const char* name) {
    for (const Kernel* k : kKernels) {
        if (Runs(k) && name && std::strcmp(k->name, name) == 0) {
            gActive.store(k, std::memory_order_relaxed);
            return true;
        }
    }
    return false;
}

}  // namespace murv::codec
