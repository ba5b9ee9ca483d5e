#include "model/variable.h"

#include <gtest/gtest.h>

#include <string>

#include "support/locale_guard.h"

namespace murv {
namespace {

// The packed word of the file: a string format's width takes two bytes, any
// other format's one; the string format ignores decimals.
TEST(VariableFormats, PackedWordLayout)
{
    EXPECT_EQ(PackFormat(MURV_Format{8, 5, 2}), 0x00050802u);
    EXPECT_EQ(UnpackFormat(0x00050802u), (MURV_Format{8, 5, 2}));
    EXPECT_EQ(UnpackFormat(PackFormat(MURV_Format{300, 5, 2})).width, 44);
    EXPECT_EQ(UnpackFormat(PackFormat(MURV_Format{1000, 1, 7})), (MURV_Format{1000, 1, 0}));
    EXPECT_EQ(MURV_Variable(300).GetPackedWriteFormat() & 0xFFFFu, 0x2C01u);
}

// Names as files give them: cut to 64 bytes (the interface tests cut ASCII
// names), at a NUL, and never inside a character.
TEST(VariableName, CutTo64BytesOnACharacterBoundary)
{
    MURV_Variable v(0);
    v.SetName("abc\0def", 7);
    EXPECT_EQ(v.GetName(), "abc");
    MURV_USE_LOCALE(guard, "en_US.UTF-8");
    v.SetName(std::string(63, 'a') + "\xC3\xA9");
    EXPECT_EQ(v.GetName(), std::string(63, 'a'));
}

// Segments of long strings change type when a file is read.
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

TEST(VariableSharing, CopiesShareUntilChanged)
{
    MURV_Variable a(0);
    a.SetName("x");
    a.SetLabel("firstXYZ", 5);
    MURV_Variable b = a;
    EXPECT_EQ(a.Body(), b.Body());
    b.SetLabel(nullptr, 0);
    EXPECT_EQ(b.GetLabel(), nullptr);
    EXPECT_EQ(*a.GetLabel(), "first");
    EXPECT_EQ(a.GetID(), b.GetID());
    const MURV_VariableImpl* body = b.Body();  // an unshared body is changed in place
    b.SetName("y");
    EXPECT_EQ(b.Body(), body);
    EXPECT_EQ(a.GetName(), "x");
    EXPECT_FALSE(MURV_Variable().IsValid());
    EXPECT_TRUE(a.GetValueLabels().Entries().empty());  // no label set at all
}

// Formats by the rules of the table: (print?, variable type, format type,
// width, decimals) and the verdict.
TEST(FormatAcceptance, RulesOfTheTable)
{
    const struct { bool print; int varType, code, width, decimals; bool ok; } rows[] = {
        // (The interface tests check the write-only format 6 and the string
        // formats 1 and 2 against a variable's type.)
        {true, 0, 5, 8, 2, true},    {true, 0, 5, 2, 2, false},   {true, 0, 5, 40, 16, true},
        {true, 0, 5, 40, 17, false}, {true, 0, 5, -1, 0, false},  {false, 0, 6, 9, 0, false},
        {false, 0, 11, 4, 1, false}, {true, 10, 1, 10, 0, true},  {true, 10, 1, 10, 1, false},
        {true, 0, 1, 8, 0, false},   {true, 10, 2, 21, 0, false}, {true, 10, 2, 256, 0, false},
        {true, 0, 2, 20, 0, false},  {true, 0, 7, 15, 0, false},  {true, 0, 12, 4, 0, true},
        // Extra width once there are decimals.
        {true, 0, 21, 5, 0, true},   {true, 0, 21, 10, 2, false}, {true, 0, 21, 11, 2, true},
        {true, 0, 22, 22, 2, false}, {true, 0, 22, 23, 2, true},  {true, 0, 25, 13, 2, false},
        {true, 0, 17, 7, 2, false},  {true, 0, 20, 9, 1, false},
    };
    for (const auto& r : rows)
        EXPECT_EQ(FormatIsAcceptable(r.print, r.varType, r.code, r.width, r.decimals), r.ok)
            << r.print << ' ' << r.varType << ' ' << r.code << ' ' << r.width << '.' << r.decimals;
    for (int code : {0, 13, 14, 18, 19, 40, 255, -1}) EXPECT_FALSE(FormatIsAcceptable(false, 0, code, 8, 0)) << code;
    for (int code = 33; code <= 37; ++code)
        EXPECT_TRUE(FormatIsAcceptable(true, 0, code, 4, 2) && !FormatIsAcceptable(true, 0, code, 3, 2)) << code;
}

}  // namespace
}  // namespace murv
