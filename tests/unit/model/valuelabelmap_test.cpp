#include "model/valuelabelmap.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "support/locale_guard.h"

namespace murv {
namespace {

std::vector<double> NumericWalk(MURV_ValueLabelMap& map)
{
    std::vector<double> values;
    MURV_ValueLabelMap::Key key;
    std::string label;
    map.Start();
    while (map.Next(key, label)) {
        double value;
        std::memcpy(&value, key.data(), sizeof value);
        values.push_back(value);
    }
    return values;
}

std::vector<std::string> StringWalk(MURV_ValueLabelMap& map)
{
    std::vector<std::string> values;
    MURV_ValueLabelMap::Key key;
    std::string label;
    map.Start();
    while (map.Next(key, label)) values.emplace_back(key.data(), key.size());
    return values;
}

TEST(ValueLabelOrder, NumericKeysWalkInValueOrder)
{
    MURV_ValueLabelMap map;
    map.SetNumericLabel(3, "three");
    map.SetNumericLabel(1, "one");
    map.SetNumericLabel(2, "two");
    EXPECT_EQ(NumericWalk(map), (std::vector<double>{1, 2, 3}));
    map.SetNumericLabel(2, "TWO");
    EXPECT_EQ(map.Count(), 3u);
    EXPECT_EQ(*map.GetNumericLabel(2), "TWO");

    MURV_ValueLabelMap signs;
    for (double v : {1.0, -1.0, 1e300, -2.5, 0.5, -1e300, -0.25})
        signs.SetNumericLabel(v, "x");
    EXPECT_EQ(NumericWalk(signs), (std::vector<double>{-1e300, -2.5, -1.0, -0.25, 0.5, 1.0, 1e300}));
}

TEST(ValueLabelOrder, SignedZerosAndNaNAreDistinctKeys)
{
    MURV_ValueLabelMap map;
    map.SetNumericLabel(1.0, "one");
    map.SetNumericLabel(-0.0, "minus zero");
    map.SetNumericLabel(0.0, "zero");
    map.SetNumericLabel(-1.0, "minus one");
    EXPECT_EQ(map.Count(), 4u);
    EXPECT_EQ(*map.GetNumericLabel(0.0), "zero");
    EXPECT_EQ(*map.GetNumericLabel(-0.0), "minus zero");
    const std::vector<double> walk = NumericWalk(map);
    ASSERT_EQ(walk.size(), 4u);
    EXPECT_EQ(walk[0], -1.0);
    EXPECT_EQ(walk[1], 0.0);  // the two zeros sit next to each other
    EXPECT_EQ(walk[2], 0.0);
    EXPECT_EQ(walk[3], 1.0);

    const double nan = std::numeric_limits<double>::quiet_NaN();
    map.SetNumericLabel(nan, "nan");
    map.SetNumericLabel(nan, "nan again");
    EXPECT_EQ(map.Count(), 5u);
    ASSERT_NE(map.GetNumericLabel(nan), nullptr);
    EXPECT_EQ(*map.GetNumericLabel(nan), "nan again");
    EXPECT_EQ(*map.GetNumericLabel(-1.0), "minus one");
    EXPECT_EQ(*map.GetNumericLabel(1.0), "one");
    EXPECT_EQ(map.GetNumericLabel(2.0), nullptr);
}

TEST(ValueLabelOrder, StringKeysCompareAsLittleEndianDoubles)
{
    MURV_ValueLabelMap map;
    map.SetStringLabel("b", "B");
    map.SetStringLabel("a", "A");
    EXPECT_EQ(StringWalk(map), (std::vector<std::string>{"a       ", "b       "}));

    // The last bytes weigh most: "b" beats "ab" on byte 2 before byte 1.
    MURV_ValueLabelMap two;
    two.SetStringLabel("ab", "x");
    two.SetStringLabel("b", "y");
    EXPECT_EQ(StringWalk(two), (std::vector<std::string>{"b       ", "ab      "}));

    // A high eighth byte is the sign of the double: such keys come first.
    // (Keys read from a file are raw bytes, whatever the locale says.)
    ValueLabelKey raw = StringKey("aaaaaaaa");
    raw[7] = '\xB0';
    MURV_ValueLabelMap high;
    high.SetStringLabel("aaaaaaaa", "x");
    high.SetLabel(raw, "y");
    EXPECT_EQ(StringWalk(high)[0], "aaaaaaa\xB0");
    EXPECT_LT(KeyAsLittleEndianDouble(raw), 0.0);
    EXPECT_EQ(*high.GetLabel(raw), "y");
}

TEST(ValueLabelKeys, StringKeysAreEightPaddedBytes)
{
    EXPECT_EQ(StringKey("a"), StringKey("a       "));
    EXPECT_EQ(StringKey("abcdefghXYZ"), StringKey("abcdefgh"));
    EXPECT_EQ(StringKey(std::string_view("ab\0cd", 5)), StringKey("ab"));
    EXPECT_EQ(StringKey(""), StringKey("        "));

    MURV_ValueLabelMap map;
    map.SetStringLabel("abcdefghij", "long");
    ASSERT_NE(map.GetStringLabel("abcdefghZZZZ"), nullptr);
    EXPECT_EQ(*map.GetStringLabel("abcdefgh"), "long");
    EXPECT_EQ(map.GetStringLabel("abcdefg"), nullptr);
}

TEST(ValueLabelKeys, StringKeysNeverCutACharacter)
{
    MURV_USE_LOCALE(guard, "en_US.UTF-8");
    const ValueLabelKey key = StringKey("abcdefg\xC3\xA9");
    EXPECT_EQ(std::string(key.data(), 8), "abcdefg ");
}

TEST(ValueLabelSharing, CopiesShareUntilOneChanges)
{
    MURV_ValueLabelMap a;
    a.SetNumericLabel(1, "one");
    MURV_ValueLabelMap b = a;
    EXPECT_TRUE(a.SharesBodyWith(b));
    EXPECT_EQ(a.BodyIdentity(), b.BodyIdentity());

    b.SetNumericLabel(2, "two");
    EXPECT_FALSE(a.SharesBodyWith(b));
    EXPECT_EQ(a.Count(), 1u);
    EXPECT_EQ(b.Count(), 2u);
    EXPECT_EQ(a.GetNumericLabel(2), nullptr);

    // Equal contents built apart are equal but not the same body.
    MURV_ValueLabelMap c;
    c.SetNumericLabel(1, "one");
    EXPECT_TRUE(a == c);
    EXPECT_FALSE(a.SharesBodyWith(c));
    c.SetNumericLabel(1, "uno");
    EXPECT_FALSE(a == c);

    // An unshared body is changed in place.
    const void* body = b.BodyIdentity();
    b.SetNumericLabel(3, "three");
    EXPECT_EQ(b.BodyIdentity(), body);
}

TEST(ValueLabelSharing, NullAndEmptyHandles)
{
    MURV_ValueLabelMap none(nullptr);
    EXPECT_FALSE(none.HasBody());
    EXPECT_EQ(none.Count(), 0u);
    EXPECT_EQ(none.GetNumericLabel(1), nullptr);
    none.Start();
    MURV_ValueLabelMap::Key key;
    std::string label;
    EXPECT_FALSE(none.Next(key, label));
    EXPECT_TRUE(none.Entries().empty());

    MURV_ValueLabelMap empty;
    EXPECT_TRUE(empty.HasBody());
    EXPECT_FALSE(none == empty);
    EXPECT_FALSE(empty == none);
    EXPECT_TRUE(none == MURV_ValueLabelMap(nullptr));

    none.SetNumericLabel(4, "four");
    EXPECT_TRUE(none.HasBody());
    EXPECT_EQ(*none.GetNumericLabel(4), "four");
}

TEST(ValueLabelWalk, CursorFollowsTheBodyOfItsStart)
{
    MURV_ValueLabelMap a;
    for (double v : {1.0, 2.0, 3.0}) a.SetNumericLabel(v, std::to_string(v));
    MURV_ValueLabelMap::Key key;
    std::string label;
    EXPECT_FALSE(a.Next(key, label));  // no walk started

    a.Start();
    ASSERT_TRUE(a.Next(key, label));
    // A copy made in mid-walk continues from the same place on its own.
    MURV_ValueLabelMap b = a;
    ASSERT_TRUE(b.Next(key, label));
    double value;
    std::memcpy(&value, key.data(), 8);
    EXPECT_EQ(value, 2.0);
    ASSERT_TRUE(a.Next(key, label));
    std::memcpy(&value, key.data(), 8);
    EXPECT_EQ(value, 2.0);

    // A change through another handle does not disturb the walk.
    b.SetNumericLabel(2.5, "new");
    ASSERT_TRUE(a.Next(key, label));
    std::memcpy(&value, key.data(), 8);
    EXPECT_EQ(value, 3.0);
    EXPECT_FALSE(a.Next(key, label));
    EXPECT_FALSE(a.Next(key, label));

    // A change through the walking handle ends its walk.
    a.Start();
    a.SetNumericLabel(0.5, "half");
    EXPECT_FALSE(a.Next(key, label));
    a.Start();
    const MURV_ValueLabelMap::Key* keyPtr = nullptr;
    const std::string* labelPtr = nullptr;
    ASSERT_TRUE(a.Next(keyPtr, labelPtr));
    EXPECT_EQ(*labelPtr, "half");
    EXPECT_EQ(a.Count(), 4u);
}

}  // namespace
}  // namespace murv
