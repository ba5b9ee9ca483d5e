// How a dataset is laid out in a file: the header record and its creation
// stamp, long strings cut into segments, and the short names of long ones.
#include "sysfile/layout.h"
#include "sysfile/segments.h"

#include <bit>
#include <cmath>
#include <ctime>
#include <iomanip>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "model/datasource.h"
#include "model/datetime.h"
#include "support/byte_builder.h"
#include "support/locale_guard.h"
#include "sysfile/byteorder.h"
#include "sysfile/ext/shortnames.h"

namespace murv {
namespace {

TEST(HeaderRecord, EncodesEveryFieldAtItsOffset) {
    const auto b = EncodeHeader({.product = kDefaultProduct, .nominalCaseSize = 5, .compression = 1, .weightIndex = 4,
                                 .caseCount = 1234, .creationDate = "07 Mar 06", .creationTime = "14:05:09",
                                 .fileLabel = std::string(70, 'L')});  // the label longer than its field: cut
    const std::string text(reinterpret_cast<const char*>(b.data()), b.size());
    EXPECT_EQ(text.substr(0, 64), "$FL2" + std::string(kDefaultProduct) + std::string(15, ' '))
        << "product blank-padded";
    for (auto [at, value] : {std::pair{64, 2}, {68, 5}, {72, 1}, {76, 4}, {80, 1234}})
        EXPECT_EQ(LoadI32(b.data() + at, false), value) << at;
    EXPECT_EQ(LoadF64(b.data() + 84, false), 100.0);
    EXPECT_EQ(text.substr(92), "07 Mar 0614:05:09" + std::string(64, 'L') + std::string(3, '\0'));
}

// The creation stamp: the header's fields (local time; an early clock is
// raised to one day), and their value on reading, the date conversion's
// seconds plus the time of day, a day past the month's end running on into
// the next month, and parts out of range refused with the output untouched.
TEST(CreationStamp, FormattedForTheHeaderAndValuedOnReading) {
    std::tm tm{};
    std::istringstream("2006-03-07 14:05:09") >> std::get_time(&tm, "%Y-%m-%d %H:%M:%S");
    tm.tm_isdst = -1;
    EXPECT_EQ(FormatCreationStamp(static_cast<std::int64_t>(std::mktime(&tm))),
              (std::pair<std::string, std::string>("07 Mar 06", "14:05:09")));
    EXPECT_EQ(FormatCreationStamp(0).first.size(), 9u);
    double date = 0, v = -1, mar3 = 0;
    ASSERT_EQ(ConvertDate(17, 11, 2006, &date), 0);
    ASSERT_TRUE(DateTimeValue(17, 11, 2006, 13, 45, 30.5, &v));
    EXPECT_EQ(v, date + 13 * 3600.0 + 45 * 60.0 + 30.5);
    ASSERT_TRUE(DateTimeValue(3, 3, 2001, 12, 0, 0.0, &mar3));
    ASSERT_TRUE(DateTimeValue(31, 2, 2001, 12, 0, 0.0, &v));
    EXPECT_EQ(v, mar3);
    ASSERT_TRUE(DateTimeValue(14, 10, 1582, 0, 0, 0.0, &v));
    EXPECT_EQ(v, 0.0);
    EXPECT_TRUE(DateTimeValue(31, 12, 9999, 23, 59, 59.999, &v));

    v = 42;
    struct Row { int d, m, y, h, min; double s; };
    for (const Row& r : {Row{13, 10, 1582, 0, 0, 0}, {1, 1, 1581, 0, 0, 0}, {1, 1, 10000, 0, 0, 0},
                         {0, 1, 2000, 0, 0, 0}, {32, 1, 2000, 0, 0, 0}, {1, 13, 2000, 0, 0, 0}, {1, 1, 2000, 24, 0, 0},
                         {1, 1, 2000, 0, 60, 0}, {1, 1, 2000, 0, 0, 60}, {1, 1, 2000, 0, 0, -1},
                         {1, 1, 2000, 0, 0, std::nan("")}})
        EXPECT_FALSE(DateTimeValue(r.d, r.m, r.y, r.h, r.min, r.s, &v))
            << r.d << '.' << r.m << '.' << r.y << ' ' << r.h << ':' << r.min << ':' << r.s;
    EXPECT_EQ(v, 42.0) << "the output stays untouched";
}

TEST(Segments, Arithmetic) {
    // width: segments, width of the last, cells in the file, cells in the dictionary
    const int rows[][5] = {{256, 2, 4, 33, 32}, {300, 2, 48, 38, 38}, {504, 2, 0, 64, 63}, {510, 3, 6, 65, 64}};
    for (const auto& r : rows)
        EXPECT_EQ((std::vector<long>{SegmentCount(r[0]), RestWidth(r[0]), long(FileCells(r[0])),
                                     long(DictionaryCells(r[0]))}),
                  std::vector<long>(r + 1, r + 5));
}

TEST(Segments, CharactersNeverStraddleSegments) {
    MURV_USE_LOCALE(guard, "zh_CN.GBK");
    // 300 bytes whose 255th byte (index 254) starts a two-byte character.
    const std::string value = std::string(254, 'a') + "\xB0\xA1" + std::string(44, 'b');
    std::vector<unsigned char> file(8 * FileCells(300), 0xEE);
    CutVeryLongString(reinterpret_cast<const unsigned char*>(value.data()), 300, file.data());
    EXPECT_EQ(std::string(file.begin() + 254, file.begin() + 257), std::string("\0 \xB0", 3))
        << "the character goes on in the next segment";

    MURV_DataSource ds;
    for (int width : {0, 255, 48, 0}) ds.AddVariable(width);
    SystemFileDechunker d;
    d.Setup(ds, {{1, 300}});
    ASSERT_EQ(d.Entries().size(), 2u) << "a leading run for the number before the string";
    EXPECT_EQ(d.Entries()[0].ordinaryCount, 1u);
    testing::ByteBuilder host(std::endian::native == std::endian::big);
    const auto fileCase = host.F64(2.5).Raw(file.data(), file.size()).F64(-1).Bytes();
    std::vector<unsigned char> dictCase(8 * (1 + DictionaryCells(300) + 1), 0);
    d.Assemble(fileCase.data(), dictCase.data());
    EXPECT_EQ(std::string(reinterpret_cast<char*>(dictCase.data()) + 8, 300), value);
    EXPECT_EQ(LoadF64(dictCase.data(), false), 2.5);
    EXPECT_EQ(LoadF64(dictCase.data() + 8 * (1 + DictionaryCells(300)), false), -1.0);
    EXPECT_EQ(d.FileCellOf(1 + DictionaryCells(300)), 1 + FileCells(300));
    EXPECT_EQ(d.DictCellOf(2), -1) << "inside the string";
}

// Cut, upper-cased and made unique with a suffix that leaves the name 8
// bytes at most, even among many names of one stem.
TEST(ShortNames, CutAndMadeUnique) {
    MURV_DataSource ds, many;
    for (const char* n : {"a", "LongNameNumberOne", "LongNameNumberTwo", "X_._yz123", "Income_.Source", "INCOME2",
                          "Income_.Other"})
        ds.AddVariable(0).SetName(n);
    const auto pairs = ComputeShortNames(ds);
    std::vector<std::string> shortNames;
    for (const auto& [name, shortName] : pairs) shortNames.push_back(shortName);
    // Income_.Source loses the trailing . and _ of its cut; Income_.Other finds INCOME taken.
    EXPECT_EQ(shortNames,
              (std::vector<std::string>{"A", "LONGNAME", "LONGNA_A", "X_._YZ12", "INCOME", "INCOME2", "INCOME_A"}));
    EXPECT_EQ(pairs[1].first, "LongNameNumberOne");

    for (int i = 0; i < 20000; ++i) many.AddVariable(0).SetName("SameStemVariable" + std::to_string(i));
    const auto manyPairs = ComputeShortNames(many);
    std::set<std::string> unique;
    for (const auto& [name, shortName] : manyPairs) {
        EXPECT_LE(shortName.size(), 8u);
        unique.insert(shortName);
    }
    EXPECT_EQ(unique.size(), manyPairs.size());
    EXPECT_EQ(manyPairs[1].second, "SAMEST_A");
    EXPECT_EQ(manyPairs[27].second, "SAMES_AA") << "two suffix letters leave room for 5 bytes";
}

}  // namespace
}  // namespace murv
