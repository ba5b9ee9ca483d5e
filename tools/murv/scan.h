// One pass over the cases of a file for the summaries (freq, stats): the
// records are read on a second thread, the weight of each case is found, and
// a case that cannot be read ends the pass without losing what was counted.
#pragma once

#include <cmath>
#include <cstring>
#include <thread>

#include "murv.h"
#include "pipe.h"

namespace murv {

inline bool IsUserMissing(const MissingValues& m, double v) {
    switch (m.format) {
        case 1: return v == m.numbers[0];
        case 2: return v == m.numbers[0] || v == m.numbers[1];
        case 3: return v == m.numbers[0] || v == m.numbers[1] || v == m.numbers[2];
        case -2: return v >= m.numbers[0] && v <= m.numbers[1];
        case -3: return (v >= m.numbers[0] && v <= m.numbers[1]) || v == m.numbers[2];
        default: return false;
    }
}

inline bool IsUserMissing(const MissingValues& m, std::string_view s) {
    for (int i = 0; i < m.format && i < 3; ++i)
        if (s == m.texts[i]) return true;
    return false;
}

inline double NumberAt(const char* record, std::size_t offset) {
    double d;
    std::memcpy(&d, record + offset, sizeof d);
    return d;
}

// The weight variable of a file, if it has one and it is to be used.
struct Weighting {
    const Variable* var = nullptr;
    std::int64_t excluded = 0;  // cases left out: weight missing, zero or negative
    // The weight of a case, or 0 when the case is left out. Cases whose weight
    // is missing (system- or user-missing), zero, negative or not a number
    // count for nothing, as in weighted analyses generally.
    double Of(const char* record) {
        if (!var) return 1;
        const double w = NumberAt(record, var->offset);
        if (!(w > 0) || IsSysmis(w) || !std::isfinite(w) || IsUserMissing(var->missing, w)) {
            ++excluded;
            return 0;
        }
        return w;
    }
};

inline Weighting WeightOf(const FileMeta& m, bool unweighted) {
    Weighting w;
    if (unweighted || m.weight.empty()) return w;
    for (const Variable& v : m.vars)
        if (v.type == 0 && TrimRight(v.name) == TrimRight(m.weight)) w.var = &v;
    return w;
}

// Hands every whole case record of the file to use(record), in order, and
// returns how many there were. A case that cannot be read ends the pass: the
// message (with cases numbered from 1) goes into `failure`, so that the
// caller can show what it counted and then fail.
template <class F>
std::int64_t ScanCases(const ReadHandle& h, const FileMeta& m, F&& use, std::string& failure) {
    Progress progress("reading cases", m.cases);
    RecordPipe pipe(static_cast<std::size_t>(m.caseSize > 0 ? m.caseSize : 8));
    std::thread reader([&] {
        try {
            for (std::int64_t c = 0;; ++c) {
                char* const record = pipe.Slot();
                const int rc = murvWholeCaseIn(h.get(), record);
                if (rc == MURV_RC_END_OF_FILE || rc > 0) pipe.Unfill();
                if (rc == MURV_RC_END_OF_FILE) break;
                if (rc > 0)
                    throw Failure(kExitLibrary, m.path + ": case " + std::to_string(c + 1) +
                                                    (m.cases >= 0 ? " of the " + std::to_string(m.cases) + " the header states" : "") +
                                                    " cannot be read; the file is damaged or cut short (" + DescribeCode(rc) + ")");
            }
            pipe.Done(nullptr);
        } catch (const RecordPipe::Stopped&) {
            pipe.Done(nullptr);
        } catch (...) {
            pipe.Done(std::current_exception());
        }
    });
    std::int64_t done = 0;
    try {
        pipe.Drain([&](const char* record) {
            use(record);
            progress.Update(++done);
        });
    } catch (const Failure& f) {
        pipe.Stop();
        reader.join();
        if (f.exit != kExitLibrary) throw;
        failure = f.what();
    } catch (...) {
        pipe.Stop();
        reader.join();
        throw;
    }
    if (reader.joinable()) reader.join();
    progress.Finish();
    return done;
}

// Aligned text tables (table.cpp): each row a list of cells; a column is as
// wide as its widest cell (in characters of UTF-8 text); right[k] aligns
// column k to the right. Trailing blanks are not written.
void AppendTable(std::string& out, const std::vector<std::vector<std::string>>& rows, const std::vector<bool>& right,
                 const std::string& indent = "");

// Percent and count texts of the summaries.
std::string Fixed(double v, int decimals);

}  // namespace murv
