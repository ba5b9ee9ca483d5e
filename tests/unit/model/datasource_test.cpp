#include "model/datasource.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cstring>
#include <string>
#include <vector>

#include "model/datetime.h"
#include "support/locale_guard.h"
#include "unit/model/test_datasource.h"

namespace murv {
namespace {

using test::MemoryDataSource;

std::vector<long> Starts(const ObsLayout& layout)
{
    std::vector<long> starts;
    for (std::size_t i = 0; i < layout.ColumnCount(); ++i) starts.push_back(layout.StartCell(long(i)));
    return starts;
}

ObsLayout LayoutOf(std::initializer_list<int> types)
{
    ObsLayout layout;
    for (int type : types) layout.AddColumn(type);
    return layout;
}

// Every start cell follows from the dictionary's types.
void ExpectLayoutMatchesDictionary(const MURV_DataSource& ds)
{
    const ObsLayout& layout = ds.GetObsLayout();
    ASSERT_EQ(layout.ColumnCount(), ds.ColumnCount());
    long cell = 0;
    for (std::size_t i = 0; i < ds.ColumnCount(); ++i) {
        EXPECT_EQ(layout.StartCell(long(i)), cell) << "variable " << i;
        cell += CellsForType(ds.GetVariable(int(i)).GetType());
    }
    EXPECT_EQ(layout.Total(), std::uint32_t(cell));
    EXPECT_EQ(ds.CaseSize(), std::uint32_t(cell));
    EXPECT_EQ(layout.LastWidth(),
              ds.ColumnCount() ? CellsForType(ds.GetVariable(int(ds.ColumnCount() - 1)).GetType()) : 0u);
}

TEST(ObsLayout, CellsPerWidth)
{
    for (const auto& [type, cells] : {std::pair{0, 1u}, {1, 1u}, {8, 1u}, {9, 2u}, {255, 32u}, {256, 32u}, {257, 33u},
                                      {32767, 4096u}})
        EXPECT_EQ(CellsForType(type), cells) << type;

    const ObsLayout layout = LayoutOf({1, 8, 9, 255, 256, 0});
    EXPECT_EQ(Starts(layout), (std::vector<long>{0, 1, 2, 4, 36, 68}));
    EXPECT_EQ(layout.Total(), 69u);
    EXPECT_EQ(layout.ColumnCells(4), 32u);
    EXPECT_EQ(layout.StartCell(-1), -1);
    EXPECT_EQ(layout.StartCell(6), 69);
}

TEST(ObsLayout, InsertAndRemoveColumns)
{
    // A layout of the types given, changed by an insertion (type at a
    // position) or a removal (first..last), and what it becomes.
    const struct {
        std::initializer_list<int> types;
        bool insert;
        long a, b;
        std::vector<long> starts;
        std::uint32_t total, lastWidth;
    } cases[] = {
        {{0, 8, 9, 0}, true, 1, 20, {0, 1, 4, 5, 7}, 8, 1},
        {{0, 8, 9, 0}, true, 4, 24, {0, 1, 2, 4, 5}, 8, 3},  // at the end
        {{0, 8, 9, 0}, false, 1, 2, {0, 1}, 2, 1},
        {{0, 24}, false, 1, 1, {0}, 1, 1},
        {{16, 0, 40}, false, 1, 2, {0}, 2, 2},
        {{9, 0}, false, 0, 1, {}, 0, 0},
    };
    for (const auto& c : cases) {
        ObsLayout layout = LayoutOf(c.types);
        if (c.insert)
            layout.InsertColumn(static_cast<std::size_t>(c.a), static_cast<int>(c.b));
        else
            layout.RemoveColumns(c.a, c.b);
        EXPECT_EQ(Starts(layout), c.starts) << c.a << ' ' << c.b;
        EXPECT_EQ(layout.Total(), c.total) << c.a << ' ' << c.b;
        EXPECT_EQ(layout.LastWidth(), c.lastWidth) << c.a << ' ' << c.b;
    }
    EXPECT_EQ(ObsLayout().StartCell(0), 0);
}

TEST(Dictionary, LookupByNameIgnoresCaseAndBlanks)
{
    MemoryDataSource ds;
    ds.Add(0, "Age");
    ds.Add(8, "name");
    ds.Add(0, "AGE");  // the model itself keeps no names unique
    for (const auto& [name, index] : {std::pair<std::string_view, int>{"age", 0}, {"NAME   ", 1}, {"  name", 1},
                                      {"nam", -1}, {"", -1}, {std::string_view("name\0xyz", 8), 1}})
        EXPECT_EQ(ds.GetVarIndex(name), index) << name;

    const std::string longName(64, 'q');
    ds.Add(0, longName.c_str());
    EXPECT_EQ(ds.GetVarIndex(longName + "tail"), 3);
}

TEST(Dictionary, LookupsFollowEveryChange)
{
    MemoryDataSource ds;
    for (const char* name : {"a", "b", "c", "d"}) ds.Add(0, name);
    EXPECT_EQ(ds.GetVarIndex("c"), 2);

    // Renamed through a reference into the dictionary.
    ds.GetVariable(2).SetName("renamed");
    EXPECT_EQ(ds.GetVarIndex("c"), -1);
    EXPECT_EQ(ds.GetVarIndex("renamed"), 2);

    MURV_Variable inserted(4);
    inserted.SetName("new");
    ds.InsertVariable(0, inserted);
    EXPECT_EQ(ds.GetVarIndex("new"), 0);
    EXPECT_EQ(ds.GetVarIndex("renamed"), 3);
    EXPECT_EQ(ds.GetIndexOfID(inserted.GetID()), 0);

    const MURV_VariableID idOfB = ds.GetVariable(2).GetID();
    ds.RemoveVariables(0, 1);
    EXPECT_EQ(ds.GetVarIndex("new"), -1);
    EXPECT_EQ(ds.GetVarIndex("a"), -1);
    EXPECT_EQ(ds.GetVarIndex("b"), 0);
    EXPECT_EQ(ds.GetIndexOfID(idOfB), 0);
    EXPECT_EQ(ds.GetIndexOfID(inserted.GetID()), -1);

    // A handle re-pointed through a reference changes name and ID at once.
    MURV_Variable other(0);
    other.SetName("other");
    const MURV_VariableID idOfD = ds.GetVariable(2).GetID();
    ds.GetVariable(2) = other;
    EXPECT_EQ(ds.GetVarIndex("d"), -1);
    EXPECT_EQ(ds.GetVarIndex("other"), 2);
    EXPECT_EQ(ds.GetIndexOfID(idOfD), -1);
    EXPECT_EQ(ds.GetIndexOfID(other.GetID()), 2);
    EXPECT_EQ(ds.GetIndexOfID(MURV_VariableID()), -1);
}

TEST(Dictionary, LookupUsesTheLocalesCaseMapping)
{
    MURV_USE_LOCALE(guard, "en_US.UTF-8");
    MemoryDataSource ds;
    ds.Add(0, "caf\xC3\xA9");
    EXPECT_EQ(ds.GetVarIndex("CAF\xC3\x89"), 0);
}

TEST(Dictionary, InsertAndRemoveKeepTheLayout)
{
    MemoryDataSource ds;
    ds.Add(0, "n1");
    ds.Add(8, "s8");
    ds.Add(9, "s9");
    ds.Add(0, "n2");
    ExpectLayoutMatchesDictionary(ds);

    MURV_Variable first(20);
    ds.InsertVariable(0, first);
    EXPECT_EQ(ds.GetObsLayout().StartCell(1), 3);
    ExpectLayoutMatchesDictionary(ds);
    ds.InsertVariable(int(ds.ColumnCount()), MURV_Variable(300));
    ExpectLayoutMatchesDictionary(ds);

    ds.RemoveVariables(1, 2);
    ExpectLayoutMatchesDictionary(ds);
    ds.RemoveVariables(2, 1);  // an empty range removes nothing
    EXPECT_EQ(ds.ColumnCount(), 4u);
    ds.RemoveVariables(int(ds.ColumnCount()) - 1, int(ds.ColumnCount()) - 1);
    ExpectLayoutMatchesDictionary(ds);
    ds.RemoveVariables(0, int(ds.ColumnCount()) - 1);
    ExpectLayoutMatchesDictionary(ds);
    EXPECT_EQ(ds.CaseSize(), 0u);

    // A variable of this very dictionary may be appended or inserted again.
    ds.Add(100, "long");
    for (int i = 0; i < 20; ++i) ds.AppendVariable(ds.GetVariable(0));
    ds.InsertVariable(1, ds.GetVariable(0));
    ExpectLayoutMatchesDictionary(ds);
    EXPECT_EQ(ds.CaseSize(), 22u * 13u);
}

TEST(Dictionary, WeightVariable)
{
    MemoryDataSource ds;
    ds.Add(0, "a");
    ds.Add(0, "w");
    ds.SetWeightVar(1);
    ds.RemoveVariables(0, 0);
    EXPECT_EQ(ds.GetWeightVarIndex(), 0);
    ds.SetWeightVar(1);  // outside the dictionary: no weight
    EXPECT_EQ(ds.GetWeightVarIndex(), -1);
    ds.SetWeightVar(0);
    ds.RemoveVariables(0, 0);
    EXPECT_EQ(ds.GetWeightVarIndex(), -1);
}

TEST(DatasetItems, StringsAndTimeStamp)
{
    MemoryDataSource ds;
    EXPECT_EQ(ds.GetIdString(), nullptr);
    ds.SetIdString("label");
    ds.SetIdString(static_cast<const char*>(nullptr));
    EXPECT_EQ(ds.GetIdString(), nullptr);
    ds.SetIdString("");
    ASSERT_NE(ds.GetIdString(), nullptr);
    EXPECT_EQ(*ds.GetIdString(), "");


    double from = 0, to = 0;
    ASSERT_TRUE(DateTimeValue(1, 1, 2020, 0, 0, 0, &from));
    ASSERT_TRUE(DateTimeValue(1, 1, 2200, 0, 0, 0, &to));
    EXPECT_GT(ds.GetTimeStamp(), from);
    EXPECT_LT(ds.GetTimeStamp(), to);

    EXPECT_EQ(ds.NumberOfCases(), -1);
}

TEST(DatasetItems, FillWithMissing)
{
    MemoryDataSource ds;
    ds.Add(0, "n");
    ds.Add(10, "s");
    ds.Add(0, "m");
    std::vector<char> buffer(ds.CaseSize() * kCellSize, 'z');
    ds.FillWithMissing(buffer.data(), 0, 2);
    double value;
    std::memcpy(&value, buffer.data(), 8);
    EXPECT_EQ(value, -DBL_MAX);
    EXPECT_EQ(std::string(buffer.data() + 8, 16), std::string(16, ' '));
    EXPECT_EQ(std::string(buffer.data() + 24, 8), std::string(8, 'z'));
    ds.FillWithMissing(buffer.data(), 2, 1);
    std::memcpy(&value, buffer.data() + 24, 8);
    EXPECT_EQ(value, -DBL_MAX);
}

TEST(DatasetItems, CopiesAreSnapshots)
{
    MemoryDataSource parent;
    parent.Add(0, "x");
    parent.Add(12, "s");
    parent.SetWeightVar(0);
    parent.SetIdString("id");
    parent.SetExtension(3, 4, 1, "abcd");

    MemoryDataSource child(parent);
    EXPECT_EQ(child.GetWeightVarIndex(), 0);
    EXPECT_EQ(child.GetTrendsInfo().GetDataSource(), &child);
    child.GetVariable(0).SetName("changed");
    child.AddVariable(0);
    EXPECT_EQ(parent.GetVariable(0).GetName(), "x");
    EXPECT_EQ(parent.GetVarIndex("changed"), -1);
    EXPECT_EQ(parent.ColumnCount(), 2u);

    // CopyDictionary takes everything.
    MemoryDataSource target;
    target.Add(0, "old");
    target.CopyDictionary(parent);
    EXPECT_EQ(target.GetVarIndex("old"), -1);
    EXPECT_EQ(target.GetVarIndex("s"), 1);
    EXPECT_EQ(*target.GetIdString(), "id");
    EXPECT_EQ(target.GetWeightVarIndex(), 0);
    EXPECT_TRUE(target.HasExtension(3));
    EXPECT_EQ(target.GetTrendsInfo().GetDataSource(), &target);
    EXPECT_EQ(target.GetObsLayout(), parent.GetObsLayout());
    EXPECT_EQ(target.GetVariable(1).GetID(), parent.GetVariable(1).GetID());
}

TEST(ExtensionTable, SetGetAppendAndEmpty)
{
    MemoryDataSource ds;
    EXPECT_FALSE(ds.HasExtension(7));
    const char bytes[] = "abcdefghijkl";
    ds.SetExtension(7, 4, 3, bytes);
    MURV_Extension ext = ds.GetExtension(7);
    EXPECT_EQ(ext.UnitSize(), 4);
    EXPECT_EQ(ext.NElements(), 3u);

    // Whole elements only, then nothing once the record is read.
    char buffer[10] = {};
    EXPECT_EQ(ext.ReadElements(buffer, sizeof buffer), 2u);
    EXPECT_EQ(std::string(buffer, 8), "abcdefgh");
    EXPECT_EQ(ext.ReadElements(buffer, sizeof buffer), 1u);
    EXPECT_EQ(std::string(buffer, 4), "ijkl");
    EXPECT_EQ(ext.ReadElements(buffer, sizeof buffer), 0u);

    // Appending copies a shared body: the earlier handle keeps its own.
    ds.AppendExtension(7, 1, "mnop");
    EXPECT_EQ(ds.GetExtension(7).Contents(), "abcdefghijklmnop");
    EXPECT_EQ(ext.NElements(), 3u);
    ds.SetExtension(7, 1, 0, nullptr);
    EXPECT_FALSE(ds.HasExtension(7));
    EXPECT_EQ(ds.GetExtension(7).Type(), 7);
    EXPECT_EQ(ds.GetExtension(7).NElements(), 0u);
    EXPECT_EQ(ext.NElements(), 3u);
    EXPECT_EQ(MURV_Extension().Type(), -1);
    EXPECT_EQ(MURV_Extension().ReadElements(buffer, sizeof buffer), 0u);

    ds.SetExtension(2, 0, 2, "xy");  // a unit size below 1 counts as 1
    EXPECT_EQ(ds.GetExtension(2).UnitSize(), 1);
    ds.StoreExtension(ext);
    EXPECT_EQ(ds.GetExtension(7).Contents(), "abcdefghijkl");
    ds.StoreExtension(MURV_Extension(7, 4, 0, nullptr));
    EXPECT_FALSE(ds.HasExtension(7));

    // Types come from files: a huge one must not make a huge table.
    ds.SetExtension(2000000000, 1, 1, "y");
    ds.SetExtension(0, 80, 1, std::string(80, 'd').c_str());
    EXPECT_EQ(ds.ExtensionTypes(), (std::vector<int>{0, 2, 2000000000}));
    EXPECT_FALSE(ds.HasExtension(-1));
}

TEST(DictionaryIndex, PositionsPerCell)
{
    MemoryDataSource ds;
    ds.Add(0, "a");
    ds.Add(20, "b");
    ds.Add(0, "c");
    DictionaryIndex index(ds);
    EXPECT_EQ(index.Size(), 5u);
    const int expected[] = {0, 1, -1, -1, 2};
    for (int position = 1; position <= 5; ++position)
        EXPECT_EQ(index.IndexAt(position), expected[position - 1]) << position;
    EXPECT_EQ(index.IndexAt(0), -1);
    EXPECT_EQ(index.IndexAt(6), -1);
    EXPECT_EQ(index.IndexAt(-3), -1);

    ds.InsertVariable(0, MURV_Variable(9));
    index.Rebuild();
    EXPECT_EQ(index.Size(), 7u);
    EXPECT_EQ(index.IndexAt(3), 1);
}

TEST(Dictionary, HundredThousandVariablesStayFast)
{
    MemoryDataSource ds;
    const int count = 100000;
    for (int i = 0; i < count; ++i) ds.Add(i % 7 == 0 ? 12 : 0, ("VAR" + std::to_string(i)).c_str());
    for (int i = 0; i < count; ++i) ASSERT_EQ(ds.GetVarIndex("var" + std::to_string(i)), i);
    for (int i = 0; i < count; i += 97) ASSERT_EQ(ds.GetIndexOfID(ds.GetVariable(i).GetID()), i);
    ExpectLayoutMatchesDictionary(ds);
}

}  // namespace
}  // namespace murv
