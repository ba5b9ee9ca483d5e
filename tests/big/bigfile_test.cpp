// Files beyond the 32-bit limits, through the public header only: more than
// 4 GiB of case data (plain and compressed), and more cases than the
// header's 32-bit count can hold. Each test writes a file, appends to it and
// reads its last cases back.
//
// They need minutes and several GiB of scratch space, so ctest runs them only
// when asked for the label "big". The files go to MURVIO_BIG_DIR when it is
// set, else to /dev/shm when it has room, else to MURVIO_BIG_FALLBACK (the
// build tree); a test is skipped, saying why, when no place has room.
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "murvio.h"
#include "../support/case_files.h"

namespace {

using murv::testing::StatedCaseCounts;
namespace fs = std::filesystem;

constexpr std::int64_t kFourGiB = std::int64_t{4} << 30;
constexpr std::int64_t kMaxHeaderCount = std::numeric_limits<std::int32_t>::max();

// A scratch directory with room for `bytes` and 1 GiB more, removed with its
// contents at the end of the test. path is empty when no candidate had room;
// why then says what was looked at.
struct BigScratch {
    std::string path, why;
    explicit BigScratch(std::int64_t bytes) {
        std::vector<std::string> candidates;
        if (const char* dir = std::getenv("MURVIO_BIG_DIR"); dir && *dir) {
            candidates.push_back(dir);
        } else {
            candidates.push_back("/dev/shm");
            if (const char* fb = std::getenv("MURVIO_BIG_FALLBACK"); fb && *fb) candidates.push_back(fb);
        }
        const std::int64_t need = bytes + (std::int64_t{1} << 30);
        for (const std::string& dir : candidates) {
            std::error_code ec;
            const auto free = static_cast<std::int64_t>(fs::space(dir, ec).available);
            why += dir + ": " + (ec ? std::string("not usable") : std::to_string(free >> 20) + " MiB free") + "; ";
            std::string pattern = dir + "/murvio-big-XXXXXX";
            if (!ec && free >= need && ::mkdtemp(pattern.data())) {
                path = pattern;
                return;
            }
        }
        why += "need " + std::to_string(need >> 20) + " MiB";
    }
    ~BigScratch() {
        std::error_code ec;
        if (!path.empty()) fs::remove_all(path, ec);
    }
    BigScratch(const BigScratch&) = delete;
};

// A new file of `vars` numeric variables, its header committed.
int NewFile(const std::string& path, int vars, bool compressed) {
    int h = -1;
    EXPECT_EQ(murvOpenWrite(path.c_str(), &h), MURV_RC_OK);
    for (int j = 0; j < vars; ++j) EXPECT_EQ(murvSetVarName(h, ("v" + std::to_string(j)).c_str(), 0), MURV_RC_OK);
    EXPECT_EQ(murvSetCompression(h, compressed ? 1 : 0), MURV_RC_OK);
    EXPECT_EQ(murvCommitHeader(h), MURV_RC_OK);
    return h;
}

// Writes the cases [from, to) whole; record(k) gives case k.
template <class Record>
void WriteEach(int h, std::int64_t from, std::int64_t to, Record record) {
    for (std::int64_t k = from; k < to; ++k) {
        if (murvWholeCaseOut(h, record(k)) != MURV_RC_OK) {
            ADD_FAILURE() << "case " << k << " not written";
            return;
        }
    }
}

int Count(int h) {
    int n = -3;
    EXPECT_EQ(murvGetNumberofCases(h, &n), MURV_RC_OK);
    return n;
}

// ---------------------------------------------------------------------------
// Over 4 GiB of case data. Cases of 512 numeric cells (4096 bytes); the first
// and last cell tell the case's number, the others are constant. None of the
// values is a small integer, so compression stores every cell and the
// compressed file is larger than the plain one.

constexpr int kWideCells = 512;
constexpr std::int64_t kWideFirst = (kFourGiB / (8 * kWideCells)) + 64;  // cases of the first write
constexpr std::int64_t kWideAppended = 64;

std::vector<double> WideCase(std::int64_t k) {
    std::vector<double> cells(kWideCells);
    for (int j = 0; j < kWideCells; ++j) cells[static_cast<std::size_t>(j)] = j + 0.125;
    cells.front() = static_cast<double>(k) + 0.5;
    cells.back() = -static_cast<double>(k) - 0.25;
    return cells;
}

// Seeks to case k and reads it whole; compares every cell.
void ExpectWideCase(int h, std::int64_t k) {
    SCOPED_TRACE("case " + std::to_string(k));
    ASSERT_EQ(murvSeekNextCase(h, static_cast<int>(k)), MURV_RC_OK);
    std::vector<double> got(kWideCells, 0.0);
    ASSERT_EQ(murvWholeCaseIn(h, reinterpret_cast<char*>(got.data())), MURV_RC_OK);
    EXPECT_EQ(got, WideCase(k));
}

class BigWideFile : public ::testing::TestWithParam<bool> {};

TEST_P(BigWideFile, WritesAppendsAndReadsBeyondFourGiB) {
    const bool compressed = GetParam();
    const std::int64_t total = kWideFirst + kWideAppended;
    // A compressed case adds one command byte per cell.
    BigScratch scratch(total * (8 * kWideCells + (compressed ? kWideCells : 0)));
    if (scratch.path.empty()) GTEST_SKIP() << "no room for a file over 4 GiB: " << scratch.why;
    const std::string path = scratch.path + "/wide.murv";
    std::vector<double> cells;
    const auto record = [&cells](std::int64_t k) {
        cells = WideCase(k);
        return reinterpret_cast<const char*>(cells.data());
    };

    int h = NewFile(path, kWideCells, compressed);
    WriteEach(h, 0, kWideFirst, record);
    ASSERT_EQ(murvCloseWrite(h), MURV_RC_OK);
    ASSERT_GT(static_cast<std::int64_t>(fs::file_size(path)), kFourGiB);
    EXPECT_EQ(StatedCaseCounts(path), std::pair(kWideFirst, kWideFirst));

    ASSERT_EQ(murvOpenAppend(path.c_str(), &h), MURV_RC_OK);
    WriteEach(h, kWideFirst, total, record);
    ASSERT_EQ(murvCloseAppend(h), MURV_RC_OK);
    EXPECT_EQ(StatedCaseCounts(path), std::pair(total, total));

    ASSERT_EQ(murvOpenRead(path.c_str(), &h), MURV_RC_OK);
    EXPECT_EQ(Count(h), total);
    ExpectWideCase(h, total - 1);
    EXPECT_EQ(murvReadCaseRecord(h), MURV_RC_END_OF_FILE);
    // Back across the end of the first write, and to the start.
    for (std::int64_t k : {kWideFirst - 1, kWideFirst, std::int64_t{0}, total - 2}) ExpectWideCase(h, k);
    ASSERT_EQ(murvCloseRead(h), MURV_RC_OK);
}

INSTANTIATE_TEST_SUITE_P(Layouts, BigWideFile, ::testing::Values(false, true),
                         [](const ::testing::TestParamInfo<bool>& p) { return p.param ? "Compressed" : "Plain"; });

// ---------------------------------------------------------------------------
// More cases than the header counts. One numeric variable whose values are
// small integers, so that each case compresses to one command byte: 2^31
// cases make a file of 2 GiB.

double SmallValue(std::int64_t k) { return static_cast<double>(k % 251) - 99; }

TEST(BigCaseCount, CountsBeyondTheHeaderGoToTheCaseCountRecord) {
    const std::int64_t total = kMaxHeaderCount + 9;
    BigScratch scratch(total / 8 * 8 + 64 * 1024);
    if (scratch.path.empty()) GTEST_SKIP() << "no room for 2^31 compressed cases: " << scratch.why;
    const std::string path = scratch.path + "/many.murv";
    double value = 0;
    const auto record = [&value](std::int64_t k) {
        value = SmallValue(k);
        return reinterpret_cast<const char*>(&value);
    };

    // Exactly as many cases as the header can count.
    int h = NewFile(path, 1, true);
    WriteEach(h, 0, kMaxHeaderCount, record);
    ASSERT_EQ(murvCloseWrite(h), MURV_RC_OK);
    EXPECT_EQ(StatedCaseCounts(path), std::pair(kMaxHeaderCount, kMaxHeaderCount));
    ASSERT_EQ(murvOpenRead(path.c_str(), &h), MURV_RC_OK);
    EXPECT_EQ(Count(h), kMaxHeaderCount);
    ASSERT_EQ(murvCloseRead(h), MURV_RC_OK);

    // Appending goes past it: the header says unknown, the record has the count.
    ASSERT_EQ(murvOpenAppend(path.c_str(), &h), MURV_RC_OK);
    WriteEach(h, kMaxHeaderCount, total, record);
    ASSERT_EQ(murvCloseAppend(h), MURV_RC_OK);
    EXPECT_EQ(StatedCaseCounts(path), std::pair(std::int64_t{-1}, total));

    // The interface's 32-bit count reports such a count as unknown; the cases
    // are all there, up to the last.
    ASSERT_EQ(murvOpenRead(path.c_str(), &h), MURV_RC_OK);
    EXPECT_EQ(Count(h), -1);
    const std::int64_t first = kMaxHeaderCount - 1;
    ASSERT_EQ(murvSeekNextCase(h, static_cast<int>(first)), MURV_RC_OK);
    for (std::int64_t k = first; k < total; ++k) {
        ASSERT_EQ(murvWholeCaseIn(h, reinterpret_cast<char*>(&value)), MURV_RC_OK) << "case " << k;
        EXPECT_EQ(value, SmallValue(k)) << "case " << k;
    }
    EXPECT_EQ(murvReadCaseRecord(h), MURV_RC_END_OF_FILE);
    // Back to a case before the limit, through the index the reading filled.
    ASSERT_EQ(murvSeekNextCase(h, static_cast<int>(kMaxHeaderCount - 1000)), MURV_RC_OK);
    ASSERT_EQ(murvWholeCaseIn(h, reinterpret_cast<char*>(&value)), MURV_RC_OK);
    EXPECT_EQ(value, SmallValue(kMaxHeaderCount - 1000));
    ASSERT_EQ(murvCloseRead(h), MURV_RC_OK);
}

}  // namespace
