#include "model/trendsinfo.h"

#include <gtest/gtest.h>

#include <array>

#include "unit/model/test_datasource.h"

namespace murv {
namespace {

using test::MemoryDataSource;

// The declaration as reading a file changes it: variables move when long
// strings are joined, and a variable gone or renamed undoes the declaration
// (the interface tests cover the codes of the calls themselves). A deleted
// date key is only cleared; any other loss drops every entry.
TEST(TrendsInfo, EntriesFollowTheirVariablesAndLossesUndoTheDeclaration)
{
    MemoryDataSource ds;
    const int year = ds.Add(0, "YEAR_"), month = ds.Add(0, "MONTH_"), key = ds.Add(20, "DATE_");
    MURV_TrendsInfo& info = ds.GetTrendsInfo();
    ASSERT_TRUE(info.SetNDateVars(2));
    ASSERT_TRUE(info.SetDateVar(0, year, MURV_TrendsInfo::e_YEAR, 11));
    ASSERT_TRUE(info.SetDateVar(1, month, MURV_TrendsInfo::e_MONTH, 12));
    ASSERT_TRUE(info.SetDateVar(2, key, MURV_TrendsInfo::e_DATKEY, 13));
    info.SetSeriesFlag(true, 4);

    ds.InsertVariable(0, MURV_Variable(0));
    EXPECT_TRUE(info.Validate());
    int index = -1, kind = -1, extra = 0;
    info.GetDateVar(0, &index, nullptr, nullptr);
    EXPECT_EQ(index, year + 1);
    info.GetDateVar(2, &index, nullptr, nullptr);
    EXPECT_EQ(index, key + 1);
    // A copy of the dataset validates against itself.
    MemoryDataSource copy(ds);
    copy.GetVariable(year + 1).SetName("YR");
    EXPECT_FALSE(copy.GetTrendsInfo().Validate());
    EXPECT_TRUE(info.Validate());

    ds.RemoveVariables(key + 1, key + 1);
    EXPECT_FALSE(info.Validate());
    EXPECT_EQ(info.NDateVars(), 2);
    ASSERT_TRUE(info.GetDateVar(2, &index, &kind, &extra));
    EXPECT_EQ((std::array{index, kind, extra}), (std::array{-1, int(MURV_TrendsInfo::e_NONE), 1}));
    EXPECT_TRUE(info.Validate());

    ds.RemoveVariables(year + 1, year + 1);
    EXPECT_FALSE(info.Validate());
    EXPECT_EQ(info.NDateVars(), 0);
    EXPECT_FALSE(info.GetDateVar(0, nullptr, nullptr, nullptr));
    EXPECT_TRUE(info.GetSeriesFlag());  // the series flag stays
    EXPECT_EQ(info.GetSeriesFlagValue(), 4);
}

}  // namespace
}  // namespace murv
