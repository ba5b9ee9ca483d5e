// The case compression codec, with each kernel the processor runs. The
// first input byte chooses a mode:
//  even: the rest describes cases (a cell count, then cells as codable
//        numbers, system-missing, blanks or raw bytes); they are compressed
//        (to the same bytes by every kernel), read back in order and out of
//        order, and must come back unchanged;
//  odd:  the rest is taken as compressed data and decoded as far as it goes,
//        to the same cases and the same end by every kernel; malformed data
//        must end in an exception, never a crash or a loop.
#include <cstdint>
#include <cstring>
#include <exception>
#include <vector>

#include "fuzz_support.h"
#include "model/constants.h"
#include "sysfile/codec_kernels.h"
#include "sysfile/compression.h"
#include "sysfile/filestream.h"
#include "sysfile/sparseindex.h"

namespace {

using murv::CompressedSystemFile;
using murv::MURV_FileStream;
using murv::SparseFileIndex;
using murv::fuzz::Fail;
using murv::fuzz::Input;

constexpr int kMaxCases = 4096;

// Compresses the cases the input describes to the file at path and reads
// them back; written holds the file another kernel made, or nothing.
void RoundTrip(Input in, const char* path, std::vector<unsigned char>* written) {
    const int cells = 1 + in.Byte() % 24;
    const std::size_t caseBytes = static_cast<std::size_t>(cells) * 8;
    std::vector<std::vector<unsigned char>> cases;
    while (!in.Empty() && cases.size() < kMaxCases) {
        std::vector<unsigned char> row(caseBytes);
        for (int i = 0; i < cells; ++i) {
            unsigned char* cell = row.data() + 8 * i;
            const std::uint8_t pick = in.Byte();
            if (pick < 180) {
                // Around the codable range -99..151, halves above it, system-missing.
                const double d = pick < 120   ? static_cast<double>(pick) - 105.0
                                 : pick < 160 ? static_cast<double>(pick) + 0.5 * (pick & 1)
                                              : murv::SysmisValue();
                std::memcpy(cell, &d, 8);
            } else if (pick < 200) {
                std::memset(cell, ' ', 8);
            } else {
                for (int k = 0; k < 8; ++k) cell[k] = in.Byte();
            }
        }
        cases.push_back(std::move(row));
    }

    {
        MURV_FileStream out(path, "wb");
        SparseFileIndex index;
        CompressedSystemFile writer(cells, &out, &index, 0);
        for (const auto& row : cases) writer.WriteCase(row.data());
        writer.Flush();
    }
    std::vector<unsigned char> bytes;
    {
        MURV_FileStream s(path, "rb");
        unsigned char chunk[4096];
        while (const unsigned n = s.Read(chunk, sizeof chunk)) bytes.insert(bytes.end(), chunk, chunk + n);
    }
    if (!written->empty() && bytes != *written) Fail("kernels compress the same cases differently");
    *written = bytes;

    MURV_FileStream s(path, "rb");
    SparseFileIndex index;
    CompressedSystemFile reader(cells, &s, &index, 0);
    std::vector<unsigned char> got(caseBytes);
    for (std::size_t k = 0; k < cases.size(); ++k) {
        if (reader.ReadCase(got.data(), nullptr) != cells) Fail("a case written was not read back");
        if (got != cases[k]) Fail("a case read back differs from the case written");
    }
    if (reader.ReadCase(got.data(), nullptr) != 0) Fail("more cases read than written");

    // Out of order through the index, then past the end.
    const std::size_t n = cases.size();
    if (n == 0) return;
    for (const std::size_t t : {n - 1, std::size_t{0}, n / 2, n / 3, n - 1, n / 2 + 1}) {
        if (t >= n) continue;
        reader.SetTarget(t);
        if (reader.ReadCase(got.data(), nullptr) != cells || got != cases[t]) Fail("a case found by seeking differs");
    }
    reader.SetTarget(n + 5);
    if (reader.ReadCase(got.data(), nullptr) != 0) Fail("a case read beyond the end");
}

// Decodes the file at path as far as it goes; returns the cells read, then
// a byte telling how the reading ended.
std::vector<unsigned char> Decode(int cells, const char* path) {
    std::vector<unsigned char> swap(static_cast<std::size_t>(cells), 1);
    std::vector<unsigned char> got(static_cast<std::size_t>(cells) * 8 + 8);
    std::vector<unsigned char> all;
    unsigned char end = 0;
    try {
        MURV_FileStream s(path, "rb");
        SparseFileIndex index;
        CompressedSystemFile reader(cells, &s, &index, 0);
        int read = 0;  // every other case with its cells swapped
        while (read < kMaxCases && reader.ReadCase(got.data(), (read & 1) ? swap.data() : nullptr) != 0) {
            all.insert(all.end(), got.begin(), got.end() - 8);
            ++read;
        }
        end = 1;
        reader.SetTarget(static_cast<std::uint64_t>(read / 2));
        if (reader.ReadCase(got.data(), nullptr)) all.insert(all.end(), got.begin(), got.end() - 8);
        end = 2;
        reader.SetTarget(static_cast<std::uint64_t>(read) + 3);
        reader.ReadCase(got.data(), nullptr);
        end = 3;
    } catch (const std::exception&) {
        // Malformed data is reported by exception.
    }
    all.push_back(end);
    return all;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static murv::fuzz::MemoryFile file("murvio-fuzz-codec");
    static const std::vector<const murv::codec::Kernel*> kernels = murv::codec::Supported();
    Input in(data, size);
    std::vector<unsigned char> first;
    if (in.Byte() & 1) {
        const int cells = in.Byte() % 33;  // 0 included: it must not loop
        file.Fill(data + 2, size > 2 ? size - 2 : 0);
        for (const murv::codec::Kernel* k : kernels) {
            murv::codec::Select(k->name);
            std::vector<unsigned char> decoded = Decode(cells, file.Path());
            if (k != kernels.front() && decoded != first) Fail("kernels decode the same data differently");
            first = std::move(decoded);
        }
    } else {
        for (const murv::codec::Kernel* k : kernels) {
            murv::codec::Select(k->name);
            file.Fill(nullptr, 0);
            RoundTrip(in, file.Path(), &first);
        }
    }
    return 0;
}
