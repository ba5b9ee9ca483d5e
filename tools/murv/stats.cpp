// `murv stats`: N, missing, mean, standard deviation, minimum and maximum of
// numeric variables in one pass over the cases.
//
// The sums are kept in blocks of cases: within a block each value is taken
// relative to a shift (the mean of the blocks before, or the first value), so
// the sum of squares does not lose the digits that the mean shares with every
// value; each block's count, mean and sum of squared deviations are then
// merged into the running ones by the pairwise update of Chan, Golub and
// LeVeque. That is as accurate as Welford's update per value, without its
// division per value.
#include <algorithm>

#include "scan.h"

namespace murv {

namespace {

constexpr int kBlock = 1024;

struct Column {
    const Variable* var;
    bool userMissing;
    // The block being summed.
    double shift = 0, s1 = 0, s2 = 0, w = 0;
    bool shifted = false;
    // Everything before it.
    double total = 0, mean = 0, m2 = 0;
    double missing = 0, min = 0, max = 0;
    std::int64_t cases = 0;

    void Add(double x, double weight) {
        if (IsSysmis(x) || x != x || (userMissing && IsUserMissing(var->missing, x))) {
            missing += weight;
            return;
        }
        if (!shifted) {
            shifted = true;
            shift = min = max = x;
        }
        const double y = x - shift;
        s1 += weight * y;
        s2 += weight * y * y;
        w += weight;
        min = std::min(min, x);
        max = std::max(max, x);
        ++cases;
    }
    void EndBlock() {
        if (w == 0) return;
        const double blockMean = shift + s1 / w;
        const double blockM2 = std::max(0.0, s2 - s1 * s1 / w);
        const double n = total + w;
        const double delta = blockMean - mean;
        mean += delta * (w / n);
        m2 += blockM2 + delta * delta * (total * w / n);
        total = n;
        shift = mean;
        s1 = s2 = w = 0;
    }
};

void JsonNumber(std::string& o, double v, bool present) {
    if (present && std::isfinite(v))
        AppendNumber(o, v);
    else
        o += "null";
}

}  // namespace

int RunStats(const StatsOptions& opt) {
    ReadHandle h(opt.file);
    const FileMeta m = LoadMeta(h, Detail::kFull);
    std::vector<Column> cols;
    if (opt.vars.empty()) {
        for (const Variable& v : m.vars)
            if (v.type == 0) cols.push_back(Column{&v, v.missing.format != 0});
    } else {
        std::string list;
        for (const std::string& v : opt.vars) list += (list.empty() ? "" : ",") + v;
        for (std::size_t i : SelectVars(m, list)) {
            const Variable& v = m.vars[i];
            if (v.type != 0) throw Failure(kExitUsage, m.path + ": " + v.name + " is a string variable");
            cols.push_back(Column{&v, v.missing.format != 0});
        }
    }
    Weighting weight = WeightOf(m, opt.unweighted);

    int inBlock = 0;
    std::string failure;
    const std::int64_t read = ScanCases(
        h, m,
        [&](const char* record) {
            const double w = weight.Of(record);
            if (w == 0) return;
            for (Column& c : cols) c.Add(NumberAt(record, c.var->offset), w);
            if (++inBlock == kBlock) {
                for (Column& c : cols) c.EndBlock();
                inBlock = 0;
            }
        },
        failure);
    for (Column& c : cols) c.EndBlock();

    Output out;
    std::string& o = out.buf();
    if (opt.json) {
        o += "{\"file\":";
        AppendJsonString(o, m.path);
        o += ",\"weight\":";
        if (weight.var)
            AppendJsonString(o, weight.var->name);
        else
            o += "null";
        o += ",\"cases\":" + std::to_string(read) + ",\"excluded_cases\":" + std::to_string(weight.excluded);
        if (!failure.empty()) {
            o += ",\"error\":";
            AppendJsonString(o, failure);
        }
        o += ",\"variables\":[";
        for (std::size_t i = 0; i < cols.size(); ++i) {
            const Column& c = cols[i];
            o += i ? ",\n{\"name\":" : "\n{\"name\":";
            AppendJsonString(o, c.var->name);
            o += ",\"n\":";
            AppendNumber(o, c.total);
            o += ",\"cases\":" + std::to_string(c.cases) + ",\"missing\":";
            AppendNumber(o, c.missing);
            o += ",\"mean\":";
            JsonNumber(o, c.mean, c.total > 0);
            o += ",\"sd\":";
            JsonNumber(o, std::sqrt(c.m2 / (c.total - 1)), c.total > 1);
            o += ",\"min\":";
            JsonNumber(o, c.min, c.total > 0);
            o += ",\"max\":";
            JsonNumber(o, c.max, c.total > 0);
            o.push_back('}');
        }
        o += "]}\n";
    } else {
        if (weight.var)
            o += "Weighted by " + weight.var->name + (weight.excluded ? "; " + std::to_string(weight.excluded) +
                                                                             " cases left out: their weight is missing, zero or negative"
                                                                       : "") + "\n";
        if (!failure.empty()) o += "Only the first " + std::to_string(read) + " cases could be read; the figures count those.\n";
        std::vector<std::vector<std::string>> rows;
        rows.push_back({"Variable", "N", "Missing", "Mean", "Std. deviation", "Minimum", "Maximum", "Label"});
        for (const Column& c : cols) {
            const Format& f = c.var->print;
            // Figures in the variable's own format, wide enough for any value;
            // the mean and deviation of plain numbers with two more decimals,
            // the deviation of a date or time as a span of days and time.
            const bool date = IsDateFormat(f.type);
            const bool styled = f.type == 3 || f.type == 4 || f.type == 17 || (f.type >= 31 && f.type <= 37);
            const bool fixedWidth = f.type == 7 || f.type == 16;  // PIBHEX and N fill their width
            const Format value{f.type, fixedWidth ? f.width : 40, f.decimals};
            const Format precise = date ? value : Format{styled ? f.type : 5, 40, std::min(f.decimals + 2, 16)};
            const Format spread = date ? Format{25, 40, f.decimals} : precise;
            auto show = [](const Format& fmt, double v) {
                std::string s;
                AppendFormatted(s, fmt, v);
                return s;
            };
            const bool whole = c.total == std::floor(c.total) && c.missing == std::floor(c.missing);
            rows.push_back({c.var->name, Fixed(c.total, whole ? 0 : 2), Fixed(c.missing, whole ? 0 : 2),
                            c.total > 0 ? show(precise, c.mean) : "", c.total > 1 ? show(spread, std::sqrt(c.m2 / (c.total - 1))) : "",
                            c.total > 0 ? show(value, c.min) : "", c.total > 0 ? show(value, c.max) : "",
                            c.var->hasLabel ? c.var->label : ""});
        }
        AppendTable(o, rows, {false, true, true, true, true, true, true, false});
    }
    out.Flush();
    if (!failure.empty()) throw Failure(kExitLibrary, failure);
    return kExitOk;
}

}  // namespace murv
