// Date variables: which variables of a dataset count the periods of a time
// series (year, quarter, month, ...), of what kind each is, and a few
// series-wide settings.
//
// Each kind requires its variable to carry one exact (upper-cased) name and a
// type: the kinds 1-10 are numeric counters, the date key (11) is a string.
// The declaration holds up to 10 date variables and, after them, one entry
// for the optional date key.
#pragma once

#include <vector>

#include "model/variable.h"

namespace murv {

class MURV_DataSource;

class MURV_TrendsInfo {
public:
    enum Kind : int {
        e_NONE = 0,
        e_CYCLE = 1,
        e_YEAR = 2,
        e_QUARTER = 3,
        e_MONTH = 4,
        e_WEEK = 5,
        e_DAY = 6,
        e_HOUR = 7,
        e_MINUTE = 8,
        e_SECOND = 9,
        e_OBS = 10,
        e_DATKEY = 11
    };
    // Counts of date variables stay below this.
    enum : int { eMaxDateVars = 11 };

    struct Entry {
        MURV_VariableID id;
        int varIndex = -1;
        int kind = e_NONE;
        int extra = 1;
    };

    explicit MURV_TrendsInfo(MURV_DataSource* dataSource = nullptr);
    MURV_TrendsInfo(const MURV_TrendsInfo&) = default;
    MURV_TrendsInfo& operator=(const MURV_TrendsInfo&) = default;
    virtual ~MURV_TrendsInfo();

    // The dataset whose variables the entries name; not owned.
    void SetDataSource(MURV_DataSource* dataSource) { fpDataSource = dataSource; }
    MURV_DataSource* GetDataSource() const { return fpDataSource; }

    // Starts a declaration of n date variables, all entries empty (the series
    // settings are kept as Reset(true) keeps them). A count below 0 or of
    // eMaxDateVars or more changes nothing and answers false: the count may
    // come from a file or a client.
    bool SetNDateVars(int n);
    int NDateVars() const { return fData.fnDateVars; }

    // Sets entry i: a date variable for i < NDateVars(), the date key (kind
    // e_DATKEY or e_NONE only) for i == NDateVars(). Kind e_NONE stores only
    // the kind. Otherwise the entry takes the variable's index and ID. False,
    // with nothing changed, for an index outside the declaration, a kind not
    // allowed at the date-key entry, or a variable index that the dataset
    // does not have.
    bool SetDateVar(int i, int varIndex, int kind, int extra);
    // Entry i for 0 <= i <= NDateVars(); false outside, outputs untouched.
    bool GetDateVar(int i, int* varIndex, int* kind, int* extra) const;
    const std::vector<Entry>& Entries() const { return fData.fVars; }

    // Two integers of the series that are stored and returned as given.
    void SetSeriesIntegers(int first, int second);
    void GetSeriesIntegers(int* first, int* second) const;
    void SetSeriesFlag(bool flag, int value);
    bool GetSeriesFlag() const { return fData.fSeriesFlag; }
    int GetSeriesFlagValue() const { return fData.fFlagValue; }

    // Re-resolves every entry against the dataset (a variable found again by
    // its ID if it has moved) and checks names and types. A declaration with
    // any entry that no longer qualifies is dropped whole (Reset(true)) and
    // the answer is false; a date key whose variable is gone is only cleared,
    // also answering false.
    bool Validate();

    // Drops the declaration. Keeping settings keeps the series flag and, when
    // it is set, its value; both series integers go back to 1 either way.
    void Reset(bool keepSettings);

    // The name a variable of a kind must have, or null for e_NONE and codes
    // that are no kind.
    static const char* RequiredName(int kind);

private:
    struct Data {
        int fnDateVars = 0;
        // fnDateVars + 1 entries, the last one for the date key; empty when
        // no declaration was started.
        std::vector<Entry> fVars;
        int fFirstSeriesInteger = 1;
        int fSecondSeriesInteger = 1;
        bool fSeriesFlag = false;
        int fFlagValue = 1;
    };

    MURV_DataSource* fpDataSource;
    Data fData;
};

}  // namespace murv
