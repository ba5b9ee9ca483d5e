// `murv cat`: the cases of a file as CSV, TSV or JSON lines.
#include <cmath>
#include <cstring>
#include <map>
#include <thread>
#include <unordered_map>

#include "murv.h"
#include "pipe.h"

namespace murv {

namespace {

// --cases by the rules of Python's slices: "A:B" from A up to (not
// including) B, "N" the one case N, both counted from 0; a negative number
// counts back from the end ("-10:" the last ten). Ends beyond the file are
// cut to it and an empty range gives no cases; a single case beyond the file
// is refused. Steps ("A:B:C") are refused. Negative numbers need the case
// count: when the header does not state it, the cases are counted first.
void CaseSlice(const ReadHandle& h, const FileMeta& m, const std::string& text, std::int64_t& first, std::int64_t& end) {
    first = 0;
    end = -1;
    if (text.empty()) return;
    const std::size_t colon = text.find(':');
    if (colon != std::string::npos && text.find(':', colon + 1) != std::string::npos)
        throw Failure(kExitUsage, "--cases: a step is not supported: " + text);
    bool given[2] = {false, false};
    std::int64_t at[2] = {0, 0};
    const std::string parts[2] = {text.substr(0, colon), colon == std::string::npos ? "" : text.substr(colon + 1)};
    for (int i = 0; i < 2; ++i) {
        if (parts[i].empty()) continue;
        std::size_t used = 0;
        try {
            at[i] = std::stoll(parts[i], &used);
        } catch (...) {
            used = 0;
        }
        if (used != parts[i].size()) throw Failure(kExitUsage, "--cases: not a case number or range: " + text);
        given[i] = true;
    }
    if (colon == std::string::npos && !given[0]) throw Failure(kExitUsage, "--cases: not a case number or range: " + text);
    std::int64_t count = m.cases;
    if (count < 0 && ((given[0] && at[0] < 0) || (given[1] && at[1] < 0))) {
        count = 0;
        for (;;) {
            const int rc = murvReadCaseRecord(h.get());
            if (rc == MURV_RC_END_OF_FILE) break;
            Check(rc, m.path, "counting the cases (case " + std::to_string(count + 1) + ")");
            ++count;
        }
        Check(murvSeekNextCase(h.get(), 0), m.path, "going back to the first case");
    }
    auto resolve = [&](std::int64_t v) {
        if (v < 0) v += count;
        return v < 0 ? 0 : (count >= 0 && v > count) ? count : v;
    };
    if (colon == std::string::npos) {
        const std::int64_t n = at[0] < 0 ? at[0] + count : at[0];
        if (n < 0 || (count >= 0 && n >= count))
            throw Failure(kExitUsage, "--cases " + text + ": the file has " + std::to_string(count) + " cases");
        first = n;
        end = n + 1;
        return;
    }
    first = given[0] ? resolve(at[0]) : 0;
    end = given[1] ? std::max(first, resolve(at[1])) : -1;
}

struct Column {
    const Variable* var;
    bool date;
    std::unordered_map<double, std::string> numberLabels;
    std::map<std::string, std::string, std::less<>> textLabels;
    bool grouped = false;  // a print format that may write commas (COMMA, DOLLAR, DOT, currencies)
};

// Field writers into a buffer with room for the whole row.
char* PutCsv(char* p, std::string_view s, char delim) {
    bool quote = false;
    for (char c : s)
        if (c == delim || c == '"' || c == '\n' || c == '\r') {
            quote = true;
            break;
        }
    if (!quote) {
        std::memcpy(p, s.data(), s.size());
        return p + s.size();
    }
    *p++ = '"';
    for (char c : s) {
        if (c == '"') *p++ = '"';
        *p++ = c;
    }
    *p++ = '"';
    return p;
}

char* PutTsv(char* p, std::string_view s) {
    for (char c : s) {
        switch (c) {
            case '\t': *p++ = '\\'; *p++ = 't'; break;
            case '\n': *p++ = '\\'; *p++ = 'n'; break;
            case '\r': *p++ = '\\'; *p++ = 'r'; break;
            case '\\': *p++ = '\\'; *p++ = '\\'; break;
            default: *p++ = c;
        }
    }
    return p;
}

char* PutJson(char* p, std::string_view s, std::string& scratch) {
    scratch.clear();
    AppendJsonString(scratch, s);
    std::memcpy(p, scratch.data(), scratch.size());
    return p + scratch.size();
}

}  // namespace

int RunCat(const CatOptions& opt) {
    ReadHandle h(opt.file);
    const FileMeta m = LoadMeta(h, Detail::kCases);
    const std::vector<std::size_t> sel = SelectVars(m, opt.vars);
    std::int64_t first = 0, end = -1;
    CaseSlice(h, m, opt.cases, first, end);
    if (opt.limit >= 0) {
        const std::int64_t limit = std::min<std::int64_t>(opt.limit, std::int64_t{1} << 50);  // no overflow below
        if (end < 0 || end - first > limit) end = first + limit;
    }

    std::vector<Column> cols;
    cols.reserve(sel.size());
    for (std::size_t i : sel) {
        const Variable& v = m.vars[i];
        Column c{&v, v.type == 0 && IsDateFormat(v.print.type), {}, {}};
        c.grouped = v.print.type == 3 || v.print.type == 4 || (v.print.type >= 32 && v.print.type <= 37);
        if (opt.labels) {
            for (const auto& [value, label] : v.numberLabels) c.numberLabels.emplace(value, label);
            for (const auto& [value, label] : v.textLabels) c.textLabels.emplace(value, label);
        }
        cols.push_back(std::move(c));
    }

    // A damaged stretch of the file met on the way: reported after every
    // whole case before it is written out.
    std::string damage;
    if (first > 0) {
        if (first > 0x7FFFFFFF) throw Failure(kExitUsage, "--cases: case number too large");
        const int rc = murvSeekNextCase(h.get(), static_cast<int>(first));
        if (rc > 0) damage = DamageText(m, first, rc);
    }

    using Form = CatOptions::Form;
    const Form form = opt.form;
    const char delim = form == Form::kTsv ? '\t' : ',';
    // JSON keys, made once.
    std::vector<std::string> keys;
    if (form == Form::kJson)
        for (const Column& c : cols) {
            std::string k;
            AppendJsonString(k, c.var->name);
            k.push_back(':');
            keys.push_back(std::move(k));
        }
    // The most bytes one row can take: every byte of a text escaped (JSON's
    // \u00XX is six), numbers and dates within 48.
    std::size_t maxRow = 4;
    for (std::size_t k = 0; k < cols.size(); ++k) {
        const Column& c = cols[k];
        std::size_t longest = c.var->type == 0 ? (opt.formatted ? kFormattedMax : 48)
                                               : static_cast<std::size_t>(c.var->type) * (opt.formatted ? 2 : 1);
        longest = std::max(longest, opt.null.size());
        for (const auto& l : c.numberLabels) longest = std::max(longest, l.second.size());
        for (const auto& l : c.textLabels) longest = std::max(longest, l.second.size());
        maxRow += 6 * longest + 4 + (keys.empty() ? 0 : keys[k].size()) + 6 * c.var->name.size();
    }
    constexpr std::size_t kFlush = 1 << 20;
    std::vector<char> buf(kFlush + maxRow);
    char* const begin = buf.data();
    char* p = begin;
    auto flush = [&] {
        const std::size_t n = static_cast<std::size_t>(p - begin);
        if (n && std::fwrite(begin, 1, n, stdout) != n)
            throw Failure(kExitIo, std::string("writing the output: ") + std::strerror(errno));
        p = begin;
    };
    std::string scratch;
    if (form != Form::kJson && opt.header) {
        for (std::size_t k = 0; k < cols.size(); ++k) {
            if (k) *p++ = delim;
            p = form == Form::kCsv ? PutCsv(p, cols[k].var->name, delim) : PutTsv(p, cols[k].var->name);
        }
        *p++ = '\n';
    }

    std::int64_t total = -1;
    if (m.cases >= 0) total = (end >= 0 ? std::min<std::int64_t>(end, m.cases) : m.cases) - first;
    Progress progress("reading cases", total);
    std::string field;
    std::int64_t done = 0;
    auto putText = [&](char* q, std::string_view s) {
        return form == Form::kCsv ? PutCsv(q, s, delim) : form == Form::kTsv ? PutTsv(q, s) : PutJson(q, s, scratch);
    };
    auto PutRow = [&](const char* record) {
        if (form == Form::kJson) *p++ = '{';
        for (std::size_t k = 0; k < cols.size(); ++k) {
            const Column& col = cols[k];
            const Variable& v = *col.var;
            const char* cell = record + v.offset;
            if (form == Form::kJson) {
                if (k) *p++ = ',';
                std::memcpy(p, keys[k].data(), keys[k].size());
                p += keys[k].size();
            } else if (k) {
                *p++ = delim;
            }
            if (v.type == 0) {
                double d;
                std::memcpy(&d, cell, sizeof d);
                if (IsSysmis(d)) {
                    if (form == Form::kJson)
                        p = static_cast<char*>(std::memcpy(p, "null", 4)) + 4;
                    else if (!opt.null.empty())  // as given in TSV, where \N is the usual mark
                        p = form == Form::kCsv ? PutCsv(p, opt.null, delim)
                                               : static_cast<char*>(std::memcpy(p, opt.null.data(), opt.null.size())) + opt.null.size();
                    continue;
                }
                if (!col.numberLabels.empty()) {
                    auto it = col.numberLabels.find(d);
                    if (it != col.numberLabels.end()) {
                        p = putText(p, it->second);
                        continue;
                    }
                }
                if (opt.formatted) {
                    // Written in place: formatted text holds no quote, backslash,
                    // tab or line end, so only CSV's delimiter (in grouped
                    // numbers) needs the field quoted.
                    const bool json = form == Form::kJson;
                    char* const start = json ? p + 1 : p;
                    char* const stop = WriteFormatted(start, v.print, d);
                    if (json) {
                        *p = '"';
                        *stop = '"';
                        p = stop + 1;
                    } else if (form == Form::kCsv && col.grouped && std::memchr(start, delim, static_cast<std::size_t>(stop - start))) {
                        const std::string text(start, stop);
                        p = PutCsv(p, text, delim);
                    } else {
                        p = stop;
                    }
                    continue;
                }
                if (col.date) {
                    field.clear();
                    if (AppendIsoDate(field, v.print.type, d)) {
                        p = form == Form::kJson ? PutJson(p, field, scratch)
                                                : static_cast<char*>(std::memcpy(p, field.data(), field.size())) + field.size();
                        continue;
                    }
                }
                if (form == Form::kJson && !std::isfinite(d))
                    p = static_cast<char*>(std::memcpy(p, "null", 4)) + 4;
                else
                    p = WriteNumber(p, d);
                continue;
            }
            std::string_view s = TrimRight(std::string_view(cell, static_cast<std::size_t>(v.type)));
            if (!col.textLabels.empty()) {
                auto it = col.textLabels.find(s);
                if (it != col.textLabels.end()) {
                    p = putText(p, it->second);
                    continue;
                }
            }
            if (opt.formatted && v.print.type == 2) {  // AHEX
                field.resize(static_cast<std::size_t>(v.type) * 2);
                s = std::string_view(field.data(), static_cast<std::size_t>(
                    WriteHex(field.data(), std::string_view(cell, static_cast<std::size_t>(v.type)), v.print.width) - field.data()));
            }
            p = putText(p, s);
        }
        if (form == Form::kJson) *p++ = '}';
        *p++ = '\n';
        if (static_cast<std::size_t>(p - begin) >= kFlush) flush();
        progress.Update(++done);
    };
    // The cases are read on a second thread while this one writes them out.
    RecordPipe pipe(static_cast<std::size_t>(m.caseSize > 0 ? m.caseSize : 8));
    std::thread reader([&] {
        try {
            std::int64_t c = first;
            int rc = MURV_RC_OK;
            for (; damage.empty() && (end < 0 || c < end); ++c) {
                char* const record = pipe.Slot();
                rc = murvWholeCaseIn(h.get(), record);
                if (rc != MURV_RC_OK) {
                    pipe.Unfill();  // no case there
                    break;
                }
            }
            // Past the stated count by a seek, an end says nothing of the
            // cases skipped over.
            const bool pastStated = rc == MURV_RC_END_OF_FILE && c == first && m.cases >= 0 && first >= m.cases;
            if (rc != MURV_RC_OK && damage.empty() && !pastStated) damage = DamageText(m, c, rc);
            pipe.Done(nullptr);
        } catch (const RecordPipe::Stopped&) {
            pipe.Done(nullptr);
        } catch (...) {
            pipe.Done(std::current_exception());
        }
    });
    try {
        pipe.Drain([&](const char* record) { PutRow(record); });
    } catch (...) {
        pipe.Stop();
        reader.join();
        throw;
    }
    reader.join();
    progress.Finish();
    flush();
    if (std::fflush(stdout) != 0) throw Failure(kExitIo, std::string("writing the output: ") + std::strerror(errno));
    if (!damage.empty()) {
        std::fprintf(stderr, "%s\n", damage.c_str());
        return kExitDamaged;
    }
    return kExitOk;
}

}  // namespace murv
