#include "model/trendsinfo.h"

#include "model/datasource.h"
#include "port/assert.h"

namespace murv {

MURV_TrendsInfo::MURV_TrendsInfo(MURV_DataSource* dataSource) : fpDataSource(dataSource) {}

MURV_TrendsInfo::~MURV_TrendsInfo() = default;

const char* MURV_TrendsInfo::RequiredName(int kind)
{
    static const char* const kNames[] = {nullptr,    "CYCLE_", "YEAR_",   "QUARTER_",
                                         "MONTH_",   "WEEK_",  "DAY_",    "HOUR_",
                                         "MINUTE_",  "SECOND_", "OBS_",   "DATE_"};
    if (kind <= e_NONE || kind > e_DATKEY) return nullptr;
    return kNames[kind];
}

bool MURV_TrendsInfo::SetNDateVars(int n)
{
    if (n < 0 || n >= eMaxDateVars) return false;
    Reset(true);
    fData.fnDateVars = n;
    fData.fVars.assign(static_cast<std::size_t>(n) + 1, Entry{});
    return true;
}

bool MURV_TrendsInfo::SetDateVar(int i, int varIndex, int kind, int extra)
{
    if (i < 0 || fData.fVars.empty()) return false;
    if (!(i < fData.fnDateVars || (i == fData.fnDateVars && (kind == e_DATKEY || kind == e_NONE))))
        return false;
    Entry& entry = fData.fVars[static_cast<std::size_t>(i)];
    if (kind == e_NONE) {
        entry.kind = e_NONE;
        return true;
    }
    MURV_VariableID id;
    if (fpDataSource) {
        if (varIndex < 0 || static_cast<std::size_t>(varIndex) >= fpDataSource->ColumnCount()) return false;
        id = fpDataSource->GetVariable(varIndex).GetID();
    }
    entry.varIndex = varIndex;
    entry.id = id;
    entry.kind = kind;
    entry.extra = extra;
    return true;
}

bool MURV_TrendsInfo::GetDateVar(int i, int* varIndex, int* kind, int* extra) const
{
    if (i < 0 || i > fData.fnDateVars || fData.fVars.empty()) return false;
    const Entry& entry = fData.fVars[static_cast<std::size_t>(i)];
    if (varIndex) *varIndex = entry.varIndex;
    if (kind) *kind = entry.kind;
    if (extra) *extra = entry.extra;
    return true;
}

void MURV_TrendsInfo::SetSeriesIntegers(int first, int second)
{
    fData.fFirstSeriesInteger = first;
    fData.fSecondSeriesInteger = second;
}

void MURV_TrendsInfo::GetSeriesIntegers(int* first, int* second) const
{
    if (first) *first = fData.fFirstSeriesInteger;
    if (second) *second = fData.fSecondSeriesInteger;
}

void MURV_TrendsInfo::SetSeriesFlag(bool flag, int value)
{
    fData.fSeriesFlag = flag;
    fData.fFlagValue = value;
}

void MURV_TrendsInfo::Reset(bool keepSettings)
{
    fData.fnDateVars = 0;
    fData.fVars.clear();
    fData.fFirstSeriesInteger = 1;
    fData.fSecondSeriesInteger = 1;
    if (!keepSettings) {
        fData.fSeriesFlag = false;
        fData.fFlagValue = 1;
    } else if (!fData.fSeriesFlag) {
        fData.fFlagValue = 1;
    }
}

bool MURV_TrendsInfo::Validate()
{
    MURV_ASSERT(fpDataSource);
    bool result = true;
    if (fData.fnDateVars == 0 || fData.fVars.empty()) return result;
    const MURV_DataSource& ds = *fpDataSource;
    bool problem = false;
    for (int i = 0; i <= fData.fnDateVars && !problem; ++i) {
        Entry& entry = fData.fVars[static_cast<std::size_t>(i)];
        if (entry.kind == e_NONE) continue;
        const bool stale = entry.varIndex < 0 ||
                           static_cast<std::size_t>(entry.varIndex) >= ds.ColumnCount() ||
                           ds.GetVariable(entry.varIndex).GetID() != entry.id;
        if (stale) {
            const int found = ds.GetIndexOfID(entry.id);
            if (found < 0) {
                if (i == fData.fnDateVars) {
                    entry = Entry{};
                    result = false;
                } else {
                    problem = true;
                }
                continue;
            }
            entry.varIndex = found;
        }
        const MURV_Variable& var = ds.GetVariable(entry.varIndex);
        const char* required = RequiredName(entry.kind);
        const bool wantString = entry.kind == e_DATKEY;
        if (required == nullptr || var.GetUpperName() != required || (var.GetType() != 0) != wantString)
            problem = true;
    }
    if (problem) {
        Reset(true);
        return false;
    }
    return result;
}

}  // namespace murv
