#include "model/variable.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <cstring>
#include <limits>
#include <string>

#include "support/locale_guard.h"

namespace murv {
namespace {

std::uint8_t Byte(std::uint32_t word, int n)
{
    return static_cast<std::uint8_t>(word >> (8 * n));
}

TEST(VariableDefaults, FollowTheType)
{
    const struct {
        int type;
        MURV_Format print, write;
        int columns, measure, alignment;
    } cases[] = {{0, {8, 5, 2}, {8, 5, 2}, 8, 0, 1},
                 {8, {8, 1, 0}, {8, 1, 0}, 8, 1, 0},
                 {200, {200, 1, 0}, {200, 1, 0}, 50, 1, 0},
                 {300, {300, 1, 0}, {300, 1, 0}, 50, 1, 0}};
    for (const auto& c : cases) {
        const MURV_Variable v(c.type);
        EXPECT_EQ(v.GetPrintFormat(), c.print) << c.type;
        EXPECT_EQ(v.GetWriteFormat(), c.write) << c.type;
        EXPECT_EQ(v.GetColumnWidth(), c.columns) << c.type;
        EXPECT_EQ(v.GetMeasureLevel(), c.measure) << c.type;
        EXPECT_EQ(v.GetAlignment(), c.alignment) << c.type;
        EXPECT_EQ(v.GetMissingValues(nullptr, nullptr, nullptr), 0);
        EXPECT_EQ(v.GetLabel(), nullptr);
        EXPECT_FALSE(v.GetValueLabels().HasBody());
    }
    // A string format's width takes two bytes of the packed word.
    const std::uint32_t w300 = MURV_Variable(300).GetPackedWriteFormat();
    EXPECT_EQ(Byte(w300, 0), 1);
    EXPECT_EQ(Byte(w300, 1), 44);

    MURV_Variable v(0);
    v.SetMeasureLevel(5);  // only the low two bits are kept, beside the alignment
    v.SetAlignment(2);
    EXPECT_EQ(v.GetMeasureLevel(), 1);
    EXPECT_EQ(v.GetAlignment(), 2);
}

TEST(VariableFormats, PackedWordLayout)
{
    EXPECT_EQ(PackFormat(MURV_Format{8, 5, 2}), 0x00050802u);
    EXPECT_EQ(UnpackFormat(0x00050802u), (MURV_Format{8, 5, 2}));
    // A non-string format's width is read from one byte only.
    EXPECT_EQ(UnpackFormat(PackFormat(MURV_Format{300, 5, 2})).width, 44);
    // The string format ignores decimals.
    EXPECT_EQ(UnpackFormat(PackFormat(MURV_Format{1000, 1, 7})), (MURV_Format{1000, 1, 0}));
}

TEST(VariableIDs, GeneratorCountsSerialsWithTagZero)
{
    const MURV_Variable a(0);
    const MURV_Variable b(3);
    EXPECT_EQ(a.GetID().Tag(), 0u);
    EXPECT_EQ(b.GetID().Value() - a.GetID().Value(), 16u);
    EXPECT_EQ(b.GetID().Serial(), a.GetID().Serial() + 1);
    EXPECT_EQ(MURV_VariableID().Value(), 0xFFFFFFFFu);
}

TEST(VariableName, TrailingBlanksAndLength)
{
    MURV_Variable v(0);
    v.SetName("age  ");
    EXPECT_EQ(v.GetName(), "age");
    EXPECT_EQ(v.GetUpperName(), "AGE");

    v.SetName("  lead");  // leading blanks are the interface's business
    EXPECT_EQ(v.GetName(), "  lead");

    const std::string seventy(70, 'x');
    v.SetName(seventy);
    EXPECT_EQ(v.GetName(), std::string(64, 'x'));

    v.SetName("abc\0def", 7);
    EXPECT_EQ(v.GetName(), "abc");
    v.SetName("abcdef", 2);
    EXPECT_EQ(v.GetName(), "ab");
}

TEST(VariableName, MultibyteNamesUnderUtf8)
{
    MURV_USE_LOCALE(guard, "en_US.UTF-8");
    MURV_Variable v(0);
    // 63 ASCII bytes and a two-byte character that would end at byte 65.
    const std::string name = std::string(63, 'a') + "\xC3\xA9";
    v.SetName(name);
    EXPECT_EQ(v.GetName(), std::string(63, 'a'));

    v.SetName("caf\xC3\xA9");
    EXPECT_EQ(v.GetName(), "caf\xC3\xA9");
    EXPECT_EQ(v.GetUpperName(), "CAF\xC3\x89");
}

TEST(VariableType, FormatsFollowTheNewType)
{
    MURV_Variable n(0);
    n.SetPrintFormat(3, 12, 4);
    n.SetType(0);  // the same type keeps the formats
    EXPECT_EQ(n.GetPrintFormat(), (MURV_Format{12, 3, 4}));

    MURV_Variable v(4);
    v.SetPrintFormat(2, 8, 0);
    v.SetColumnWidth(7);
    v.SetLabel("kept", 4);
    v.SetType(10);
    EXPECT_EQ(v.GetPrintFormat(), (MURV_Format{20, 2, 0}));
    EXPECT_EQ(v.GetWriteFormat(), (MURV_Format{10, 1, 0}));
    EXPECT_EQ(v.GetColumnWidth(), 7);
    EXPECT_EQ(*v.GetLabel(), "kept");

    v.SetType(126);  // 252 still fits
    EXPECT_EQ(v.GetPrintFormat(), (MURV_Format{252, 2, 0}));
    v.SetType(127);  // 254 does not
    EXPECT_EQ(v.GetPrintFormat(), (MURV_Format{127, 1, 0}));

    v.SetPrintFormat(2, 8, 0);
    v.SetType(0);
    EXPECT_EQ(v.GetPrintFormat(), (MURV_Format{8, 5, 2}));
}

TEST(VariableMissing, SlotsBeyondTheCodeAreNotReported)
{
    MURV_Variable v(0);
    const double one = 1, two = 2;
    v.SetMissingValues(2, &one, &two, nullptr);
    const char *s1 = nullptr, *s2 = nullptr, *s3 = nullptr;
    EXPECT_EQ(v.GetMissingValues(&s1, &s2, &s3), 2);
    ASSERT_NE(s2, nullptr);
    EXPECT_EQ(std::memcmp(s2, &two, 8), 0);
    EXPECT_EQ(s3, nullptr);
    v.SetMissingValues(-3, nullptr, nullptr, &two);  // a null pointer keeps its slot
    EXPECT_EQ(v.GetMissingValues(&s1, &s2, &s3), -3);
    EXPECT_EQ(std::memcmp(s1, &one, 8), 0);
}

TEST(VariableSharing, CopiesShareUntilChanged)
{
    MURV_Variable a(0);
    a.SetName("x");
    a.SetLabel("firstXYZ", 5);
    MURV_Variable b = a;
    EXPECT_EQ(a.Body(), b.Body());
    EXPECT_EQ(a.GetLabel(), b.GetLabel());  // one label string

    b.SetLabel(nullptr, 0);
    EXPECT_EQ(b.GetLabel(), nullptr);
    b.SetLabel("second", 6);
    EXPECT_NE(a.Body(), b.Body());
    EXPECT_EQ(*a.GetLabel(), "first");
    EXPECT_EQ(*b.GetLabel(), "second");
    EXPECT_EQ(a.GetID(), b.GetID());

    // An unshared body is changed in place.
    const MURV_VariableImpl* body = b.Body();
    b.SetName("y");
    EXPECT_EQ(b.Body(), body);
    EXPECT_EQ(a.GetName(), "x");

    MURV_Variable empty;
    EXPECT_FALSE(empty.IsValid());
    empty = a;
    EXPECT_TRUE(empty.IsValid());
    EXPECT_EQ(empty.Body(), a.Body());
}

TEST(VariableSharing, ValueLabelsAndAttributes)
{
    MURV_Variable a(0), b(0);
    MURV_ValueLabelMap labels;
    labels.SetLabel(NumericKey(1), "one");
    a.SetValueLabels(labels);
    b.SetValueLabels(labels);
    EXPECT_TRUE(a.GetValueLabels().BodyIdentity() == b.GetValueLabels().BodyIdentity());

    // The interface's way of adding one label: work on a copy, store it back.
    MURV_ValueLabelMap copy = a.GetValueLabels();
    copy.SetLabel(NumericKey(2), "two");
    a.SetValueLabels(copy);
    EXPECT_EQ(a.GetValueLabels().Count(), 2u);
    EXPECT_EQ(b.GetValueLabels().Count(), 1u);
    EXPECT_FALSE(a.GetValueLabels().BodyIdentity() == b.GetValueLabels().BodyIdentity());

    Attributes attributes;
    attributes.Set("Colour", {"red"});
    a.SetAttributes(attributes);
    attributes.Set("Colour", {"blue"});
    EXPECT_EQ(a.GetAttributes().Entries().at(0).values.at(0), "red");

    MURV_Variable c = a;
    c.SetAttributes(attributes);
    EXPECT_EQ(a.GetAttributes().Entries().at(0).values.at(0), "red");
}

TEST(FormatAcceptance, RulesOfTheTable)
{
    const int numeric = 0;
    EXPECT_TRUE(FormatIsAcceptable(true, numeric, 5, 8, 2));
    EXPECT_FALSE(FormatIsAcceptable(true, numeric, 5, 2, 2));  // below d+1
    EXPECT_TRUE(FormatIsAcceptable(true, numeric, 5, 40, 16));
    EXPECT_FALSE(FormatIsAcceptable(true, numeric, 5, 40, 17));
    EXPECT_FALSE(FormatIsAcceptable(true, numeric, 5, -1, 0));

    EXPECT_FALSE(FormatIsAcceptable(true, numeric, 6, 4, 0));  // write formats only
    EXPECT_TRUE(FormatIsAcceptable(false, numeric, 6, 4, 0));
    EXPECT_FALSE(FormatIsAcceptable(false, numeric, 6, 9, 0));
    EXPECT_FALSE(FormatIsAcceptable(false, numeric, 11, 4, 1));

    EXPECT_TRUE(FormatIsAcceptable(true, 10, 1, 10, 0));
    EXPECT_FALSE(FormatIsAcceptable(true, 10, 1, 9, 0));
    EXPECT_FALSE(FormatIsAcceptable(true, 10, 1, 10, 1));
    EXPECT_FALSE(FormatIsAcceptable(true, numeric, 1, 8, 0));

    EXPECT_TRUE(FormatIsAcceptable(true, 10, 2, 20, 0));
    EXPECT_FALSE(FormatIsAcceptable(true, 10, 2, 21, 0));  // odd
    EXPECT_FALSE(FormatIsAcceptable(true, 10, 2, 256, 0));
    EXPECT_FALSE(FormatIsAcceptable(true, numeric, 2, 20, 0));
    EXPECT_FALSE(FormatIsAcceptable(true, 10, 5, 8, 2));  // numeric format on a string

    EXPECT_FALSE(FormatIsAcceptable(true, numeric, 7, 15, 0));
    EXPECT_TRUE(FormatIsAcceptable(true, numeric, 12, 4, 0));

    // Extra width once there are decimals.
    EXPECT_TRUE(FormatIsAcceptable(true, numeric, 21, 5, 0));
    EXPECT_FALSE(FormatIsAcceptable(true, numeric, 21, 10, 2));
    EXPECT_TRUE(FormatIsAcceptable(true, numeric, 21, 11, 2));
    EXPECT_FALSE(FormatIsAcceptable(true, numeric, 22, 22, 2));
    EXPECT_TRUE(FormatIsAcceptable(true, numeric, 22, 23, 2));
    EXPECT_FALSE(FormatIsAcceptable(true, numeric, 25, 13, 2));
    EXPECT_FALSE(FormatIsAcceptable(true, numeric, 17, 7, 2));
    EXPECT_FALSE(FormatIsAcceptable(true, numeric, 20, 9, 1));

    for (int code : {0, 13, 14, 18, 19, 40, 255, -1})
        EXPECT_FALSE(FormatIsAcceptable(false, numeric, code, 8, 0)) << code;
    for (int code = 33; code <= 37; ++code) {
        EXPECT_TRUE(FormatIsAcceptable(true, numeric, code, 4, 2)) << code;
        EXPECT_FALSE(FormatIsAcceptable(true, numeric, code, 3, 2)) << code;
    }
}

}  // namespace
}  // namespace murv
