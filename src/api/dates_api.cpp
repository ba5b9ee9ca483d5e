// Date variables: the dataset's date-variable declaration handed in and out
// as one flat array of int32.
//
//   0  series flag (1 set, anything else clear on input)
//   1  flag value
//   2  n, the number of date variables (0 to 10)
//   3  second series integer
//   4  first series integer
//   5  1 on output; ignored on input
//   6 + 3k, 7 + 3k, 8 + 3k: entry k's case position + 1 (in 8-byte cells),
//      kind, extra integer
//
// On input the array carries n triples, or n + 1 when the date-key entry
// follows the date variables; on output it always carries n + 1.
#include <cstdint>
#include <cstdlib>

#include "api/alloc.h"
#include "api/handles.h"
#include "model/trendsinfo.h"

using namespace murv;
using namespace murv::api;

namespace {

constexpr int kHeaderElements = 6;

// Dictionary index of the variable whose case starts at cell `cell`, or -1.
// Start cells rise with the dictionary order.
int VariableAtCell(const MURV_DataSource& ds, long cell) {
    const ObsLayout& layout = ds.GetObsLayout();
    long lo = 0, hi = static_cast<long>(ds.ColumnCount());
    while (lo < hi) {
        const long mid = lo + (hi - lo) / 2;
        const long start = layout.StartCell(mid);
        if (start == cell) return static_cast<int>(mid);
        if (start < cell)
            lo = mid + 1;
        else
            hi = mid;
    }
    return -1;
}

// The current dictionary index of an entry's variable, found again by its
// identity if it has moved; -1 when it has none or is gone.
int CurrentIndex(const MURV_DataSource& ds, const MURV_TrendsInfo::Entry& entry) {
    if (entry.kind == MURV_TrendsInfo::e_NONE) return -1;
    if (entry.varIndex >= 0 && static_cast<std::size_t>(entry.varIndex) < ds.ColumnCount() &&
        ds.GetVariable(entry.varIndex).GetID() == entry.id)
        return entry.varIndex;
    return ds.GetIndexOfID(entry.id);
}

}  // namespace

extern "C" {

MURV_API int MURV_CALL murvSetDateVariables(int handle, int numofElements, const int* dateInfo) {
    return WithHandle(handle, dictionaryOpen, MURV_RC_BAD_HANDLE, [&](dioDataSource* ds) {
        if (numofElements < kHeaderElements || !dateInfo) return MURV_RC_BAD_DATE_INFO;
        const long long n = dateInfo[2];
        if (numofElements != kHeaderElements + 3 * n && numofElements != kHeaderElements + 3 * (n + 1))
            return MURV_RC_BAD_DATE_INFO;
        // The interface has no code of its own for a count above 10 (or below
        // 0) or for a kind outside the table; the array is malformed, so they
        // take the code for a bad date-information array. All of this is
        // checked before the declaration changes.
        if (n < 0 || n >= MURV_TrendsInfo::eMaxDateVars) return MURV_RC_BAD_DATE_INFO;
        const int nDateVars = static_cast<int>(n);
        const int nTriples = (numofElements - kHeaderElements) / 3;

        struct Triple {
            int index;
            int kind;
            int extra;
        };
        Triple triples[MURV_TrendsInfo::eMaxDateVars];
        for (int k = 0; k < nTriples; ++k) {
            const int* t = dateInfo + kHeaderElements + 3 * k;
            const int kind = t[1];
            const bool dateKeyEntry = k == nDateVars;
            if (dateKeyEntry ? (kind != MURV_TrendsInfo::e_NONE && kind != MURV_TrendsInfo::e_DATKEY)
                             : (kind < MURV_TrendsInfo::e_NONE || kind > MURV_TrendsInfo::e_DATKEY))
                return MURV_RC_BAD_DATE_INFO;
            int index = -1;
            // An entry without a kind names no variable, so that an array read
            // out (whose date-key triple is 0, 0, 1 when there is no date key)
            // can be handed back as it is.
            if (kind != MURV_TrendsInfo::e_NONE) {
                index = VariableAtCell(*ds, static_cast<long>(t[0]) - 1);
                if (index < 0) return MURV_RC_BAD_DATE_INFO;
            }
            triples[k] = {index, kind, t[2]};
        }

        MURV_TrendsInfo& trends = ds->GetTrendsInfo();
        trends.SetDataSource(ds);
        trends.Reset(false);
        trends.SetNDateVars(nDateVars);
        trends.SetSeriesIntegers(dateInfo[4], dateInfo[3]);
        trends.SetSeriesFlag(dateInfo[0] == 1, dateInfo[1]);
        for (int k = 0; k < nTriples; ++k) {
            if (!trends.SetDateVar(k, triples[k].index, triples[k].kind, triples[k].extra)) {
                trends.Reset(true);
                return MURV_RC_BAD_DATE_INFO;
            }
        }
        // Names and types: each kind needs its own variable name, numeric
        // counters and a string date key. A declaration that fails is dropped.
        if (!trends.Validate()) return MURV_RC_BAD_DATE_INFO;
        return MURV_RC_OK;
    });
}

MURV_API int MURV_CALL murvGetDateVariables(int handle, int* numofElements, int** dateInfo) {
    if (numofElements) *numofElements = 0;
    if (dateInfo) *dateInfo = nullptr;
    int* array = nullptr;
    const int rc = Guarded(MURV_RC_FILE_READ, [&] {
        dioDataSource* ds = nullptr;
        const int code = lookupFileHandle(handle, &ds);
        if (code != MURV_RC_OK) return code;
        if (!numofElements || !dateInfo) return MURV_RC_FILE_READ;
        const MURV_TrendsInfo& trends = ds->GetTrendsInfo();
        const int n = trends.NDateVars();
        if (n <= 0) return MURV_RC_NO_DATE_INFO;
        const int count = kHeaderElements + 3 * (n + 1);
        array = AllocArray<int>(static_cast<std::size_t>(count));
        if (!array) return MURV_RC_NO_MEMORY;
        int first = 1, second = 1;
        trends.GetSeriesIntegers(&first, &second);
        array[0] = trends.GetSeriesFlag() ? 1 : 0;
        array[1] = trends.GetSeriesFlagValue();
        array[2] = n;
        array[3] = second;
        array[4] = first;
        array[5] = 1;
        const auto& entries = trends.Entries();
        for (int k = 0; k <= n; ++k) {
            int* t = array + kHeaderElements + 3 * k;
            if (static_cast<std::size_t>(k) >= entries.size()) {
                t[0] = 0, t[1] = 0, t[2] = 1;
                continue;
            }
            const MURV_TrendsInfo::Entry& entry = entries[static_cast<std::size_t>(k)];
            const int index = CurrentIndex(*ds, entry);
            t[0] = index < 0 ? 0 : static_cast<int>(ds->GetObsLayout().StartCell(index) + 1);
            t[1] = entry.kind;
            t[2] = entry.extra;
        }
        *numofElements = count;
        *dateInfo = array;
        return MURV_RC_OK;
    });
    if (rc != MURV_RC_OK) {
        std::free(array);
        if (numofElements) *numofElements = 0;
        if (dateInfo) *dateInfo = nullptr;
    }
    return rc;
}

MURV_API int MURV_CALL murvFreeDateVariables(int* dateInfo) {
    std::free(dateInfo);
    return MURV_RC_OK;
}

}  // extern "C"
