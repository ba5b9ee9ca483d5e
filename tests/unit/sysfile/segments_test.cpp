#include "sysfile/segments.h"

#include <bit>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "model/datasource.h"
#include "support/byte_builder.h"
#include "support/locale_guard.h"
#include "sysfile/byteorder.h"
#include "sysfile/ext/shortnames.h"

namespace murv {
namespace {

TEST(Segments, Arithmetic) {
    // width: segments, width of the last, cells in the file, cells in the dictionary
    const int rows[][5] = {{256, 2, 4, 33, 32}, {300, 2, 48, 38, 38}, {504, 2, 0, 64, 63}, {510, 3, 6, 65, 64}};
    for (const auto& r : rows) {
        SCOPED_TRACE(r[0]);
        EXPECT_EQ(SegmentCount(r[0]), r[1]);
        EXPECT_EQ(RestWidth(r[0]), r[2]);
        EXPECT_EQ(FileCells(r[0]), static_cast<std::size_t>(r[3]));
        EXPECT_EQ(DictionaryCells(r[0]), static_cast<std::size_t>(r[4]));
    }
}

using Plain = MURV_DataSource;

TEST(Segments, CharactersNeverStraddleSegments) {
    MURV_USE_LOCALE(guard, "zh_CN.GBK");
    // 300 bytes whose 255th byte (index 254) starts a two-byte character.
    const std::string value = std::string(254, 'a') + "\xB0\xA1" + std::string(44, 'b');
    std::vector<unsigned char> file(8 * FileCells(300), 0xEE);
    CutVeryLongString(reinterpret_cast<const unsigned char*>(value.data()), 300, file.data());
    EXPECT_EQ(std::string(file.begin() + 254, file.begin() + 257), std::string("\0 \xB0", 3))
        << "the character goes on in the next segment";

    Plain ds;
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

TEST(ShortNames, Rules) {
    Plain ds;
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
}

TEST(ShortNames, ManyNamesWithOneStemStayUnique) {
    Plain ds;
    for (int i = 0; i < 20000; ++i) ds.AddVariable(0).SetName("SameStemVariable" + std::to_string(i));
    const auto pairs = ComputeShortNames(ds);
    std::set<std::string> unique;
    for (const auto& p : pairs) {
        EXPECT_LE(p.second.size(), 8u);
        unique.insert(p.second);
    }
    EXPECT_EQ(unique.size(), pairs.size());
    EXPECT_EQ(pairs[1].second, "SAMEST_A");
    EXPECT_EQ(pairs[27].second, "SAMES_AA") << "two suffix letters leave room for 5 bytes";
}

}  // namespace
}  // namespace murv
