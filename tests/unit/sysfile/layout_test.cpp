#include "sysfile/layout.h"

#include <cstring>
#include <ctime>

#include <gtest/gtest.h>

#include "sysfile/byteorder.h"

namespace murv {
namespace {

TEST(HeaderRecord, EncodesEveryFieldAtItsOffset) {
    HeaderRecord h;
    h.product = kDefaultProduct;
    h.nominalCaseSize = 5;
    h.compression = 1;
    h.weightIndex = 4;
    h.caseCount = 1234;
    h.creationDate = "07 Mar 06";
    h.creationTime = "14:05:09";
    h.fileLabel = std::string(70, 'L');  // longer than its field: cut
    const auto b = EncodeHeader(h);
    EXPECT_EQ(std::memcmp(b.data(), "$FL2", 4), 0);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(b.data() + 4), 45), kDefaultProduct);
    EXPECT_EQ(b[4 + 45], ' ') << "product blank-padded";
    EXPECT_EQ(b[63], ' ');
    EXPECT_EQ(LoadI32(b.data() + 64, false), 2);
    EXPECT_EQ(LoadI32(b.data() + 68, false), 5);
    EXPECT_EQ(LoadI32(b.data() + 72, false), 1);
    EXPECT_EQ(LoadI32(b.data() + 76, false), 4);
    EXPECT_EQ(LoadI32(b.data() + 80, false), 1234);
    EXPECT_EQ(LoadF64(b.data() + 84, false), 100.0);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(b.data() + 92), 17), "07 Mar 0614:05:09");
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(b.data() + 109), 64), std::string(64, 'L'));
    EXPECT_EQ(b[173] | b[174] | b[175], 0);
}

TEST(HeaderRecord, DecodesEitherByteOrder) {
    HeaderRecord h;
    h.product = "x";
    h.nominalCaseSize = 300;
    h.caseCount = -1;
    h.weightIndex = 7;
    auto b = EncodeHeader(h);
    EXPECT_FALSE(HeaderIsSwapped(b.data()));
    // Reverse the numbers as a machine of the other byte order writes them.
    for (int off : {64, 68, 72, 76, 80}) StoreU32(b.data() + off, Swap32(LoadU32(b.data() + off)));
    StoreU64(b.data() + 84, Swap64(LoadU64(b.data() + 84)));
    ASSERT_TRUE(HeaderIsSwapped(b.data()));
    const HeaderRecord d = DecodeHeader(b.data(), true);
    EXPECT_EQ(d.layoutCode, 2);
    EXPECT_EQ(d.nominalCaseSize, 300);
    EXPECT_EQ(d.caseCount, -1);
    EXPECT_EQ(d.weightIndex, 7);
    EXPECT_EQ(d.bias, 100.0);
    EXPECT_EQ(TrimRight(d.product), "x");
}

TEST(HeaderRecord, CreationStampFormat) {
    // 7 March 2006 14:05:09 local time.
    std::tm tm{};
    tm.tm_year = 106;
    tm.tm_mon = 2;
    tm.tm_mday = 7;
    tm.tm_hour = 14;
    tm.tm_min = 5;
    tm.tm_sec = 9;
    tm.tm_isdst = -1;
    const auto [date, time] = FormatCreationStamp(static_cast<std::int64_t>(std::mktime(&tm)));
    EXPECT_EQ(date, "07 Mar 06");
    EXPECT_EQ(time, "14:05:09");
    EXPECT_EQ(FormatCreationStamp(0).first.size(), 9u) << "an early clock is raised to one day";
}

}  // namespace
}  // namespace murv
