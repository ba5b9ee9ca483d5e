// Variables, and the dictionary of a dataset that holds them.
#include "model/datasource.h"
#include "model/variable.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/locale_guard.h"
#include "unit/model/test_datasource.h"

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

using test::MemoryDataSource;
using Ints = std::vector<int>;

// Every start cell follows from the dictionary's types.
void ExpectLayoutMatchesDictionary(const MURV_DataSource& ds)
{
    ObsLayout expected;
    for (std::size_t i = 0; i < ds.ColumnCount(); ++i) expected.AddColumn(ds.GetVariable(int(i)).GetType());
    EXPECT_TRUE(ds.GetObsLayout() == expected);
    EXPECT_EQ(ds.CaseSize(), expected.Total());
}

// The indexes the dictionary finds for names, then the weight's index.
Ints Lookups(const MURV_DataSource& ds, std::initializer_list<const char*> names)
{
    Ints found;
    for (const char* name : names) found.push_back(ds.GetVarIndex(name));
    found.push_back(ds.GetWeightVarIndex());
    return found;
}

TEST(ObsLayout, CellsPerWidthAndStarts)
{
    for (const auto& [type, cells] : {std::pair{0, 1u}, {8, 1u}, {9, 2u}, {256, 32u}, {257, 33u}, {32767, 4096u}})
        EXPECT_EQ(CellsForType(type), cells) << type;
    ObsLayout layout;
    for (int type : {1, 8, 9, 255, 256, 0}) layout.AddColumn(type);
    std::vector<long> starts;
    for (std::size_t i = 0; i < layout.ColumnCount(); ++i) starts.push_back(layout.StartCell(long(i)));
    EXPECT_EQ(starts, (std::vector<long>{0, 1, 2, 4, 36, 68}));
    EXPECT_EQ(layout.StartCell(-1), -1);
    EXPECT_EQ(layout.StartCell(6), 69);
    EXPECT_EQ(layout.LastWidth(), 1u);
    EXPECT_EQ(ObsLayout().StartCell(0), 0);
}

// Reading a file joins long-string segments by removing and inserting
// variables: names, IDs, the weight and the layout (its starts, total and
// last width, against one built afresh) must follow.
TEST(Dictionary, LookupsLayoutAndWeightFollowEveryChange)
{
    MemoryDataSource ds;
    for (const auto& [type, name] : {std::pair{0, "a"}, {9, "b"}, {16, "c"}, {0, "d"}}) ds.Add(type, name);
    ds.SetWeightVar(3);
    ds.GetVariable(2).SetName("renamed");  // through a reference into the dictionary
    EXPECT_EQ(Lookups(ds, {"c", "renamed"}), (Ints{-1, 2, 3}));

    MURV_Variable inserted(20);
    inserted.SetName("new");
    ds.InsertVariable(0, inserted);
    EXPECT_EQ(Lookups(ds, {"renamed"}), (Ints{3, 4}));
    EXPECT_EQ(ds.GetIndexOfID(inserted.GetID()), 0);
    ExpectLayoutMatchesDictionary(ds);

    const MURV_VariableID idOfB = ds.GetVariable(2).GetID();
    ds.RemoveVariables(0, 1);
    ds.RemoveVariables(2, 1);  // an empty range removes nothing
    EXPECT_EQ(Lookups(ds, {"new", "b"}), (Ints{-1, 0, 2}));
    EXPECT_EQ((Ints{ds.GetIndexOfID(idOfB), ds.GetIndexOfID(inserted.GetID())}), (Ints{0, -1}));
    EXPECT_EQ(ds.ColumnCount(), 3u);
    ExpectLayoutMatchesDictionary(ds);

    // A handle re-pointed through a reference changes name and ID at once.
    MURV_Variable other(0);
    other.SetName("other");
    const MURV_VariableID idOfD = ds.GetVariable(2).GetID();
    ds.GetVariable(2) = other;
    EXPECT_EQ(ds.GetVarIndex("d"), -1);
    EXPECT_EQ((Ints{ds.GetIndexOfID(idOfD), ds.GetIndexOfID(other.GetID()), ds.GetIndexOfID(MURV_VariableID())}),
              (Ints{-1, 2, -1}));
    ds.RemoveVariables(2, 2);
    ExpectLayoutMatchesDictionary(ds);
    EXPECT_EQ(ds.GetWeightVarIndex(), -1);  // the weight went with its variable
    ds.SetWeightVar(5);                      // outside the dictionary: no weight
    EXPECT_EQ(ds.GetWeightVarIndex(), -1);

    // A variable of this very dictionary may be appended or inserted again.
    ds.RemoveVariables(0, int(ds.ColumnCount()) - 1);
    ExpectLayoutMatchesDictionary(ds);  // empty: no cells, no last width
    ds.Add(100, "long");
    for (int i = 0; i < 20; ++i) ds.AppendVariable(ds.GetVariable(0));
    ds.InsertVariable(1, ds.GetVariable(0));
    EXPECT_EQ(ds.CaseSize(), 22u * 13u);
    ds.InsertVariable(22, MURV_Variable(24));  // at the end
    ExpectLayoutMatchesDictionary(ds);

    // Enough names for the lookup tables to grow many times.
    for (int i = 0; i < 5000; ++i) ds.Add(i % 7 == 0 ? 12 : 0, ("VAR" + std::to_string(i)).c_str());
    for (int i = 0; i < 5000; ++i) ASSERT_EQ(ds.GetVarIndex("var" + std::to_string(i)), i + 23);
    for (int i = 0; i < 5000; i += 97) ASSERT_EQ(ds.GetIndexOfID(ds.GetVariable(i + 23).GetID()), i + 23);
    ExpectLayoutMatchesDictionary(ds);
}

TEST(Dictionary, CopiesAreSnapshots)
{
    MemoryDataSource parent;
    for (const auto& [type, name] : {std::pair{0, "x"}, {12, "s"}}) parent.Add(type, name);
    parent.SetWeightVar(0);
    parent.SetExtension(3, 4, 1, "abcd");

    MemoryDataSource child(parent);
    EXPECT_EQ(child.GetTrendsInfo().GetDataSource(), &child);
    child.GetVariable(0).SetName("changed");
    child.AddVariable(0);
    EXPECT_EQ(parent.GetVarIndex("changed"), -1);
    EXPECT_EQ(parent.ColumnCount(), 2u);
    EXPECT_EQ(parent.NumberOfCases(), -1);  // a dataset without a file knows no count

    MemoryDataSource target;
    target.Add(0, "old");
    target.CopyDictionary(parent);
    EXPECT_EQ(Lookups(target, {"old", "s"}), (Ints{-1, 1, 0}));
    EXPECT_TRUE(target.HasExtension(3));
    EXPECT_EQ(target.GetTrendsInfo().GetDataSource(), &target);
    EXPECT_EQ(target.GetObsLayout(), parent.GetObsLayout());
}

// What the interface's extension calls do not reach: appending to a block
// shared with an earlier handle, unit sizes below 1, and types from files.
TEST(ExtensionTable, SharedBodiesUnitSizesAndHugeTypes)
{
    MemoryDataSource ds;
    ds.SetExtension(7, 4, 3, "abcdefghijkl");
    const MURV_Extension ext = ds.GetExtension(7);
    ds.AppendExtension(7, 1, "mnop");
    EXPECT_EQ(ds.GetExtension(7).Contents(), "abcdefghijklmnop");
    EXPECT_EQ(ext.NElements(), 3u);
    ds.SetExtension(7, 1, 0, nullptr);
    EXPECT_FALSE(ds.HasExtension(7));
    EXPECT_EQ(ds.GetExtension(7).NElements(), 0u);
    char buffer[4];
    EXPECT_EQ(MURV_Extension().ReadElements(buffer, sizeof buffer), 0u);

    ds.SetExtension(2, 0, 2, "xy");  // a unit size below 1 counts as 1
    EXPECT_EQ(ds.GetExtension(2).UnitSize(), 1);
    ds.StoreExtension(ext);
    EXPECT_EQ(ds.GetExtension(7).Contents(), "abcdefghijkl");
    ds.StoreExtension(MURV_Extension(7, 4, 0, nullptr));
    EXPECT_FALSE(ds.HasExtension(7));
    ds.SetExtension(2000000000, 1, 1, "y");  // must not make a huge table
    ds.SetExtension(0, 80, 1, std::string(80, 'd').c_str());
    EXPECT_EQ(ds.ExtensionTypes(), (std::vector<int>{0, 2, 2000000000}));
    EXPECT_FALSE(ds.HasExtension(-1));
}

TEST(DictionaryIndex, PositionsPerCell)
{
    MemoryDataSource ds;
    for (const auto& [type, name] : {std::pair{0, "a"}, {20, "b"}, {0, "c"}}) ds.Add(type, name);
    DictionaryIndex index(ds);
    EXPECT_EQ(index.Size(), 5u);
    Ints found;
    for (long position = -3; position <= 6; ++position) found.push_back(index.IndexAt(position));
    EXPECT_EQ(found, (Ints{-1, -1, -1, -1, 0, 1, -1, -1, 2, -1}));
    ds.InsertVariable(0, MURV_Variable(9));
    index.Rebuild();
    EXPECT_EQ(index.Size(), 7u);
    EXPECT_EQ(index.IndexAt(3), 1);
}

}  // namespace
}  // namespace murv
