#include "model/valuelabelmap.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "support/locale_guard.h"

namespace murv {
namespace {

std::vector<double> NumericOrder(const MURV_ValueLabelMap& map)
{
    std::vector<double> values;
    for (const auto& [key, label] : map.Entries()) {
        double value;
        std::memcpy(&value, key.data(), sizeof value);
        values.push_back(value);
    }
    return values;
}

std::vector<std::string> StringOrder(const MURV_ValueLabelMap& map)
{
    std::vector<std::string> values;
    for (const auto& [key, label] : map.Entries()) values.emplace_back(key.data(), key.size());
    return values;
}

MURV_ValueLabelMap Numeric(std::initializer_list<double> values)
{
    MURV_ValueLabelMap map;
    for (double v : values) map.SetLabel(NumericKey(v), std::to_string(v));
    return map;
}

MURV_ValueLabelMap Strings(std::initializer_list<const char*> values)
{
    MURV_ValueLabelMap map;
    for (const char* v : values) map.SetLabel(StringKey(v), v);
    return map;
}

TEST(ValueLabelOrder, NumericKeysInValueOrder)
{
    EXPECT_EQ(NumericOrder(Numeric({3, 1, 2})), (std::vector<double>{1, 2, 3}));
    EXPECT_EQ(NumericOrder(Numeric({1.0, -1.0, 1e300, -2.5, 0.5, -1e300, -0.25})),
              (std::vector<double>{-1e300, -2.5, -1.0, -0.25, 0.5, 1.0, 1e300}));

    MURV_ValueLabelMap map = Numeric({1, 2});
    map.SetLabel(NumericKey(2), "TWO");
    EXPECT_EQ(map.Count(), 2u);
    EXPECT_EQ(*map.GetLabel(NumericKey(2)), "TWO");
}

TEST(ValueLabelOrder, SignedZerosAndNaNAreDistinctKeys)
{
    const double nan = std::numeric_limits<double>::quiet_NaN();
    MURV_ValueLabelMap map = Numeric({1.0, -0.0, 0.0, -1.0, nan, nan});
    EXPECT_EQ(map.Count(), 5u);
    EXPECT_EQ(*map.GetLabel(NumericKey(0.0)), std::to_string(0.0));
    EXPECT_EQ(*map.GetLabel(NumericKey(-0.0)), std::to_string(-0.0));
    ASSERT_NE(map.GetLabel(NumericKey(nan)), nullptr);
    EXPECT_EQ(map.GetLabel(NumericKey(2.0)), nullptr);
    const std::vector<double> order = NumericOrder(map);
    // The two zeros sit next to each other, NaN comes last.
    EXPECT_EQ(std::vector<double>(order.begin(), order.begin() + 4), (std::vector<double>{-1.0, 0.0, 0.0, 1.0}));
    EXPECT_TRUE(std::isnan(order[4]));
}

TEST(ValueLabelOrder, StringKeysCompareAsLittleEndianDoubles)
{
    EXPECT_EQ(StringOrder(Strings({"b", "a"})), (std::vector<std::string>{"a       ", "b       "}));
    // The last bytes weigh most: "b" beats "ab" on byte 2 before byte 1.
    EXPECT_EQ(StringOrder(Strings({"ab", "b"})), (std::vector<std::string>{"b       ", "ab      "}));

    // A high eighth byte is the sign of the double: such keys come first.
    // (Keys read from a file are raw bytes, whatever the locale says.)
    ValueLabelKey raw = StringKey("aaaaaaaa");
    raw[7] = '\xB0';
    MURV_ValueLabelMap high = Strings({"aaaaaaaa"});
    high.SetLabel(raw, "y");
    EXPECT_EQ(StringOrder(high)[0], "aaaaaaa\xB0");
    EXPECT_EQ(*high.GetLabel(raw), "y");
}

TEST(ValueLabelKeys, StringKeysAreEightPaddedBytes)
{
    EXPECT_EQ(StringKey("a"), StringKey("a       "));
    EXPECT_EQ(StringKey("abcdefghXYZ"), StringKey("abcdefgh"));
    EXPECT_EQ(StringKey(std::string_view("ab\0cd", 5)), StringKey("ab"));
    EXPECT_EQ(StringKey(""), StringKey("        "));
    EXPECT_NE(StringKey("abcdefg"), StringKey("abcdefgh"));
    MURV_USE_LOCALE(guard, "en_US.UTF-8");
    EXPECT_EQ(std::string(StringKey("abcdefg\xC3\xA9").data(), 8), "abcdefg ") << "never cuts a character";
}

TEST(ValueLabelSharing, CopiesShareUntilOneChanges)
{
    MURV_ValueLabelMap a = Numeric({1});
    MURV_ValueLabelMap b = a;
    EXPECT_EQ(a.BodyIdentity(), b.BodyIdentity());

    b.SetLabel(NumericKey(2), "two");
    EXPECT_NE(a.BodyIdentity(), b.BodyIdentity());
    EXPECT_EQ(a.Count(), 1u);
    EXPECT_EQ(b.Count(), 2u);

    // Equal contents built apart are not the same body.
    EXPECT_NE(a.BodyIdentity(), Numeric({1}).BodyIdentity());

    // An unshared body is changed in place.
    const void* body = b.BodyIdentity();
    b.SetLabel(NumericKey(3), "three");
    EXPECT_EQ(b.BodyIdentity(), body);
}

TEST(ValueLabelSharing, NullAndEmptyHandles)
{
    MURV_ValueLabelMap none(nullptr);
    EXPECT_FALSE(none.HasBody());
    EXPECT_EQ(none.Count(), 0u);
    EXPECT_EQ(none.GetLabel(NumericKey(1)), nullptr);
    EXPECT_TRUE(none.Entries().empty());

    EXPECT_TRUE(MURV_ValueLabelMap().HasBody());

    none.SetLabel(NumericKey(4), "four");
    EXPECT_TRUE(none.HasBody());
    EXPECT_EQ(*none.GetLabel(NumericKey(4)), "four");
}

}  // namespace
}  // namespace murv
