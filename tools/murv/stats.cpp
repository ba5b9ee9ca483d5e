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
#include <limits>

#include "scan.h"

namespace murv {

namespace {

constexpr int kBlock = 1024;

// The sums of every chosen variable, kept as arrays over the variables so
// that one case updates them all in a loop the compiler can vectorise.
class Sums {
public:
    explicit Sums(std::vector<const Variable*> vars) : vars_(std::move(vars)) {
        const std::size_t n = vars_.size(), padded = n + (n & 1);
        for (auto* a : {&shift_, &s1_, &s2_, &w_, &missing_, &cases_, &total_, &mean_, &m2_}) a->assign(padded, 0.0);
        x_.assign(padded, kSysmis);
        min_.assign(padded, std::numeric_limits<double>::infinity());
        max_.assign(padded, -std::numeric_limits<double>::infinity());
        for (std::size_t k = 0; k < n; ++k) {
            offsets_.push_back(vars_[k]->offset);
            if (vars_[k]->missing.format != 0) userMissing_.push_back(k);
            unshifted_.push_back(k);
            contiguous_ = contiguous_ && vars_[k]->offset == vars_[0]->offset + 8 * k;
        }
    }

    void Add(const char* record, double weight) {
        const std::size_t n = vars_.size();
        if (contiguous_ && userMissing_.empty() && unshifted_.empty() && n > 0) {
            // Variables side by side in the record (all of them, or a run):
            // the values are summed where they lie, an odd last one from a
            // padded pair.
            const std::size_t even = n & ~std::size_t{1};
            Update(even, weight, record + offsets_[0], shift_.data(), s1_.data(), s2_.data(), w_.data(),
                   missing_.data(), cases_.data(), min_.data(), max_.data());
            if (n & 1) {
                std::memcpy(x_.data(), record + offsets_[even], sizeof(double));
                Update(2, weight, reinterpret_cast<const char*>(x_.data()), shift_.data() + even, s1_.data() + even,
                       s2_.data() + even, w_.data() + even, missing_.data() + even, cases_.data() + even,
                       min_.data() + even, max_.data() + even);
            }
            if (++inBlock_ == kBlock) EndBlock();
            return;
        }
        double* const x = x_.data();
        for (std::size_t k = 0; k < n; ++k) std::memcpy(x + k, record + offsets_[k], sizeof(double));
        for (std::size_t k : userMissing_)
            if (IsUserMissing(vars_[k]->missing, x[k])) x[k] = kSysmis;
        if (!unshifted_.empty()) FirstValues();
        Update(x_.size(), weight, reinterpret_cast<const char*>(x), shift_.data(), s1_.data(), s2_.data(), w_.data(), missing_.data(), cases_.data(),
               min_.data(), max_.data());
        if (++inBlock_ == kBlock) EndBlock();
    }

    // Merges the block into the totals; the running mean becomes the shift
    // of the next block.
    void EndBlock() {
        for (std::size_t k = 0; k < vars_.size(); ++k) {
            const double w = w_[k];
            if (w == 0) continue;
            const double blockMean = shift_[k] + s1_[k] / w;
            const double blockM2 = std::max(0.0, s2_[k] - s1_[k] * s1_[k] / w);
            const double n = total_[k] + w;
            const double delta = blockMean - mean_[k];
            mean_[k] += delta * (w / n);
            m2_[k] += blockM2 + delta * delta * (total_[k] * w / n);
            total_[k] = n;
            shift_[k] = mean_[k];
            s1_[k] = s2_[k] = w_[k] = 0;
        }
        inBlock_ = 0;
    }

    // Adds the sums of another part of the cases (both after EndBlock).
    void Merge(const Sums& o) {
        for (std::size_t k = 0; k < vars_.size(); ++k) {
            const double n = total_[k] + o.total_[k];
            if (o.total_[k] > 0) {
                const double delta = o.mean_[k] - mean_[k];
                mean_[k] += delta * (o.total_[k] / n);
                m2_[k] += o.m2_[k] + delta * delta * (total_[k] * o.total_[k] / n);
                total_[k] = n;
                shift_[k] = mean_[k];
            }
            missing_[k] += o.missing_[k];
            cases_[k] += o.cases_[k];
            min_[k] = std::min(min_[k], o.min_[k]);
            max_[k] = std::max(max_[k], o.max_[k]);
        }
    }

    std::size_t size() const { return vars_.size(); }
    const Variable& var(std::size_t k) const { return *vars_[k]; }
    double total(std::size_t k) const { return total_[k]; }
    double missing(std::size_t k) const { return missing_[k]; }
    std::int64_t cases(std::size_t k) const { return static_cast<std::int64_t>(cases_[k]); }
    double mean(std::size_t k) const { return mean_[k]; }
    double sd(std::size_t k) const { return std::sqrt(m2_[k] / (total_[k] - 1)); }
    double min(std::size_t k) const { return min_[k]; }
    double max(std::size_t k) const { return max_[k]; }

private:
    static constexpr double kSysmis = kSysmisValue;

    // Two values at a time in the vector registers every x86-64 and ARM64
    // processor has; the arrays are padded to an even length (the pad value is
    // system-missing, so it counts for nothing).
    typedef double Pair __attribute__((vector_size(16)));
    static void Update(std::size_t n, double weight, const char* x, const double* shift, double* s1, double* s2,
                       double* w, double* missing, double* cases, double* min, double* max) {
        constexpr double kInf = std::numeric_limits<double>::infinity();
        const Pair sys = {kSysmis, kSysmis}, zero = {0, 0}, one = {1, 1}, inf = {kInf, kInf}, wt = {weight, weight};
        auto load = [](Pair& p, const double* from) { std::memcpy(&p, from, sizeof p); };
        auto store = [](double* to, const Pair& p) { std::memcpy(to, &p, sizeof p); };
        for (std::size_t k = 0; k < n; k += 2) {
            Pair v, sh, a1, a2, aw, am, ac, lo, hi;
            std::memcpy(&v, x + 8 * k, sizeof v);
            load(sh, shift + k);
            load(a1, s1 + k);
            load(a2, s2 + k);
            load(aw, w + k);
            load(am, missing + k);
            load(ac, cases + k);
            load(lo, min + k);
            load(hi, max + k);
            const auto ok = (v != sys) & (v == v);  // not missing, not a NaN
            const Pair wv = ok ? wt : zero;
            const Pair y = ok ? v - sh : zero;
            a1 += wv * y;
            a2 += wv * y * y;
            aw += wv;
            am += wt - wv;
            ac += ok ? one : zero;
            const Pair vlo = ok ? v : inf, vhi = ok ? v : -inf;
            lo = vlo < lo ? vlo : lo;
            hi = vhi > hi ? vhi : hi;
            store(s1 + k, a1);
            store(s2 + k, a2);
            store(w + k, aw);
            store(missing + k, am);
            store(cases + k, ac);
            store(min + k, lo);
            store(max + k, hi);
        }
    }

    // The first value of a variable is its first shift, so that even the
    // first block sums small differences.
    void FirstValues() {
        std::size_t kept = 0;
        for (std::size_t k : unshifted_) {
            const double v = x_[k];
            if (v != kSysmis && v == v)
                shift_[k] = v;
            else
                unshifted_[kept++] = k;
        }
        unshifted_.resize(kept);
    }

    std::vector<const Variable*> vars_;
    std::vector<std::size_t> offsets_, userMissing_, unshifted_;
    std::vector<double> x_, shift_, s1_, s2_, w_, missing_, cases_, min_, max_;
    std::vector<double> total_, mean_, m2_;
    int inBlock_ = 0;
    bool contiguous_ = true;
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
    std::vector<const Variable*> chosen;
    if (opt.vars.empty()) {
        for (const Variable& v : m.vars)
            if (v.type == 0) chosen.push_back(&v);
    } else {
        std::string list;
        for (const std::string& v : opt.vars) list += (list.empty() ? "" : ",") + v;
        for (std::size_t i : SelectVars(m, list)) {
            const Variable& v = m.vars[i];
            if (v.type != 0) throw Failure(kExitUsage, m.path + ": " + v.name + " is a string variable");
            chosen.push_back(&v);
        }
    }
    struct Part {
        Sums sums;
        Weighting weight;
    };
    std::vector<Part> parts{Part{Sums(std::move(chosen)), WeightOf(m, opt.unweighted)}};
    std::string failure;
    const std::int64_t read = ScanCases(
        h, m, parts,
        [](Part& p, const char* record) {
            if (const double w = p.weight.Of(record); w != 0) p.sums.Add(record, w);
        },
        failure);
    for (Part& p : parts) p.sums.EndBlock();
    for (std::size_t i = 1; i < parts.size(); ++i) {
        parts[0].sums.Merge(parts[i].sums);
        parts[0].weight.excluded += parts[i].weight.excluded;
    }
    const Sums& sums = parts[0].sums;
    const Weighting& weight = parts[0].weight;

    struct Result {
        const Variable* var;
        double total, missing, mean, sd, min, max;
        std::int64_t cases;
    };
    std::vector<Result> results;
    for (std::size_t k = 0; k < sums.size(); ++k)
        results.push_back({&sums.var(k), sums.total(k), sums.missing(k), sums.mean(k), sums.sd(k), sums.min(k),
                           sums.max(k), sums.cases(k)});

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
        for (std::size_t i = 0; i < results.size(); ++i) {
            const Result& c = results[i];
            o += i ? ",\n{\"name\":" : "\n{\"name\":";
            AppendJsonString(o, c.var->name);
            o += ",\"n\":";
            AppendNumber(o, c.total);
            o += ",\"cases\":" + std::to_string(c.cases) + ",\"missing\":";
            AppendNumber(o, c.missing);
            o += ",\"mean\":";
            JsonNumber(o, c.mean, c.total > 0);
            o += ",\"sd\":";
            JsonNumber(o, c.sd, c.total > 1);
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
        if (!failure.empty())
            o += std::to_string(read) + " cases could be read, and the figures count those; " + failure + "\n";
        std::vector<std::vector<std::string>> rows;
        rows.push_back({"Variable", "N", "Missing", "Mean", "Std. deviation", "Minimum", "Maximum", "Label"});
        for (const Result& c : results) {
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
                            c.total > 0 ? show(precise, c.mean) : "", c.total > 1 ? show(spread, c.sd) : "",
                            c.total > 0 ? show(value, c.min) : "", c.total > 0 ? show(value, c.max) : "",
                            c.var->hasLabel ? c.var->label : ""});
        }
        AppendTable(o, rows, {false, true, true, true, true, true, true, false});
    }
    out.Flush();
    if (!failure.empty()) throw Failure(kExitDamaged, failure);
    return kExitOk;
}

}  // namespace murv
