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

// "A:B": cases A (inclusive) to B (exclusive), numbered from 0; either side may
// be left out.
void ParseRange(const std::string& text, std::int64_t& first, std::int64_t& end) {
    first = 0;
    end = -1;
    if (text.empty()) return;
    const std::size_t colon = text.find(':');
    auto number = [&](const std::string& s, std::int64_t& out) {
        if (s.empty()) return;
        std::size_t used = 0;
        long long v = -1;
        try {
            v = std::stoll(s, &used);
        } catch (...) {
            used = 0;
        }
        if (used != s.size() || v < 0) throw Failure(kExitUsage, "--cases: not a range of case numbers: " + text);
        out = v;
    };
    if (colon == std::string::npos) throw Failure(kExitUsage, "--cases: expected A:B, got " + text);
    number(text.substr(0, colon), first);
    number(text.substr(colon + 1), end);
    if (end >= 0 && end < first) throw Failure(kExitUsage, "--cases: the range ends before it starts: " + text);
}

struct Column {
    const Variable* var;
    bool date;
    std::unordered_map<double, std::string> numberLabels;
    std::map<std::string, std::string, std::less<>> textLabels;
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
    ParseRange(opt.cases, first, end);

    std::vector<Column> cols;
    cols.reserve(sel.size());
    for (std::size_t i : sel) {
        const Variable& v = m.vars[i];
        Column c{&v, v.type == 0 && IsDateFormat(v.print.type), {}, {}};
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
        std::size_t longest = c.var->type == 0 ? 48 : static_cast<std::size_t>(c.var->type);
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
    if (form != Form::kJson) {
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
                    if (form == Form::kJson) p = static_cast<char*>(std::memcpy(p, "null", 4)) + 4;
                    continue;
                }
                if (!col.numberLabels.empty()) {
                    auto it = col.numberLabels.find(d);
                    if (it != col.numberLabels.end()) {
                        p = putText(p, it->second);
                        continue;
                    }
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
                if (it != col.textLabels.end()) s = it->second;
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
