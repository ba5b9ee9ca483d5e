// Subtype 6: the dataset's date-variable declaration as 32-bit integers.
//
//   unit 0   series flag (1 or 0)
//   unit 1   flag value
//   unit 2   n, the number of date variables
//   unit 3   second series integer
//   unit 4   first series integer
//   unit 5   1 when n >= 1 (written, never read back)
//   then one triple per entry: case position of the variable + 1 (0 for
//   none), kind, extra integer.
//
// Triples are written for the entries that have a kind; when the date-key
// entry (the last) has none, a triple 0, 0, 0 stands in its place.
#include <algorithm>
#include <vector>

#include "model/trendsinfo.h"
#include "model/datasource.h"
#include "port/errors.h"
#include "sysfile/byteorder.h"
#include "sysfile/ext/extrecord.h"
#include "sysfile/fileinfo.h"

namespace murv {

class SFExtensionTrendsInfo final : public SystemFileExtensionHandler {
public:
    void Write(MURV_DataSource& ds, SystemFileInfo&, SystemFileExtensionRecord& rec) const override {
        MURV_TrendsInfo& trends = ds.GetTrendsInfo();
        trends.SetDataSource(&ds);
        // Variables renamed, retyped or removed since the declaration was made
        // drop it here rather than reach the file.
        trends.Validate();
        const int nDateVars = trends.NDateVars();
        if (!trends.GetSeriesFlag() && nDateVars < 1) return;

        int first = 1, second = 1;
        trends.GetSeriesIntegers(&first, &second);
        std::vector<std::int32_t> units = {trends.GetSeriesFlag() ? 1 : 0, trends.GetSeriesFlagValue(), nDateVars,
                                           second, first, nDateVars >= 1 ? 1 : 0};
        if (nDateVars > 0) {
            const ObsLayout& layout = ds.GetObsLayout();
            int lastKind = MURV_TrendsInfo::e_NONE;
            for (int i = 0; i <= nDateVars; ++i) {
                int index = -1, kind = 0, extra = 0;
                if (!trends.GetDateVar(i, &index, &kind, &extra)) break;
                lastKind = kind;
                if (kind == MURV_TrendsInfo::e_NONE) continue;
                const bool known = index >= 0 && static_cast<std::size_t>(index) < ds.ColumnCount();
                units.push_back(known ? static_cast<std::int32_t>(layout.StartCell(index) + 1) : 0);
                units.push_back(kind);
                units.push_back(extra);
            }
            if (lastKind == MURV_TrendsInfo::e_NONE) units.insert(units.end(), {0, 0, 0});
        }

        std::vector<unsigned char> bytes(units.size() * 4);
        for (std::size_t i = 0; i < units.size(); ++i) StoreI32(bytes.data() + 4 * i, units[i]);
        rec.SetUnitSize(4);
        rec.SetNUnits(static_cast<std::int32_t>(units.size()));
        rec.SetContents(bytes.data());
    }

    void Read(MURV_DataSource& ds, SystemFileInfo& info, const SystemFileExtensionRecord& rec) const override {
        MURV_FILE_CHECK(rec.UnitSize() == sizeof(std::int32_t), kErrBadContent);
        const std::int32_t nElements = rec.NUnits();
        MURV_FILE_CHECK(nElements >= 6, kErrBadContent);
        const unsigned char* p = rec.Contents();
        auto unit = [&](std::int32_t i) { return LoadI32(p + 4 * static_cast<std::size_t>(i), info.byteSwapped); };

        // The declaration holds at most eMaxDateVars - 1 date variables and one
        // triple per entry (the date variables and the date key): anything
        // else is a record no writer of this format produces.
        const std::int32_t nDateVars = unit(2);
        MURV_FILE_CHECK(nDateVars >= 0 && nDateVars < MURV_TrendsInfo::eMaxDateVars, kErrBadContent);
        // Spelled without blanks: the condition's text is what a failed open
        // reports.
        MURV_FILE_CHECK(nElements >= 3*nDateVars+6, kErrBadContent);
        const std::int32_t nTriples = (nElements - 6) / 3;
        MURV_FILE_CHECK(nTriples <= nDateVars + 1, kErrBadContent);

        MURV_TrendsInfo& trends = ds.GetTrendsInfo();
        trends.SetDataSource(&ds);
        MURV_FILE_CHECK(trends.SetNDateVars(nDateVars), kErrBadContent);

        const ObsLayout& layout = ds.GetObsLayout();
        const long nVars = static_cast<long>(ds.ColumnCount());
        for (std::int32_t k = 0; k < nTriples; ++k) {
            const std::int64_t position = std::int64_t{unit(6 + 3 * k)} - 1;
            const std::int32_t kind = unit(7 + 3 * k);
            const std::int32_t extra = unit(8 + 3 * k);
            if (position < 0) continue;  // no variable: the entry stays empty
            // The first variable that starts at or after the position: the
            // start cells rise with the dictionary order.
            long lo = 0, hi = nVars;
            while (lo < hi) {
                const long mid = lo + (hi - lo) / 2;
                if (layout.StartCell(mid) < position)
                    lo = mid + 1;
                else
                    hi = mid;
            }
            const long iVar = lo;
            MURV_FILE_CHECK(iVar < nVars, kErrBadContent);
            // The date-key entry takes only the date-key kind or none.
            const bool stored = trends.SetDateVar(k, static_cast<int>(iVar), kind, extra);
            MURV_FILE_CHECK(stored, kErrBadContent);
        }
        trends.SetSeriesFlag(unit(0) != 0, unit(1));
        trends.SetSeriesIntegers(unit(4), unit(3));
    }
};

void RegisterDateVariableHandler() {
    static const SFExtensionTrendsInfo handler;
    RegisterExtensionHandler(6, &handler);
}

}  // namespace murv
