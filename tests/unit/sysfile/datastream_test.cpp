// Case data on disk: the buffered file stream, the compression codec that
// writes and reads cases through it, and the sparse index of case positions.
#include "sysfile/codec_kernels.h"
#include "sysfile/compression.h"
#include "sysfile/filestream.h"
#include "sysfile/sparseindex.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "model/constants.h"
#include "port/errors.h"
#include "support/byte_builder.h"
#include "support/case_files.h"
#include "support/temp_dir.h"
#include "sysfile/byteorder.h"

namespace murv {
namespace {

std::vector<unsigned char> Cells(const std::vector<double>& values) {
    std::vector<unsigned char> out(values.size() * 8);
    std::size_t i = 0;
    for (double v : values) std::memcpy(out.data() + 8 * i++, &v, 8);
    return out;
}

struct DataFile : ::testing::Test {
    testing::TempDir dir;
    std::string path = dir.File("f");
    SparseFileIndex index;

    // Writes the cases, each of the given cells, compressed; returns the file's bytes.
    std::vector<unsigned char> Written(const std::vector<std::vector<double>>& cases) {
        {
            MURV_FileStream s(path.c_str(), "wb");
            CompressedSystemFile c(static_cast<int>(cases[0].size()), &s, &index, 0);
            for (const auto& values : cases) c.WriteCase(Cells(values).data());
        }  // destruction flushes
        const std::string bytes = testing::FileBytes(path);
        return {bytes.begin(), bytes.end()};
    }
};

std::string Pattern(std::size_t n, unsigned seed = 1) {
    std::string v(n, '\0');
    std::mt19937 gen(seed);
    for (auto& b : v) b = static_cast<char>(gen());
    return v;
}

TEST_F(DataFile, StreamOpenFailures) {
    MURV_FileStream s;
    EXPECT_FALSE(s.Open(dir.File("missing").c_str(), "rb"));
    EXPECT_EQ(s.Read(nullptr, 10), 0u) << "no file open: nothing read";
    EXPECT_EQ(s.Seek(0, 0), -1);
    EXPECT_FALSE(s.Flush());
    EXPECT_FALSE(s.Open(dir.Path().c_str(), "rb")) << "a directory is no file";
    EXPECT_FALSE(s.Open(dir.File("missing").c_str(), "r+b"));
    ASSERT_TRUE(s.Open(dir.File("new").c_str(), "wbx"));
    EXPECT_FALSE(s.Open(dir.File("new").c_str(), "wbx")) << "x: the file must not exist yet";
    try {
        MURV_FileStream t(dir.File("missing").c_str(), "rb");
        FAIL() << "opening a missing file must throw";
    } catch (const ErrorText& e) {
        EXPECT_EQ(e.Number(), kErrStreamOpen);
        EXPECT_EQ(std::string(e.what()).rfind("Datasource error # 1000 involving " + dir.File("missing"), 0), 0u);
    }
    testing::ByteBuilder().Text(Pattern(10)).Save(dir.File("ro"));
    MURV_FileStream ro(dir.File("ro").c_str(), "rb");
    const auto bytes = Pattern(5000);
    try {
        ro.Write(bytes.data(), 5000);
        FAIL() << "a write to a read-only descriptor must throw";
    } catch (const ErrorText& e) {
        EXPECT_EQ(e.Number(), kErrStreamWrite);
    }
}

TEST_F(DataFile, StreamReadsEveryRangeAndTheEndOfAFileExactly) {
    const auto bytes = Pattern(3 * 4096 + 4);
    testing::ByteBuilder().Text(bytes).Save(path);
    MURV_FileStream s(path.c_str(), "rb");
    // Offsets and sizes around the buffer and alignment boundaries, in both
    // the buffered and the direct paths.
    for (std::int64_t off : {0, 1, 511, 512, 4095, 4096, 4097, 5000, 8191, 12000}) {
        for (unsigned len : {1, 8, 511, 512, 4095, 4096, 4097, 9000}) {
            ASSERT_EQ(s.Seek(off, 0), 0);
            std::string got(len, '\0');
            const unsigned n = s.Read(got.data(), len);
            const std::size_t expect = std::min<std::size_t>(len, bytes.size() - static_cast<std::size_t>(off));
            ASSERT_EQ(n, expect) << off << '+' << len;
            ASSERT_TRUE(std::equal(got.begin(), got.begin() + n, bytes.begin() + off)) << off << '+' << len;
            EXPECT_EQ(s.Tell(), off + static_cast<std::int64_t>(n));
        }
    }
    unsigned char buf[16];
    ASSERT_EQ(s.Seek(13000, 0), 0);
    EXPECT_EQ(s.Read(buf, 10), 0u) << "past the end";
    ASSERT_EQ(s.Seek(-4, 2), 0);
    EXPECT_EQ(s.Tell(), 3 * 4096);
    EXPECT_EQ(s.Read(buf, 16), 4u);
    ASSERT_EQ(s.Seek(-8, 1), 0);
    EXPECT_EQ(s.Tell(), 3 * 4096 - 4);
    ASSERT_EQ(s.Seek(-1, 0), 0);
    EXPECT_THROW(s.Read(buf, 1), ErrorText) << "a position before the start fails at the read";
}

TEST_F(DataFile, StreamMixedWritesPatchesAndLargeBlocksLandOnDisk) {
    std::string model;
    std::mt19937 gen(7);
    {
        MURV_FileStream s(path.c_str(), "wb+");
        std::int64_t pos = 0;
        for (int i = 0; i < 400; ++i) {
            const unsigned len = (i % 13 == 0) ? 4096 + gen() % 9000 : 1 + gen() % 700;
            const auto chunk = Pattern(len, static_cast<unsigned>(i + 1));
            if (i % 7 == 3 && pos > 0) pos = gen() % pos;  // go back and overwrite
            ASSERT_EQ(s.Seek(pos, 0), 0);
            ASSERT_EQ(s.Write(chunk.data(), len), len);
            model.resize(std::max(model.size(), static_cast<std::size_t>(pos) + len));
            model.replace(static_cast<std::size_t>(pos), len, chunk);
            pos += len;
            if (i % 11 == 5) {  // interleave reads through the same stream
                const std::int64_t at = gen() % model.size();
                ASSERT_EQ(s.Seek(at, 0), 0);
                std::string got(200, '\0');
                got.resize(s.Read(got.data(), 200));
                ASSERT_TRUE(got == model.substr(static_cast<std::size_t>(at), 200)) << at;
            }
        }
    }  // destruction flushes
    EXPECT_TRUE(testing::FileBytes(path) == model);
}

TEST_F(DataFile, CopiedStreamReadsIndependently) {
    const auto bytes = Pattern(10000);
    MURV_FileStream writer(path.c_str(), "wb");
    writer.Write(bytes.data(), 1000);
    EXPECT_EQ(std::filesystem::file_size(path), 0u) << "still in the buffer";
    ASSERT_EQ(writer.Seek(0, 2), 0);
    EXPECT_EQ(writer.Tell(), 1000) << "a seek to the end sees the unflushed data";
    MURV_FileStream reader(writer);  // flushes the writer first
    EXPECT_STREQ(reader.Name(), writer.Name());
    EXPECT_EQ(reader.Tell(), 0);
    std::string got(1000, '\0');
    EXPECT_EQ(reader.Read(got.data(), 1000), 1000u);
    EXPECT_TRUE(got == bytes.substr(0, 1000));
    writer.Write(bytes.data() + 1000, 50);
    EXPECT_EQ(writer.Tell(), 1050);
    std::filesystem::remove(path);
    EXPECT_THROW(MURV_FileStream gone(writer), ErrorText) << "a copy of a stream whose file is gone";
}

TEST(CompressionCodes, EncodeCells) {
    // Small integers -99..151 are codes 1..251; everything else is stored
    // raw (-0.0 keeps its sign bit that way), but system-missing.
    const std::pair<double, int> rows[] = {{1.0, 101},    {2.0, 102},        {SysmisValue(), 255}, {3.5, 253},
                                           {-99.0, 1},    {151.0, 251},      {152.0, 253},         {-100.0, 253},
                                           {-0.0, 253},   {0.0, 100},        {-1.0, 99},           {std::nan(""), 253},
                                           {LowestValue(), 253}, {1e-300, 253}};
    for (const auto& [value, code] : rows) EXPECT_EQ(EncodeCell(Cells({value}).data()), code) << value;
    EXPECT_EQ(EncodeCell(reinterpret_cast<const unsigned char*>("        ")), 254);
    EXPECT_EQ(EncodeCell(reinterpret_cast<const unsigned char*>("ab      ")), 253);
    // Every code decodes back to the bytes it was chosen for.
    const auto& table = CompressionTable();
    for (int k = 1; k <= 251; ++k) EXPECT_EQ(table[k], std::bit_cast<std::uint64_t>(double(k - 100)));
}

// The codec tests run once with each kernel this processor has.
struct Codec : DataFile, ::testing::WithParamInterface<std::string> {
    void SetUp() override { ASSERT_TRUE(codec::Select(GetParam().c_str())); }
    void TearDown() override { codec::Select(codec::Supported().back()->name); }
};
std::vector<std::string> KernelNames() {
    std::vector<std::string> names;
    for (const codec::Kernel* k : codec::Supported()) names.push_back(k->name);
    return names;
}
INSTANTIATE_TEST_SUITE_P(Kernels, Codec, ::testing::ValuesIn(KernelNames()),
                         [](const auto& info) { return info.param; });

// Reads cases of a given number of cells from a compressed file.
struct Reader {
    Reader(const std::string& path, int cells)
        : stream(path.c_str(), "rb"), c(cells, &stream, &index, 0), got(8 * static_cast<std::size_t>(cells)) {}
    int Read() { return c.ReadCase(got.data(), nullptr); }
    MURV_FileStream stream;
    SparseFileIndex index;
    CompressedSystemFile c;
    std::vector<unsigned char> got;
};

TEST_P(Codec, CodesAndStoredCellsInBlocks) {
    EXPECT_EQ(Written({{1, 2, 3}}), (std::vector<unsigned char>{101, 102, 103, 0, 0, 0, 0, 0}));
    Reader r(path, 3);
    EXPECT_EQ(r.Read(), 3);
    EXPECT_EQ(r.got, Cells({1, 2, 3}));
    EXPECT_EQ(r.Read(), 0) << "then the end of the data";
    r.c.SetTarget(5);
    EXPECT_EQ(r.Read(), 0) << "a target beyond the end";
    EXPECT_LT(r.c.CurrentCase(), 5u);

    const auto bytes = Written({{1.0, 2.0, SysmisValue(), 3.5, 1e10}});
    ASSERT_EQ(bytes.size(), 8u + 16u);
    EXPECT_EQ(std::vector<unsigned char>(bytes.begin(), bytes.begin() + 8),
              (std::vector<unsigned char>{101, 102, 255, 253, 253, 0, 0, 0}));
    EXPECT_EQ(std::vector<unsigned char>(bytes.begin() + 8, bytes.end()), Cells({3.5, 1e10}));
}

// A seek on a fresh reader skips runs of cases but still leaves an entry
// every spacing-th case behind it, so later seeks decode only a few cases.
TEST_P(Codec, PositioningFillsTheIndexAsItGoes) {
    std::vector<std::vector<double>> cases;
    for (int i = 0; i < 1000; ++i) cases.push_back({double(i % 7), i + 0.5, SysmisValue()});
    Written(cases);
    Reader r(path, 3);
    for (int k : {700, 699, 300, 999, 16, 0}) {
        r.c.SetTarget(static_cast<std::uint64_t>(k));
        ASSERT_EQ(r.Read(), 3) << k;
        EXPECT_EQ(r.got, Cells({double(k % 7), k + 0.5, SysmisValue()})) << k;
        EXPECT_TRUE(k != 700 || r.index.Count() >= 700 / SparseFileIndex::kFirstSpacing) << "entries left behind";
    }
}

TEST_P(Codec, MalformedData) {
    // The data, the cells of a case, the cases read and the error that ends them.
    const struct {
        const char* what;
        std::vector<unsigned char> data;
        int cells, cases;
        long error;
    } rows[] = {
        {"a block cut 4 bytes in", {101, 102, 103, 0}, 1, 1, kErrFileEnds},
        {"a stored cell that is missing", {253, 0, 0, 0, 0, 0, 0, 0, 1, 2, 3}, 1, 1, kErrFileEnds},
        {"a case cut short", {101, 102, 0, 0, 0, 0, 0, 0}, 3, 1, kErrFileEnds},
        {"a trailing 252 after the last case", {101, 102, 252, 0, 0, 0, 0, 0}, 2, 3, 0},
        {"zero cells per case never loop forever", {101, 102, 252, 0, 0, 0, 0, 0}, 0, 3, 0},
    };
    for (const auto& row : rows) {
        testing::ByteBuilder().Raw(row.data.data(), row.data.size()).Save(path);
        Reader r(path, row.cells);
        long error = 0;
        try {
            for (int i = 0; i < row.cases; ++i) r.Read();
        } catch (const SystemFileException& e) {
            error = e.Number();
        }
        EXPECT_EQ(error, row.error) << row.what;
    }
    // The same cut case, met while skipping to a later one.
    testing::ByteBuilder().Bytes({101, 102, 0, 0, 0, 0, 0, 0}).Save(path);
    Reader skip(path, 3);
    skip.c.SetTarget(1);
    try {
        skip.Read();
        ADD_FAILURE() << "a case cut short before the target";
    } catch (const SystemFileException& e) {
        EXPECT_EQ(e.Number(), kErrFileEnds);
    }
    // A 252 ends a block's commands: cells after it in that block are ignored.
    testing::ByteBuilder().Bytes({101, 252, 103, 103, 103, 103, 103, 103, 102, 0, 0, 0, 0, 0, 0, 0}).Save(path);
    Reader r(path, 2);
    ASSERT_EQ(r.Read(), 2);
    EXPECT_EQ(r.got, Cells({1, 2}));
    EXPECT_EQ(r.Read(), 0);
}

// Each kernel against the scalar one, on blocks of every command kind: small
// integers and the values just beyond their range, system-missing, blanks,
// strings, raw bits. Coding gives the same bytes; decoding and skipping stop
// at the same block (a limit of blocks, the end of the buffer, a padding or
// end command) with the same cells; cases that straddle blocks make the same
// file.
TEST_P(Codec, KernelsAgreeWithTheScalarOne) {
    const codec::Kernel& scalar = *codec::Supported().front();
    const codec::Kernel& kernel = codec::Active();
    const double edges[] = {-99,  151,          -100,          152,           0,   -0.0,         1,      0.5,
                            -0.5, 150.999,      LowestValue(), HUGE_VAL,      -HUGE_VAL, std::nan(""), 1e300, 5e-324,
                            -99.0000001,        2147483648.0,  -2147483648.0, 4294967397.0};
    std::mt19937_64 rng(27);
    constexpr std::size_t kBlocks = 3000;
    std::vector<unsigned char> cells(kBlocks * 64);
    for (std::size_t i = 0; i < kBlocks * 8; ++i) {
        unsigned char* cell = cells.data() + 8 * i;
        const std::uint64_t r = rng();
        const unsigned pick = r % 20;
        if (pick < 7)
            StoreF64(cell, static_cast<double>(static_cast<int>((r >> 8) % 251) - 99));
        else if (pick < 9)
            StoreF64(cell, SysmisValue());
        else if (pick < 11)
            std::memset(cell, ' ', 8);
        else if (pick < 14)
            StoreF64(cell, edges[(r >> 8) % std::size(edges)]);
        else if (pick < 17)
            for (int b = 0; b < 8; ++b) cell[b] = static_cast<unsigned char>(' ' + (r >> (8 * b)) % 95);
        else
            StoreU64(cell, r);
    }
    auto encode = [&](const codec::Kernel& k) {
        std::vector<unsigned char> out(kBlocks * codec::kMaxBlockBytes + codec::kMaxBlockBytes);
        out.resize(k.encode(cells.data(), kBlocks, out.data()));
        return out;
    };
    std::vector<unsigned char> coded = encode(scalar);
    ASSERT_EQ(encode(kernel), coded);

    struct Walked {
        std::size_t blocks, used;
        unsigned length;
        std::vector<unsigned char> cells;
        bool operator==(const Walked&) const = default;
    };
    auto walk = [&](const codec::Kernel& k, const std::vector<unsigned char>& data, std::size_t lastAt,
                    std::size_t blocks, bool decode) {
        Walked w{0, 0, 0, std::vector<unsigned char>(decode ? blocks * 64 : 0)};
        const unsigned char* p = data.data();
        w.blocks = k.walk(p, data.data() + lastAt, decode ? w.cells.data() : nullptr, blocks, w.length);
        w.used = static_cast<std::size_t>(p - data.data());
        return w;
    };
    const std::size_t size = coded.size();
    coded.resize(size + codec::kMaxBlockBytes, 0);  // a padding block behind the last
    const Walked all = walk(kernel, coded, size, kBlocks + 1, true);
    EXPECT_EQ(all.blocks, kBlocks);
    EXPECT_EQ(all.used, size);
    EXPECT_TRUE(std::equal(cells.begin(), cells.end(), all.cells.begin())) << "decoded cells differ";
    // Limits and commands that end the run of whole blocks.
    for (int trial = 0; trial < 200; ++trial) {
        std::vector<unsigned char> data = coded;
        if (trial % 2) {
            const Walked skipped = walk(scalar, data, size, rng() % kBlocks, false);
            data[skipped.used + rng() % 8] = (trial % 4 == 1) ? kCodePadding : kCodeEndOfBlock;
        }
        const std::size_t lastAt = rng() % (size + 1), blocks = rng() % (kBlocks + 1);
        for (const bool decode : {true, false})
            ASSERT_TRUE(walk(kernel, data, lastAt, blocks, decode) == walk(scalar, data, lastAt, blocks, decode))
                << "trial " << trial << (decode ? " decoding" : " skipping");
    }
    // Cases of 13 cells, written through the codec and read back.
    constexpr int kCaseCells = 13;
    const std::size_t cases = cells.size() / (8 * kCaseCells);
    auto file = [&](const codec::Kernel& k) {
        codec::Select(k.name);
        {
            MURV_FileStream out(path.c_str(), "wb");
            SparseFileIndex written;
            CompressedSystemFile c(kCaseCells, &out, &written, 0);
            for (std::size_t i = 0; i < cases; ++i) c.WriteCase(cells.data() + i * 8 * kCaseCells);
            c.Flush();
        }
        return testing::FileBytes(path);
    };
    const std::string bytes = file(scalar);
    EXPECT_TRUE(file(kernel) == bytes) << "files differ";
    Reader r(path, kCaseCells);
    for (std::size_t i = 0; i < cases; ++i) {
        ASSERT_EQ(r.Read(), kCaseCells);
        ASSERT_EQ(std::memcmp(r.got.data(), cells.data() + i * 8 * kCaseCells, 8 * kCaseCells), 0) << "case " << i;
    }
}

TEST(SparseIndex, SpacingAndThinning) {
    SparseFileIndex idx(4, 8);
    EXPECT_EQ(idx.Lookup(12345), (std::pair<std::uint64_t, std::int64_t>(0, 0)));
    for (std::uint64_t k = 0; k < 32; ++k) idx.Add(k, static_cast<std::int64_t>(100 * k));
    EXPECT_EQ(idx.Count(), 8u) << "every 4th case: 0, 4, ..., 28";
    EXPECT_EQ(idx.Lookup(31), (std::pair<std::uint64_t, std::int64_t>(28, 2800)));
    EXPECT_EQ(idx.Lookup(7).first, 4u);
    idx.Add(32, 3200);  // the 9th entry: every other one goes, the spacing doubles
    EXPECT_EQ(idx.Spacing(), 8u);
    EXPECT_EQ(idx.Count(), 5u);
    EXPECT_EQ(idx.Lookup(7).first, 0u);
    EXPECT_EQ(idx.Lookup(35).first, 32u);
    idx.Add(36, 3600);  // not a multiple of the new spacing
    idx.Add(40, 3500);  // not beyond the last position offered
    EXPECT_EQ(idx.Lookup(45).first, 32u);
    idx.Add(40, 4000);
    EXPECT_EQ(idx.Lookup(45).first, 40u);
    EXPECT_EQ(idx.Entries().back(), (std::pair<std::uint64_t, std::int64_t>(40, 4000)));
}

}  // namespace
}  // namespace murv
