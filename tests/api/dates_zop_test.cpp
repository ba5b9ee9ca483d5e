// Date variables and the data-entry block through the public header: round
// trips through files, files of the other byte order, and the codes for
// malformed arrays, misplaced calls and null pointers.
#include <array>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "murvio.h"
#include "support/api_files.h"
#include "support/byte_builder.h"
#include "support/temp_dir.h"

namespace {

using namespace murv::testing;
using Ints = std::vector<int>;

// Cells: label 0-2 (a 20-byte string), year_ 3, month_ 4, date_ 5-6, yr 7.
// Case positions are the cells plus 1.
constexpr int kYear = 4, kMonth = 5, kDate = 6, kYr = 8;

int NewFile(const std::string& path) {
    return OpenNew(path, {{"label", 20}, {"year_", 0}, {"month_", 0}, {"date_", 10}, {"yr", 0}});
}

int SetDates(int h, const Ints& a) { return murvSetDateVariables(h, static_cast<int>(a.size()), a.data()); }

// The date array of a handle; empty with the code when there is none.
Ints GetDates(int h, int expectRc = MURV_RC_OK) {
    int n = -1, *array = &n;  // reset by the call
    EXPECT_EQ(murvGetDateVariables(h, &n, &array), expectRc);
    EXPECT_TRUE(expectRc == MURV_RC_OK || (n == 0 && array == nullptr));
    const Ints out = array ? Ints(array, array + n) : Ints();
    EXPECT_EQ(murvFreeDateVariables(array), MURV_RC_OK);
    return out;
}

TEST(DateVariables, RoundTripsRefusedArraysAndBadNames) {
    TempDir dir;
    const std::string path = dir.File("dates.murv");
    const auto roundTrip = [&path](const Ints& dates) {
        const int h = NewFile(path);
        EXPECT_EQ(SetDates(h, dates), MURV_RC_OK);
        const int r = Reopen(h, path);
        const Ints back = GetDates(r);
        murvCloseRead(r);
        return back;
    };
    EXPECT_EQ(roundTrip({1, 9, 2, 5, 4, 0, kYear, 2, 7, kMonth, 4, 12, kDate, 11, 3}),
              (Ints{1, 9, 2, 5, 4, 1, kYear, 2, 7, kMonth, 4, 12, kDate, 11, 3}));
    // Without a date key the empty entry reads back as 0, 0, 1, and what
    // comes out can go back in as it is.
    const Ints back = roundTrip({0, 1, 2, 1, 1, 1, kYear, 2, 5, kMonth, 4, 6});
    EXPECT_EQ(back, (Ints{0, 1, 2, 1, 1, 1, kYear, 2, 5, kMonth, 4, 6, 0, 0, 1}));
    EXPECT_EQ(roundTrip(back), back);

    // A refused array leaves the declaration as it was.
    int h = NewFile(path);
    const Ints good = {0, 1, 1, 1, 1, 1, kYear, 2, 1};
    ASSERT_EQ(SetDates(h, good), MURV_RC_OK);
    EXPECT_EQ(murvSetDateVariables(h, 9, nullptr), MURV_RC_BAD_DATE_INFO);
    Ints eleven = {0, 1, 11, 1, 1, 1};
    for (int k = 0; k < 11; ++k) eleven.insert(eleven.end(), {kYear, 2, 1});
    for (const Ints& bad : {
             Ints{0, 1, 2, 1, 1, 1, kYear, 2, 1, kMonth, 4, 1, 0},  // n = 2 takes 12 or 15 elements
             Ints{0, 1, 1, 1, 1, 1, 2, 2, 1},                       // inside the 20-byte string
             Ints{0, 1, 1, 1, 1, 1, 99, 2, 1},                      // past the last variable
             eleven,                                                // more than 10 date variables
             Ints{0, 1, 1, 1, 1}, Ints{0, 1, -1, 1, 1, 1},          // too short; a negative count
             Ints{0, 1, 1, 1, 1, 1, kYear, 12, 1},                  // an unknown kind
             Ints{0, 1, 1, 1, 1, 1, kYear, 2, 1, kMonth, 4, 1},     // a month as the date key
         })
        EXPECT_EQ(SetDates(h, bad), MURV_RC_BAD_DATE_INFO) << bad.size();
    int r = Reopen(h, path);
    EXPECT_EQ(GetDates(r), (Ints{0, 1, 1, 1, 1, 1, kYear, 2, 1, 0, 0, 1}));
    murvCloseRead(r);

    // A variable that does not carry its kind's name drops the declaration.
    h = NewFile(path);
    ASSERT_EQ(SetDates(h, good), MURV_RC_OK);
    EXPECT_EQ(SetDates(h, {0, 1, 1, 1, 1, 1, kYr, 2, 1}), MURV_RC_BAD_DATE_INFO);
    GetDates(h, MURV_RC_WRITE_MODE);
    EXPECT_EQ(murvCommitHeader(h), MURV_RC_OK);
    EXPECT_EQ(SetDates(h, good), MURV_RC_DICT_COMMITTED);
    r = Reopen(h, path, false);
    GetDates(r, MURV_RC_NO_DATE_INFO);
    EXPECT_EQ(SetDates(r, good), MURV_RC_READ_MODE);
    int n = 7, *array = nullptr;
    for (const int rc : {murvGetDateVariables(r, nullptr, &array), murvGetDateVariables(r, &n, nullptr)})
        EXPECT_EQ(rc, MURV_RC_FILE_READ);
    EXPECT_EQ(n, 0);
    murvCloseRead(r);
    EXPECT_EQ(SetDates(-1, good), MURV_RC_BAD_HANDLE);
    GetDates(99, MURV_RC_BAD_HANDLE);
}

// n bytes whose last four hold the segment count, little-endian.
std::vector<unsigned char> Block(std::size_t n, unsigned seed, std::int32_t segments) {
    std::vector<unsigned char> b(n);
    for (std::size_t i = 0; i < n; ++i) b[i] = static_cast<unsigned char>(seed + 7 * i);
    for (int i = 0; i < 4; ++i) b[n - 4 + i] = static_cast<unsigned char>(segments >> (8 * i));
    return b;
}

TEST(DataEntry, PiecesRoundTripAndMisplacedCalls) {
    TempDir dir;
    const std::string path = dir.File("zop.murv");
    const auto whole = Block(150, 1, 3);
    const std::string guid = "{A1}" + std::string(300, 'g');
    int h = NewFile(path);
    // Next before any first, negative counts, missing data; a new first
    // piece replaces the block.
    const int OK = MURV_RC_OK, BE = MURV_RC_BAD_EXTENSION;
    EXPECT_EQ((std::array{murvSetZOPNext(h, whole.data(), 10), murvSetZOPFirst(h, whole.data(), -1),
                          murvSetZOPFirst(h, whole.data(), 20), murvSetZOPNext(h, whole.data(), -5),
                          murvSetZOPNext(h, nullptr, 5), murvSetZOPFirst(h, whole.data(), 100),
                          murvSetZOPNext(h, whole.data() + 100, 50), murvSetZOPGUID(h, guid.c_str())}),
              (std::array{BE, BE, OK, BE, BE, OK, OK, OK}));
    int a = 1, b = 1;
    char text[257] = "x";
    unsigned char buf[64];
    for (const int rc : {murvGetZOPInfo(h, &a, &b), murvGetZOPFirst(h, buf, 8, &a), murvGetZOPGUID(h, text)})
        EXPECT_EQ(rc, MURV_RC_WRITE_MODE);
    EXPECT_TRUE(a == 0 && text[0] == '\0');
    int r = Reopen(h, path);
    EXPECT_TRUE(murvGetZOPInfo(r, &a, &b) == MURV_RC_OK && a == 150 && b == 3) << a << ' ' << b;
    // 64 + 64 + 22 (the chunked reading itself is that of every extension record).
    std::vector<unsigned char> got;
    std::vector<int> sizes;
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(i == 0 ? murvGetZOPFirst(r, buf, 64, &a) : murvGetZOPNext(r, buf, 64, &a), MURV_RC_OK);
        sizes.push_back(a);
        got.insert(got.end(), buf, buf + a);
    }
    EXPECT_EQ(sizes, (std::vector<int>{64, 64, 22}));
    EXPECT_EQ(got, whole);
    // The identifier: at most 256 bytes, from its start on every call.
    for (int i = 0; i < 2; ++i) EXPECT_TRUE(murvGetZOPGUID(r, text) == MURV_RC_OK && text == guid.substr(0, 256)) << i;
    EXPECT_EQ(murvSetZOPNext(r, whole.data(), 10), MURV_RC_READ_MODE);
    for (const int rc : {murvGetZOPInfo(r, nullptr, &b), murvGetZOPFirst(r, buf, 8, nullptr),
                         murvGetZOPFirst(r, nullptr, 8, &a), murvGetZOPGUID(r, nullptr)})
        EXPECT_EQ(rc, MURV_RC_FILE_READ);
    murvCloseRead(r);

    // A count of 0 removes the block, a null identifier the identifier.
    h = NewFile(path);
    for (const int rc : {murvSetZOPFirst(h, whole.data(), 40), murvSetZOPFirst(h, whole.data(), 0),
                         murvSetZOPGUID(h, "id"), murvSetZOPGUID(h, nullptr)})
        EXPECT_EQ(rc, MURV_RC_OK);
    r = Reopen(h, path);
    a = b = 5;
    for (const int rc : {murvGetZOPInfo(r, &a, &b), murvGetZOPNext(r, buf, 8, &a)}) EXPECT_EQ(rc, MURV_RC_NO_ZOP);
    EXPECT_EQ(a + b, 0);
    EXPECT_TRUE(murvGetZOPGUID(r, text) == MURV_RC_OK && text[0] == '\0') << text;
    murvCloseRead(r);

    // A block of 4-byte units (set through the raw extension call) grows by
    // whole units only; a piece of 6 bytes was once read past its end.
    h = NewFile(path);
    EXPECT_EQ((std::array{murvSetExtensionData(h, 8, 4, 5, whole.data()), murvSetZOPNext(h, whole.data(), 6),
                          murvSetZOPNext(h, whole.data(), 8)}), (std::array{OK, BE, OK}));
    r = Reopen(h, path);
    EXPECT_TRUE(murvGetExtensionDataDesc(r, 8, &a, &b) == MURV_RC_OK && a == 4 && b == 7) << a << ' ' << b;
    murvCloseRead(r);
}

// A file of the other byte order, made by hand: its date variables are
// read, its data-entry block cannot be used, but its identifier, which is
// text, can.
TEST(OtherByteOrder, DatesAndDataEntryBlock) {
    TempDir dir;
    const std::string path = dir.File("big.murv");
    const Ints units = {1, 3, 2, 7, 8, 1, kYear, 2, 10, kMonth, 4, 11, kDate, 11, 12};
    const auto block = Block(12, 9, 1);
    ByteBuilder(true).Header(7, 0).StringVariable(20, "LABEL").Variable(0, "YEAR_").Variable(0, "MONTH_")
        .StringVariable(10, "DATE_").ExtensionI32(6, units).ExtensionHeader(8, 1, 12).Raw(block.data(), block.size())
        .ExtensionText(12, "{guid}").End().Save(path);
    int r = OpenForRead(path);
    EXPECT_EQ(GetDates(r), units);
    int nBytes = 5, nSegments = 5, n = 5;
    unsigned char buf[16];
    for (const int rc : {murvGetZOPInfo(r, &nBytes, &nSegments), murvGetZOPFirst(r, buf, 16, &n),
                         murvGetZOPNext(r, buf, 16, &n)})
        EXPECT_EQ(rc, MURV_RC_NO_ZOP);
    EXPECT_EQ(nBytes + nSegments + n, 0);
    char text[257];
    EXPECT_TRUE(murvGetZOPGUID(r, text) == MURV_RC_OK && std::string(text) == "{guid}") << text;
    murvCloseRead(r);

    // A date record with a count of 2 and a single entry.
    ByteBuilder(true).Header(1, 0).Variable(0, "YEAR_").ExtensionI32(6, {0, 1, 2, 1, 1, 1, 1, 2, 1}).End().Save(path);
    EXPECT_TRUE(murvOpenRead(path.c_str(), &r) == MURV_RC_BAD_FILE && r == -1) << r;
}

}  // namespace
