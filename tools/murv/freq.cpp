// `murv freq`: the frequency table of each variable named: every value with
// its label, count, percent of all cases, percent of the valid ones and the
// cumulative percent; user-missing values and system-missing listed apart.
#include <algorithm>
#include <bit>
#include <map>
#include <unordered_map>

#include "scan.h"

namespace murv {

namespace {

// Weighted counts of the distinct numbers of one variable: whole numbers
// 0-255 (the codes of most categorical data) in a direct table, any other
// number in an open-addressed table keyed by the bits of the double.
class NumberCounts {
public:
    void Add(double v, double w) {
        if (v >= 0 && v < 256) {  // -0 counts as 0
            const int i = static_cast<int>(v);
            if (i == v) {
                small_[i] += w;
                return;
            }
        }
        AddOther(v, w);
    }
    // (value, count) in ascending order of value.
    std::vector<std::pair<double, double>> Sorted() const {
        std::vector<std::pair<double, double>> out;
        for (int i = 0; i < 256; ++i)
            if (small_[i] > 0) out.emplace_back(i, small_[i]);
        for (std::size_t i = 0; i < keys_.size(); ++i)
            if (keys_[i] != kEmpty) out.emplace_back(std::bit_cast<double>(keys_[i]), sums_[i]);
        std::sort(out.begin(), out.end(), [](const auto& a, const auto& b) {
            // Not-a-number values, which order with nothing, go last.
            if (std::isnan(a.first) || std::isnan(b.first)) return !std::isnan(a.first) && std::isnan(b.first);
            return a.first < b.first;
        });
        return out;
    }

    void Merge(const NumberCounts& other) {
        for (int i = 0; i < 256; ++i) small_[i] += other.small_[i];
        for (std::size_t i = 0; i < other.keys_.size(); ++i)
            if (other.keys_[i] != kEmpty) AddOther(std::bit_cast<double>(other.keys_[i]), other.sums_[i]);
    }

private:
    // The bits of system-missing, which is never counted here, mark a free slot.
    static constexpr std::uint64_t kEmpty = 0xFFEFFFFFFFFFFFFFull;
    std::size_t Slot(std::uint64_t key) const {
        return static_cast<std::size_t>((key * 0x9E3779B97F4A7C15ull) >> shift_);
    }
    void AddOther(double v, double w) {
        if (keys_.empty()) Grow(64);
        const auto key = std::bit_cast<std::uint64_t>(v);
        const std::size_t mask = keys_.size() - 1;
        for (std::size_t i = Slot(key);; i = (i + 1) & mask) {
            if (keys_[i] == key) {
                sums_[i] += w;
                return;
            }
            if (keys_[i] == kEmpty) {
                keys_[i] = key;
                sums_[i] = w;
                if (++used_ * 2 > keys_.size()) Grow(keys_.size() * 2);
                return;
            }
        }
    }
    void Grow(std::size_t size) {
        std::vector<std::uint64_t> keys(size, kEmpty);
        std::vector<double> sums(size, 0);
        shift_ = 64 - std::countr_zero(size);
        for (std::size_t i = 0; i < keys_.size(); ++i) {
            if (keys_[i] == kEmpty) continue;
            std::size_t j = Slot(keys_[i]);
            while (keys[j] != kEmpty) j = (j + 1) & (size - 1);
            keys[j] = keys_[i];
            sums[j] = sums_[i];
        }
        keys_.swap(keys);
        sums_.swap(sums);
    }
    double small_[256] = {};
    std::vector<std::uint64_t> keys_;
    std::vector<double> sums_;
    std::size_t used_ = 0;
    int shift_ = 58;
};

struct Table {
    const Variable* var;
    NumberCounts numbers;
    std::unordered_map<std::string, double> texts;
    double sysmis = 0;
};

// What one part of the cases adds up.
struct Part {
    std::vector<Table> tables;
    Weighting weight;
    std::string key;
    std::vector<std::size_t> offsets;  // of each numeric variable's value in the record; strings: all bits set

    void Add(const char* record) {
        const double w = weight.Of(record);
        if (w == 0) return;
        if (offsets.size() != tables.size())
            for (const Table& t : tables) offsets.push_back(t.var->type == 0 ? t.var->offset : ~std::size_t{0});
        for (std::size_t k = 0; k < tables.size(); ++k) {
            Table& t = tables[k];
            if (offsets[k] != ~std::size_t{0}) {  // numeric
                const double x = NumberAt(record, offsets[k]);
                if (x == kSysmisValue)
                    t.sysmis += w;
                else
                    t.numbers.Add(x, w);
            } else {
                const Variable& v = *t.var;
                key.assign(TrimRight(std::string_view(record + v.offset, static_cast<std::size_t>(v.type))));
                t.texts[key] += w;
            }
        }
    }
    void Merge(const Part& other) {
        weight.excluded += other.weight.excluded;
        for (std::size_t i = 0; i < tables.size(); ++i) {
            Table& t = tables[i];
            const Table& o = other.tables[i];
            t.numbers.Merge(o.numbers);
            for (const auto& [text, count] : o.texts) t.texts[text] += count;
            t.sysmis += o.sysmis;
        }
    }
};

struct Row {
    std::string value;   // as the print format shows it
    double number = 0;   // the value itself (numeric variables)
    std::string label;
    bool hasLabel = false;
    double count = 0;
};

void JsonNumber(std::string& o, double v) {
    if (std::isfinite(v))
        AppendNumber(o, v);
    else
        o += "null";
}

}  // namespace

int RunFreq(const FreqOptions& opt) {
    ReadHandle h(opt.file);
    const FileMeta m = LoadMeta(h, Detail::kFull);
    std::string list;
    for (const std::string& v : opt.vars) list += (list.empty() ? "" : ",") + v;
    const std::vector<std::size_t> sel = SelectVars(m, list);
    std::vector<Part> parts(1);
    for (std::size_t i : sel) parts[0].tables.push_back(Table{&m.vars[i], {}, {}, 0});
    parts[0].weight = WeightOf(m, opt.unweighted);
    std::string failure;
    const std::int64_t read = ScanCases(h, m, parts, [](Part& p, const char* record) { p.Add(record); }, failure);
    for (std::size_t i = 1; i < parts.size(); ++i) parts[0].Merge(parts[i]);
    const std::vector<Table>& tables = parts[0].tables;
    const Weighting& weight = parts[0].weight;

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
    } else {
        if (weight.var)
            o += "Weighted by " + weight.var->name + (weight.excluded ? "; " + std::to_string(weight.excluded) +
                                                                             " cases left out: their weight is missing, zero or negative"
                                                                       : "") + "\n\n";
        if (!failure.empty())
            o += std::to_string(read) + " cases could be read, and the tables count those; " + failure + "\n\n";
    }

    for (std::size_t ti = 0; ti < tables.size(); ++ti) {
        const Table& t = tables[ti];
        const Variable& v = *t.var;
        std::vector<Row> valid, userMissing;
        auto add = [&](Row&& r, bool missing) { (missing ? userMissing : valid).push_back(std::move(r)); };
        if (v.type == 0) {
            std::map<double, const std::string*> labels;
            for (const auto& [value, label] : v.numberLabels) labels.emplace(value, &label);
            for (const auto& [value, count] : t.numbers.Sorted()) {
                Row r;
                r.number = value;
                AppendFormatted(r.value, v.print, value);
                if (auto it = labels.find(value); it != labels.end()) {
                    r.label = *it->second;
                    r.hasLabel = true;
                }
                r.count = count;
                add(std::move(r), IsUserMissing(v.missing, value));
            }
        } else {
            std::map<std::string, double> sorted(t.texts.begin(), t.texts.end());
            std::map<std::string, const std::string*, std::less<>> labels;
            for (const auto& [value, label] : v.textLabels) labels.emplace(value, &label);
            for (const auto& [value, count] : sorted) {
                Row r;
                r.value = value;
                if (auto it = labels.find(value); it != labels.end()) {
                    r.label = *it->second;
                    r.hasLabel = true;
                }
                r.count = count;
                add(std::move(r), IsUserMissing(v.missing, value));
            }
        }
        double validSum = 0, missingSum = t.sysmis;
        bool whole = t.sysmis == std::floor(t.sysmis);
        for (const Row& r : valid) {
            validSum += r.count;
            whole = whole && r.count == std::floor(r.count);
        }
        for (const Row& r : userMissing) {
            missingSum += r.count;
            whole = whole && r.count == std::floor(r.count);
        }
        const double total = validSum + missingSum;
        auto pct = [](double part, double of) { return of > 0 ? part / of * 100 : NAN; };

        if (opt.json) {
            if (ti) o.push_back(',');
            o += "\n{\"name\":";
            AppendJsonString(o, v.name);
            o += ",\"label\":";
            if (v.hasLabel)
                AppendJsonString(o, v.label);
            else
                o += "null";
            auto value = [&](const Row& r) {
                o += "{\"value\":";
                if (v.type == 0)
                    JsonNumber(o, r.number);
                else
                    AppendJsonString(o, r.value);
                o += ",\"label\":";
                if (r.hasLabel)
                    AppendJsonString(o, r.label);
                else
                    o += "null";
                o += ",\"count\":";
                JsonNumber(o, r.count);
                o += ",\"percent\":";
                JsonNumber(o, pct(r.count, total));
            };
            o += ",\"values\":[";
            double cum = 0;
            for (std::size_t i = 0; i < valid.size(); ++i) {
                if (i) o.push_back(',');
                value(valid[i]);
                cum += valid[i].count;
                o += ",\"valid_percent\":";
                JsonNumber(o, pct(valid[i].count, validSum));
                o += ",\"cumulative_percent\":";
                JsonNumber(o, pct(cum, validSum));
                o.push_back('}');
            }
            o += "],\"user_missing\":[";
            for (std::size_t i = 0; i < userMissing.size(); ++i) {
                if (i) o.push_back(',');
                value(userMissing[i]);
                o.push_back('}');
            }
            o += "],\"system_missing\":{\"count\":";
            JsonNumber(o, t.sysmis);
            o += ",\"percent\":";
            JsonNumber(o, pct(t.sysmis, total));
            o += "},\"valid\":";
            JsonNumber(o, validSum);
            o += ",\"total\":";
            JsonNumber(o, total);
            o.push_back('}');
            out.MaybeFlush();
            continue;
        }

        const int countDecimals = whole ? 0 : 2;
        auto percentText = [&](double part, double of) { return of > 0 ? Fixed(pct(part, of), 1) : std::string(); };
        std::vector<std::vector<std::string>> rows;
        rows.push_back({"Value", "Label", "Count", "Percent", "Valid percent", "Cumulative percent"});
        double cum = 0;
        for (const Row& r : valid) {
            cum += r.count;
            rows.push_back({r.value, r.label, Fixed(r.count, countDecimals), percentText(r.count, total),
                            percentText(r.count, validSum), percentText(cum, validSum)});
        }
        rows.push_back({"Valid total", "", Fixed(validSum, countDecimals), percentText(validSum, total),
                        validSum > 0 ? "100.0" : ""});
        if (missingSum > 0) {
            rows.push_back({"Missing"});
            for (const Row& r : userMissing)
                rows.push_back({"  " + r.value, r.label, Fixed(r.count, countDecimals), percentText(r.count, total)});
            if (t.sysmis > 0)
                rows.push_back({"  System-missing", "", Fixed(t.sysmis, countDecimals), percentText(t.sysmis, total)});
            rows.push_back({"Missing total", "", Fixed(missingSum, countDecimals), percentText(missingSum, total)});
        }
        rows.push_back({"Total", "", Fixed(total, countDecimals), total > 0 ? "100.0" : ""});
        if (ti) o.push_back('\n');
        o += v.name;
        if (v.hasLabel) o += ": " + v.label;
        o.push_back('\n');
        AppendTable(o, rows, {false, false, true, true, true, true});
        out.MaybeFlush();
    }
    if (opt.json) o += "]}\n";
    out.Flush();
    if (!failure.empty()) throw Failure(kExitDamaged, failure);
    return kExitOk;
}

}  // namespace murv
