#include "sysfile/layout.h"

#include <ctime>
#include <iomanip>
#include <sstream>
#include <tuple>

#include <gtest/gtest.h>

#include "sysfile/byteorder.h"

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

TEST(HeaderRecord, DecodesEitherByteOrder) {
    auto b = EncodeHeader({.product = "x", .nominalCaseSize = 300, .weightIndex = 7, .caseCount = -1,
                           .creationDate = "", .creationTime = "", .fileLabel = ""});
    EXPECT_FALSE(HeaderIsSwapped(b.data()));
    // Reverse the numbers as a machine of the other byte order writes them.
    for (int off : {64, 68, 72, 76, 80}) StoreU32(b.data() + off, Swap32(LoadU32(b.data() + off)));
    StoreU64(b.data() + 84, Swap64(LoadU64(b.data() + 84)));
    ASSERT_TRUE(HeaderIsSwapped(b.data()));
    const HeaderRecord d = DecodeHeader(b.data(), true);
    EXPECT_EQ(std::tuple(d.layoutCode, d.nominalCaseSize, d.caseCount, d.weightIndex, d.bias),
              std::tuple(2, 300, -1, 7, 100.0));
    EXPECT_EQ(TrimRight(d.product), "x");
}

TEST(HeaderRecord, CreationStampFormat) {
    std::tm tm{};
    std::istringstream("2006-03-07 14:05:09") >> std::get_time(&tm, "%Y-%m-%d %H:%M:%S");  // local time
    tm.tm_isdst = -1;
    EXPECT_EQ(FormatCreationStamp(static_cast<std::int64_t>(std::mktime(&tm))),
              (std::pair<std::string, std::string>("07 Mar 06", "14:05:09")));
    EXPECT_EQ(FormatCreationStamp(0).first.size(), 9u) << "an early clock is raised to one day";
}

}  // namespace
}  // namespace murv
