#include "sysfile/compression.h"
#include "sysfile/byteorder.h"

#include <bit>
#include <cmath>
#include <cstring>
#include <fstream>
#include <vector>

#include <gtest/gtest.h>

#include "model/constants.h"
#include "port/errors.h"
#include "support/temp_dir.h"
#include "sysfile/filestream.h"
#include "sysfile/sparseindex.h"

namespace murv {
namespace {

std::vector<unsigned char> Cells(std::initializer_list<double> values) {
    std::vector<unsigned char> out(values.size() * 8);
    std::size_t i = 0;
    for (double v : values) std::memcpy(out.data() + 8 * i++, &v, 8);
    return out;
}

unsigned char Encode(double v) { return EncodeCell(Cells({v}).data()); }

std::vector<unsigned char> FileBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

TEST(CompressionCodes, EncodeCells) {
    // Small integers -99..151 are codes 1..251; everything else is stored
    // raw (-0.0 keeps its sign bit that way), but system-missing.
    const std::pair<double, int> rows[] = {{1.0, 101},    {2.0, 102},        {SysmisValue(), 255}, {3.5, 253},
                                           {-99.0, 1},    {151.0, 251},      {152.0, 253},         {-100.0, 253},
                                           {-0.0, 253},   {0.0, 100},        {-1.0, 99},           {std::nan(""), 253},
                                           {LowestValue(), 253}, {1e-300, 253}};
    for (const auto& [value, code] : rows) EXPECT_EQ(Encode(value), code) << value;
    const unsigned char blanks[8] = {' ', ' ', ' ', ' ', ' ', ' ', ' ', ' '};
    EXPECT_EQ(EncodeCell(blanks), 254);
    const unsigned char text[8] = {'a', 'b', ' ', ' ', ' ', ' ', ' ', ' '};
    EXPECT_EQ(EncodeCell(text), 253);
    // Every code decodes back to the bytes it was chosen for.
    const auto& table = CompressionTable();
    for (int k = 1; k <= 251; ++k) EXPECT_EQ(table[k], std::bit_cast<std::uint64_t>(double(k - 100)));
}

struct Fixture : ::testing::Test {
    testing::TempDir dir;
    std::string path = dir.File("data");
    SparseFileIndex index;

    // The bytes of one case of the given cells, compressed.
    std::vector<unsigned char> Written(std::initializer_list<double> values) {
        {
            MURV_FileStream s(path.c_str(), "wb");
            CompressedSystemFile c(static_cast<int>(values.size()), &s, &index, 0);
            c.WriteCase(Cells(values).data());
        }  // destruction flushes
        return FileBytes(path);
    }
};

TEST_F(Fixture, CodesAndStoredCellsInBlocks) {
    EXPECT_EQ(Written({1, 2, 3}), (std::vector<unsigned char>{101, 102, 103, 0, 0, 0, 0, 0}));
    MURV_FileStream s(path.c_str(), "rb");
    SparseFileIndex readIndex;
    CompressedSystemFile c(3, &s, &readIndex, 0);
    std::vector<unsigned char> got(24);
    EXPECT_EQ(c.ReadCase(got.data(), nullptr), 3);
    EXPECT_EQ(got, Cells({1, 2, 3}));
    EXPECT_EQ(c.ReadCase(got.data(), nullptr), 0) << "then the end of the data";
    c.SetTarget(5);
    EXPECT_EQ(c.ReadCase(got.data(), nullptr), 0) << "a target beyond the end";
    EXPECT_LT(c.CurrentCase(), 5u);

    const auto bytes = Written({1.0, 2.0, SysmisValue(), 3.5, 1e10});
    ASSERT_EQ(bytes.size(), 8u + 16u);
    const std::vector<unsigned char> key(bytes.begin(), bytes.begin() + 8);
    EXPECT_EQ(key, (std::vector<unsigned char>{101, 102, 255, 253, 253, 0, 0, 0}));
    double stored[2];
    std::memcpy(stored, bytes.data() + 8, 16);
    EXPECT_EQ(stored[0], 3.5);
    EXPECT_EQ(stored[1], 1e10);
}

// A seek on a fresh reader skips runs of cases but still leaves an entry
// every spacing-th case behind it, so later seeks decode only a few cases.
TEST_F(Fixture, PositioningFillsTheIndexAsItGoes) {
    const int n = 1000;
    {
        MURV_FileStream s(path.c_str(), "wb");
        CompressedSystemFile c(3, &s, &index, 0);
        for (int i = 0; i < n; ++i) c.WriteCase(Cells({double(i % 7), i + 0.5, SysmisValue()}).data());
    }
    MURV_FileStream s(path.c_str(), "rb");
    SparseFileIndex readIndex;
    CompressedSystemFile c(3, &s, &readIndex, 0);
    std::vector<unsigned char> got(24);
    for (int k : {700, 699, 300, 999, 16, 0}) {
        c.SetTarget(static_cast<std::uint64_t>(k));
        ASSERT_EQ(c.ReadCase(got.data(), nullptr), 3) << k;
        EXPECT_EQ(got, Cells({double(k % 7), k + 0.5, SysmisValue()})) << k;
        if (k == 700) {
            EXPECT_GE(readIndex.Count(), 700 / SparseFileIndex::kFirstSpacing);
        }
    }
}

TEST_F(Fixture, SwapFlagsReverseOnlyStoredCells) {
    Written({3.5, 1.0});
    MURV_FileStream s(path.c_str(), "rb");
    SparseFileIndex readIndex;
    CompressedSystemFile c(2, &s, &readIndex, 0);
    const unsigned char swap[2] = {1, 1};
    std::vector<unsigned char> got(16);
    ASSERT_EQ(c.ReadCase(got.data(), swap), 2);
    std::uint64_t first, second;
    std::memcpy(&first, got.data(), 8);
    std::memcpy(&second, got.data() + 8, 8);
    EXPECT_EQ(first, Swap64(std::bit_cast<std::uint64_t>(3.5)));
    EXPECT_EQ(second, std::bit_cast<std::uint64_t>(1.0)) << "coded cells come from the host's table";
}

void WriteRaw(const std::string& path, const std::vector<unsigned char>& bytes) {
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

long ReadError(const std::string& path, int cells, int cases) {
    MURV_FileStream s(path.c_str(), "rb");
    SparseFileIndex idx;
    CompressedSystemFile c(cells, &s, &idx, 0);
    std::vector<unsigned char> got(cells * 8);
    try {
        for (int i = 0; i < cases; ++i) c.ReadCase(got.data(), nullptr);
    } catch (const SystemFileException& e) {
        return e.Number();
    }
    return 0;
}

TEST_F(Fixture, MalformedData) {
    // A block cut 4 bytes in.
    WriteRaw(path, {101, 102, 103, 0});
    EXPECT_EQ(ReadError(path, 1, 1), kErrFileEnds);
    // A stored cell that is missing.
    WriteRaw(path, {253, 0, 0, 0, 0, 0, 0, 0, 1, 2, 3});
    EXPECT_EQ(ReadError(path, 1, 1), kErrFileEnds);
    // A case cut short: 3 cells wanted, the data holds 2.
    WriteRaw(path, {101, 102, 0, 0, 0, 0, 0, 0});
    EXPECT_EQ(ReadError(path, 3, 1), kErrFileEnds);
    // A 252 ends a block's commands: cells after it in that block are ignored.
    WriteRaw(path, {101, 252, 103, 103, 103, 103, 103, 103, 102, 0, 0, 0, 0, 0, 0, 0});
    EXPECT_EQ(ReadError(path, 2, 2), 0);
    {
        MURV_FileStream s(path.c_str(), "rb");
        SparseFileIndex idx;
        CompressedSystemFile c(2, &s, &idx, 0);
        std::vector<unsigned char> got(16);
        ASSERT_EQ(c.ReadCase(got.data(), nullptr), 2);
        EXPECT_EQ(got, Cells({1, 2}));
        EXPECT_EQ(c.ReadCase(got.data(), nullptr), 0);
    }
    // A trailing 252 after the last case reads to the end cleanly.
    WriteRaw(path, {101, 102, 252, 0, 0, 0, 0, 0});
    EXPECT_EQ(ReadError(path, 2, 3), 0);
    // Zero cells per case never loops forever.
    EXPECT_EQ(ReadError(path, 0, 3), 0);
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
    EXPECT_EQ(SparseFileIndex().Spacing(), 16u) << "a seek decodes fewer than 16 cases";
}

}  // namespace
}  // namespace murv
