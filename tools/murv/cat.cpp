// `murv cat`: the cases of a file as CSV, TSV or JSON lines.
#include <cmath>
#include <cstring>
#include <map>
#include <unordered_map>

#include "murv.h"

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

void AppendCsvField(std::string& o, std::string_view s, char delim) {
    bool quote = false;
    for (char c : s)
        if (c == delim || c == '"' || c == '\n' || c == '\r') {
            quote = true;
            break;
        }
    if (!quote) {
        o.append(s);
        return;
    }
    o.push_back('"');
    for (char c : s) {
        if (c == '"') o.push_back('"');
        o.push_back(c);
    }
    o.push_back('"');
}

void AppendTsvField(std::string& o, std::string_view s) {
    for (char c : s) {
        switch (c) {
            case '\t': o += "\\t"; break;
            case '\n': o += "\\n"; break;
            case '\r': o += "\\r"; break;
            case '\\': o += "\\\\"; break;
            default: o.push_back(c);
        }
    }
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

    if (first > 0) {
        if (first > 0x7FFFFFFF) throw Failure(kExitUsage, "--cases: case number too large");
        const int rc = murvSeekNextCase(h.get(), static_cast<int>(first));
        Check(rc, opt.file, "going to case " + std::to_string(first));
    }

    using Form = CatOptions::Form;
    const char delim = opt.form == Form::kTsv ? '\t' : ',';
    Output out;
    std::string& o = out.buf();
    if (opt.form != Form::kJson) {
        for (std::size_t k = 0; k < cols.size(); ++k) {
            if (k) o.push_back(delim);
            if (opt.form == Form::kCsv)
                AppendCsvField(o, cols[k].var->name, delim);
            else
                AppendTsvField(o, cols[k].var->name);
        }
        o.push_back('\n');
    }
    // JSON keys, made once.
    std::vector<std::string> keys;
    if (opt.form == Form::kJson)
        for (const Column& c : cols) {
            std::string k;
            AppendJsonString(k, c.var->name);
            k.push_back(':');
            keys.push_back(std::move(k));
        }

    std::int64_t total = -1;
    if (m.cases >= 0) total = (end >= 0 ? std::min<std::int64_t>(end, m.cases) : m.cases) - first;
    Progress progress("reading cases", total);
    std::vector<char> record(static_cast<std::size_t>(m.caseSize > 0 ? m.caseSize : 8));
    std::string field;
    std::int64_t done = 0;
    for (std::int64_t c = first; end < 0 || c < end; ++c) {
        const int rc = murvWholeCaseIn(h.get(), record.data());
        if (rc == MURV_RC_END_OF_FILE) break;
        Check(rc, opt.file, "reading case " + std::to_string(c));
        if (opt.form == Form::kJson) o.push_back('{');
        for (std::size_t k = 0; k < cols.size(); ++k) {
            const Column& col = cols[k];
            const Variable& v = *col.var;
            const char* cell = record.data() + v.offset;
            if (opt.form == Form::kJson) {
                if (k) o.push_back(',');
                o += keys[k];
            } else if (k) {
                o.push_back(delim);
            }
            if (v.type == 0) {
                double d;
                std::memcpy(&d, cell, sizeof d);
                if (IsSysmis(d)) {
                    if (opt.form == Form::kJson) o += "null";
                    continue;
                }
                if (!col.numberLabels.empty()) {
                    auto it = col.numberLabels.find(d);
                    if (it != col.numberLabels.end()) {
                        if (opt.form == Form::kCsv)
                            AppendCsvField(o, it->second, delim);
                        else if (opt.form == Form::kTsv)
                            AppendTsvField(o, it->second);
                        else
                            AppendJsonString(o, it->second);
                        continue;
                    }
                }
                if (col.date) {
                    field.clear();
                    if (AppendIsoDate(field, v.print.type, d)) {
                        if (opt.form == Form::kJson)
                            AppendJsonString(o, field);
                        else
                            o += field;
                        continue;
                    }
                }
                if (opt.form == Form::kJson && !std::isfinite(d))
                    o += "null";
                else
                    AppendNumber(o, d);
                continue;
            }
            std::string_view s = TrimRight(std::string_view(cell, static_cast<std::size_t>(v.type)));
            if (!col.textLabels.empty()) {
                auto it = col.textLabels.find(s);
                if (it != col.textLabels.end()) s = it->second;
            }
            if (opt.form == Form::kCsv)
                AppendCsvField(o, s, delim);
            else if (opt.form == Form::kTsv)
                AppendTsvField(o, s);
            else
                AppendJsonString(o, s);
        }
        if (opt.form == Form::kJson) o.push_back('}');
        o.push_back('\n');
        out.MaybeFlush();
        progress.Update(++done);
    }
    progress.Finish();
    out.Flush();
    return kExitOk;
}

}  // namespace murv
