// One pass over the cases of a file for the summaries (freq, stats): the
// records are read on a second thread, the weight of each case is found, and
// a case that cannot be read ends the pass without losing what was counted.
#pragma once

#include <algorithm>
#include <climits>
#include <cmath>
#include <memory>
#include <system_error>
#include <cstring>
#include <thread>

#include "murv.h"
#include "pipe.h"

namespace murv {

// System-missing, the lowest finite double, compared inline in the loops
// over every value.
constexpr double kSysmisValue = -1.7976931348623157e308;

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
        if (!(w > 0) || !std::isfinite(w) || IsUserMissing(var->missing, w)) {  // system-missing is below 0
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

// Hands every whole case record of the file to use(state, record) and
// returns how many there were. `parts` holds one state on entry. A plain file
// of many cases is read in as many parts as there are processors (at most
// 8), each by its own handle and thread into a copy of the state, which the
// caller then merges into the first; any other file is read on a second
// thread and used on this one. A case that cannot be read ends its part:
// the message (cases numbered from 1; the first such case) goes into
// `failure`, so that the caller can show what it counted and then fail.
template <class State, class Use>
std::int64_t ScanCases(const ReadHandle& h, const FileMeta& m, std::vector<State>& parts, Use&& use,
                       std::string& failure) {
    Progress progress("reading cases", m.cases);
    constexpr std::int64_t kMinPart = 50000;
    const std::size_t recordBytes = static_cast<std::size_t>(m.caseSize > 0 ? m.caseSize : 8);
    const std::int64_t processors = std::max(1u, std::min(8u, std::thread::hardware_concurrency()));
    const std::int64_t count = m.compression == 0 && m.cases > 0 ? std::clamp<std::int64_t>(m.cases / kMinPart, 1, processors) : 1;
    if (count > 1) {
        const std::int64_t n = m.cases;
        parts.resize(static_cast<std::size_t>(count), parts.front());
        std::vector<std::int64_t> read(static_cast<std::size_t>(count), 0), failedAt(static_cast<std::size_t>(count), -1);
        std::vector<std::string> errors(static_cast<std::size_t>(count));
        auto work = [&](std::size_t i) {
            const std::int64_t first = n * static_cast<std::int64_t>(i) / count;
            // The last part goes on to the end, past the stated count if the
            // file holds more.
            const std::int64_t end = static_cast<std::int64_t>(i) + 1 == count ? INT64_MAX : n * static_cast<std::int64_t>(i + 1) / count;
            std::int64_t c = first;
            try {
                std::unique_ptr<ReadHandle> own;
                if (i) own = std::make_unique<ReadHandle>(m.path);
                const int handle = i ? own->get() : h.get();
                const int seek = murvSeekNextCase(handle, static_cast<int>(first));
                if (seek != MURV_RC_OK) {
                    failedAt[i] = c;
                    errors[i] = DamageText(m, c, seek);
                    return;
                }
                std::vector<char> record(recordBytes);
                for (; c < end; ++c) {
                    const int rc = murvWholeCaseIn(handle, record.data());
                    // A part that meets the end before its last case has
                    // found where the file is cut; the last part's end is
                    // weighed against the stated count below.
                    if (rc == MURV_RC_END_OF_FILE && static_cast<std::int64_t>(i) + 1 == count) break;
                    if (rc != MURV_RC_OK) {
                        failedAt[i] = c;
                        errors[i] = DamageText(m, c, rc);
                        break;
                    }
                    use(parts[i], record.data());
                    ++read[i];
                    if (i == 0) progress.Update(read[0] * count);
                }
            } catch (const std::exception& e) {
                failedAt[i] = c;
                errors[i] = e.what();
            }
        };
        std::vector<std::thread> threads;
        try {
            for (std::size_t i = 1; i < parts.size(); ++i) threads.emplace_back(work, i);
        } catch (const std::system_error& e) {
            for (std::thread& t : threads) t.join();
            throw Failure(kExitIo, std::string("starting a thread: ") + e.what());
        }
        work(0);
        for (std::thread& t : threads) t.join();
        progress.Finish();
        std::int64_t total = 0;
        for (std::size_t i = 0; i < parts.size(); ++i) {
            total += read[i];
            if (failedAt[i] >= 0 && failure.empty()) failure = errors[i];
        }
        if (failure.empty()) failure = DamageText(m, total, MURV_RC_END_OF_FILE);
        return total;
    }

    RecordPipe pipe(recordBytes);
    std::thread reader([&] {
        try {
            for (std::int64_t c = 0;; ++c) {
                char* const record = pipe.Slot();
                const int rc = murvWholeCaseIn(h.get(), record);
                if (rc == MURV_RC_END_OF_FILE || rc > 0) pipe.Unfill();
                if (rc == MURV_RC_END_OF_FILE || rc > 0) {
                    // Fewer or more cases than stated are damage too.
                    const std::string damage = DamageText(m, c, rc);
                    if (!damage.empty()) throw Failure(kExitDamaged, damage);
                    break;
                }
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
            use(parts.front(), record);
            progress.Update(++done);
        });
    } catch (const Failure& f) {
        pipe.Stop();
        reader.join();
        if (f.exit != kExitDamaged) throw;
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
