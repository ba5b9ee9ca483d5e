// Files beyond the 32-bit limits, through the public header only: more than
// 4 GiB of case data (plain and compressed), and more cases than the
// header's 32-bit count can hold. Each test writes a file, appends to it and
// reads its last cases back.
//
// They need minutes and several GiB of scratch space, so ctest runs them only
// when asked for the label "big". The files go to MURVIO_BIG_DIR when it is
// set, else to /dev/shm when it has room, else to MURVIO_BIG_FALLBACK (the
// build tree); a test is skipped, saying why, when no place has room.
#include <sys/statvfs.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
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

constexpr std::int64_t kGiB = std::int64_t{1} << 30;
constexpr std::int64_t kFourGiB = std::int64_t{4} << 30;
constexpr std::int64_t kMaxHeaderCount = std::numeric_limits<std::int32_t>::max();

std::int64_t FreeBytes(const std::string& dir) {
    struct statvfs st;
    if (dir.empty() || ::statvfs(dir.c_str(), &st) != 0) return -1;
    return static_cast<std::int64_t>(st.f_bavail) * static_cast<std::int64_t>(st.f_frsize);
}

// A scratch directory with room for `bytes` (plus a margin), removed with
// its contents at the end of the test. Path() is empty when no candidate had
// room; Why() then says what was looked at.
class BigScratch {
public:
    explicit BigScratch(std::int64_t bytes) {
        std::vector<std::string> candidates;
        if (const char* dir = std::getenv("MURVIO_BIG_DIR"); dir && *dir) {
            candidates.push_back(dir);
        } else {
            candidates.push_back("/dev/shm");
            if (const char* fb = std::getenv("MURVIO_BIG_FALLBACK"); fb && *fb) candidates.push_back(fb);
        }
        const std::int64_t need = bytes + kGiB;
        for (const std::string& dir : candidates) {
            const std::int64_t free = FreeBytes(dir);
            why_ += dir + ": " + (free < 0 ? std::string("not usable") : std::to_string(free >> 20) + " MiB free") + "; ";
            if (free < need) continue;
            std::string pattern = dir + "/murvio-big-XXXXXX";
            if (::mkdtemp(pattern.data())) {
                path_ = pattern;
                return;
            }
        }
        why_ += "need " + std::to_string(need >> 20) + " MiB";
    }
    ~BigScratch() {
        std::error_code ec;
        if (!path_.empty()) std::filesystem::remove_all(path_, ec);
    }
    BigScratch(const BigScratch&) = delete;
    BigScratch& operator=(const BigScratch&) = delete;

    const std::string& Path() const { return path_; }
    const std::string& Why() const { return why_; }
    std::string File(const char* name) const { return path_ + "/" + name; }

private:
    std::string path_;
    std::string why_;
};

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

void FillWide(std::vector<double>& cells, std::int64_t k) {
    cells.front() = static_cast<double>(k) + 0.5;
    cells.back() = -static_cast<double>(k) - 0.25;
}

std::vector<double> WideTemplate() {
    std::vector<double> cells(kWideCells);
    for (int j = 0; j < kWideCells; ++j) cells[static_cast<std::size_t>(j)] = j + 0.125;
    return cells;
}

void WriteWide(int h, std::int64_t from, std::int64_t to) {
    std::vector<double> cells = WideTemplate();
    for (std::int64_t k = from; k < to; ++k) {
        FillWide(cells, k);
        if (murvWholeCaseOut(h, reinterpret_cast<const char*>(cells.data())) != MURV_RC_OK) {
            ADD_FAILURE() << "case " << k << " not written";
            return;
        }
    }
}

// Seeks to case k and reads it whole; compares every cell.
void ExpectWideCase(int h, std::int64_t k) {
    SCOPED_TRACE("case " + std::to_string(k));
    ASSERT_EQ(murvSeekNextCase(h, static_cast<int>(k)), MURV_RC_OK);
    std::vector<double> got(kWideCells, 0.0);
    ASSERT_EQ(murvWholeCaseIn(h, reinterpret_cast<char*>(got.data())), MURV_RC_OK);
    std::vector<double> want = WideTemplate();
    FillWide(want, k);
    EXPECT_EQ(got, want);
}

class BigWideFile : public ::testing::TestWithParam<bool> {};

TEST_P(BigWideFile, WritesAppendsAndReadsBeyondFourGiB) {
    const bool compressed = GetParam();
    // A compressed case adds one command byte per cell.
    const std::int64_t caseBytes = 8 * kWideCells + (compressed ? kWideCells : 0);
    BigScratch scratch((kWideFirst + kWideAppended) * caseBytes);
    if (scratch.Path().empty()) GTEST_SKIP() << "no room for a file over 4 GiB: " << scratch.Why();
    const std::string path = scratch.File("wide.murv");

    int h = -1;
    ASSERT_EQ(murvOpenWrite(path.c_str(), &h), MURV_RC_OK);
    for (int j = 0; j < kWideCells; ++j)
        ASSERT_EQ(murvSetVarName(h, ("v" + std::to_string(j)).c_str(), 0), MURV_RC_OK);
    ASSERT_EQ(murvSetCompression(h, compressed ? 1 : 0), MURV_RC_OK);
    ASSERT_EQ(murvCommitHeader(h), MURV_RC_OK);
    int caseSize = 0;
    ASSERT_EQ(murvGetCaseSize(h, &caseSize), MURV_RC_OK);
    ASSERT_EQ(caseSize, 8 * kWideCells);
    WriteWide(h, 0, kWideFirst);
    ASSERT_EQ(murvCloseWrite(h), MURV_RC_OK);
    ASSERT_GT(static_cast<std::int64_t>(std::filesystem::file_size(path)), kFourGiB);
    EXPECT_EQ(StatedCaseCounts(path), std::pair(kWideFirst, kWideFirst));

    ASSERT_EQ(murvOpenAppend(path.c_str(), &h), MURV_RC_OK);
    WriteWide(h, kWideFirst, kWideFirst + kWideAppended);
    ASSERT_EQ(murvCloseAppend(h), MURV_RC_OK);
    const std::int64_t total = kWideFirst + kWideAppended;
    EXPECT_EQ(StatedCaseCounts(path), std::pair(total, total));

    ASSERT_EQ(murvOpenRead(path.c_str(), &h), MURV_RC_OK);
    EXPECT_EQ(Count(h), total);
    ExpectWideCase(h, total - 1);
    EXPECT_EQ(murvReadCaseRecord(h), MURV_RC_END_OF_FILE);
    // Back across the end of the first write, and to the start.
    ExpectWideCase(h, kWideFirst - 1);
    ExpectWideCase(h, kWideFirst);
    ExpectWideCase(h, 0);
    ExpectWideCase(h, total - 2);
    ASSERT_EQ(murvCloseRead(h), MURV_RC_OK);
}

INSTANTIATE_TEST_SUITE_P(Layouts, BigWideFile, ::testing::Values(false, true),
                         [](const ::testing::TestParamInfo<bool>& p) { return p.param ? "Compressed" : "Plain"; });

// ---------------------------------------------------------------------------
// More cases than the header counts. One numeric variable whose values are
// small integers, so that each case compresses to one command byte: 2^31
// cases make a file of 2 GiB.

double SmallValue(std::int64_t k) { return static_cast<double>(k % 251) - 99; }

void WriteSmall(int h, std::int64_t from, std::int64_t to) {
    double value = 0;
    const char* rec = reinterpret_cast<const char*>(&value);
    std::int64_t r = from % 251;
    for (std::int64_t k = from; k < to; ++k) {
        value = static_cast<double>(r) - 99;
        if (++r == 251) r = 0;
        if (murvWholeCaseOut(h, rec) != MURV_RC_OK) {
            ADD_FAILURE() << "case " << k << " not written";
            return;
        }
    }
}

TEST(BigCaseCount, CountsBeyondTheHeaderGoToTheCaseCountRecord) {
    constexpr std::int64_t kAppended = 9;
    const std::int64_t total = kMaxHeaderCount + kAppended;
    BigScratch scratch(total / 8 * 8 + 64 * 1024);
    if (scratch.Path().empty()) GTEST_SKIP() << "no room for 2^31 compressed cases: " << scratch.Why();
    const std::string path = scratch.File("many.murv");

    // Exactly as many cases as the header can count.
    int h = -1;
    ASSERT_EQ(murvOpenWrite(path.c_str(), &h), MURV_RC_OK);
    ASSERT_EQ(murvSetVarName(h, "x", 0), MURV_RC_OK);
    ASSERT_EQ(murvSetCompression(h, 1), MURV_RC_OK);
    ASSERT_EQ(murvCommitHeader(h), MURV_RC_OK);
    WriteSmall(h, 0, kMaxHeaderCount);
    ASSERT_EQ(murvCloseWrite(h), MURV_RC_OK);
    EXPECT_EQ(StatedCaseCounts(path), std::pair(kMaxHeaderCount, kMaxHeaderCount));
    ASSERT_EQ(murvOpenRead(path.c_str(), &h), MURV_RC_OK);
    EXPECT_EQ(Count(h), kMaxHeaderCount);
    ASSERT_EQ(murvCloseRead(h), MURV_RC_OK);

    // Appending goes past it: the header says unknown, the record has the count.
    ASSERT_EQ(murvOpenAppend(path.c_str(), &h), MURV_RC_OK);
    WriteSmall(h, kMaxHeaderCount, total);
    ASSERT_EQ(murvCloseAppend(h), MURV_RC_OK);
    EXPECT_EQ(StatedCaseCounts(path), std::pair(std::int64_t{-1}, total));

    // The interface's 32-bit count reports such a count as unknown; the cases
    // are all there, up to the last.
    ASSERT_EQ(murvOpenRead(path.c_str(), &h), MURV_RC_OK);
    EXPECT_EQ(Count(h), -1);
    const std::int64_t first = kMaxHeaderCount - 1;
    ASSERT_EQ(murvSeekNextCase(h, static_cast<int>(first)), MURV_RC_OK);
    std::int64_t k = first;
    double value = 0;
    for (; k < total; ++k) {
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
