#include "model/trendsinfo.h"

#include <gtest/gtest.h>

#include "unit/model/test_datasource.h"

namespace murv {
namespace {

using test::MemoryDataSource;

class TrendsInfoTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        year = ds.Add(0, "YEAR_");
        month = ds.Add(0, "MONTH_");
        key = ds.Add(20, "DATE_");
        other = ds.Add(0, "other");
    }

    // YEAR_ and MONTH_ as date variables, DATE_ as the date key.
    void Declare()
    {
        MURV_TrendsInfo& info = ds.GetTrendsInfo();
        ASSERT_TRUE(info.SetNDateVars(2));
        ASSERT_TRUE(info.SetDateVar(0, year, MURV_TrendsInfo::e_YEAR, 11));
        ASSERT_TRUE(info.SetDateVar(1, month, MURV_TrendsInfo::e_MONTH, 12));
        ASSERT_TRUE(info.SetDateVar(2, key, MURV_TrendsInfo::e_DATKEY, 13));
    }

    MemoryDataSource ds;
    int year = -1, month = -1, key = -1, other = -1;
};

TEST_F(TrendsInfoTest, EntriesFollowTheirVariablesWhenTheyMove)
{
    Declare();
    ds.InsertVariable(0, MURV_Variable(0));
    EXPECT_TRUE(ds.GetTrendsInfo().Validate());
    int index = -1;
    ds.GetTrendsInfo().GetDateVar(0, &index, nullptr, nullptr);
    EXPECT_EQ(index, year + 1);
    ds.GetTrendsInfo().GetDateVar(2, &index, nullptr, nullptr);
    EXPECT_EQ(index, key + 1);
}

TEST_F(TrendsInfoTest, RenamingAVariableDropsTheDeclaration)
{
    Declare();
    MURV_TrendsInfo& info = ds.GetTrendsInfo();
    info.SetSeriesFlag(true, 4);
    info.SetSeriesIntegers(3, 5);
    ds.GetVariable(year).SetName("YR");
    EXPECT_FALSE(info.Validate());
    EXPECT_EQ(info.NDateVars(), 0);
    EXPECT_FALSE(info.GetDateVar(0, nullptr, nullptr, nullptr));
    EXPECT_TRUE(info.GetSeriesFlag());
    EXPECT_EQ(info.GetSeriesFlagValue(), 4);
}

TEST_F(TrendsInfoTest, WrongTypeOrKindIsAProblem)
{
    Declare();
    ds.GetVariable(month).SetType(8);
    EXPECT_FALSE(ds.GetTrendsInfo().Validate());
    EXPECT_EQ(ds.GetTrendsInfo().NDateVars(), 0);

    MemoryDataSource ds3;
    ds3.Add(0, "YEAR_");
    MURV_TrendsInfo& info3 = ds3.GetTrendsInfo();
    info3.SetNDateVars(1);
    ASSERT_TRUE(info3.SetDateVar(0, 0, 42, 1));  // no such kind
    EXPECT_FALSE(info3.Validate());
    info3.SetNDateVars(1);
    ASSERT_TRUE(info3.SetDateVar(0, 0, MURV_TrendsInfo::e_MONTH, 1));  // name of another kind
    EXPECT_FALSE(info3.Validate());
}

TEST_F(TrendsInfoTest, ADeletedDateKeyIsOnlyCleared)
{
    Declare();
    ds.RemoveVariables(key, key);
    MURV_TrendsInfo& info = ds.GetTrendsInfo();
    EXPECT_FALSE(info.Validate());
    EXPECT_EQ(info.NDateVars(), 2);
    int index = 0, kind = -1, extra = 0;
    ASSERT_TRUE(info.GetDateVar(2, &index, &kind, &extra));
    EXPECT_EQ(kind, MURV_TrendsInfo::e_NONE);
    EXPECT_EQ(index, -1);
    EXPECT_EQ(extra, 1);
    EXPECT_TRUE(info.Validate());

    // A deleted date variable drops everything.
    ds.RemoveVariables(year, year);
    EXPECT_FALSE(info.Validate());
    EXPECT_EQ(info.NDateVars(), 0);
}

TEST_F(TrendsInfoTest, OutOfRangeCountsAndIndexesAreRefused)
{
    MURV_TrendsInfo& info = ds.GetTrendsInfo();
    EXPECT_FALSE(info.SetDateVar(0, year, MURV_TrendsInfo::e_YEAR, 1));  // nothing declared
    EXPECT_FALSE(info.GetDateVar(0, nullptr, nullptr, nullptr));
    EXPECT_TRUE(info.SetNDateVars(10));
    EXPECT_EQ(info.Entries().size(), 11u);
    EXPECT_FALSE(info.SetNDateVars(11));
    EXPECT_FALSE(info.SetNDateVars(-1));
    EXPECT_EQ(info.NDateVars(), 10);  // unchanged by the refusals

    Declare();
    EXPECT_FALSE(info.SetDateVar(-1, year, MURV_TrendsInfo::e_YEAR, 1));
    EXPECT_FALSE(info.SetDateVar(3, year, MURV_TrendsInfo::e_YEAR, 1));
    EXPECT_FALSE(info.SetDateVar(2, year, MURV_TrendsInfo::e_YEAR, 1));  // date-key entry
    EXPECT_FALSE(info.SetDateVar(0, 99, MURV_TrendsInfo::e_YEAR, 1));
    EXPECT_FALSE(info.SetDateVar(0, -1, MURV_TrendsInfo::e_YEAR, 1));
    EXPECT_FALSE(info.GetDateVar(3, nullptr, nullptr, nullptr));
    EXPECT_FALSE(info.GetDateVar(-1, nullptr, nullptr, nullptr));
    EXPECT_TRUE(info.SetDateVar(2, -5, MURV_TrendsInfo::e_NONE, 1));
    EXPECT_TRUE(info.Validate());
}

TEST_F(TrendsInfoTest, CopiesOfTheDatasetValidateAgainstThemselves)
{
    Declare();
    MemoryDataSource copy(ds);
    EXPECT_EQ(copy.GetTrendsInfo().GetDataSource(), &copy);
    copy.GetVariable(year).SetName("YR");
    EXPECT_FALSE(copy.GetTrendsInfo().Validate());
    EXPECT_TRUE(ds.GetTrendsInfo().Validate());
    EXPECT_EQ(ds.GetTrendsInfo().NDateVars(), 2);

    // Without a dataset the entries carry no ID.
    MURV_TrendsInfo loose;
    loose.SetNDateVars(1);
    ASSERT_TRUE(loose.SetDateVar(0, 3, MURV_TrendsInfo::e_YEAR, 1));
    EXPECT_TRUE(loose.Entries()[0].id.IsNull());
}

}  // namespace
}  // namespace murv
