// `murv info`, `murv dict` and `murv check`: what a file says about itself,
// and whether all of it can be read.
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <memory>

#include "scan.h"

namespace murv {

namespace {

const char* MeasureName(int m) {
    switch (m) {
        case 1: return "nominal";
        case 2: return "ordinal";
        case 3: return "scale";
        default: return "unknown";
    }
}

const char* AlignmentName(int a) {
    switch (a) {
        case 0: return "left";
        case 1: return "right";
        case 2: return "center";
        default: return "unknown";
    }
}

std::string CompressionName(int c) { return c ? "bytecode" : "none"; }

void JsonNumber(std::string& o, double v) {
    if (!std::isfinite(v) || IsSysmis(v)) {
        o += "null";
        return;
    }
    AppendNumber(o, v);
}

void JsonPairs(std::string& o, const TextPairs& pairs) {
    o.push_back('{');
    for (std::size_t i = 0; i < pairs.size(); ++i) {
        if (i) o.push_back(',');
        AppendJsonString(o, pairs[i].first);
        o.push_back(':');
        AppendJsonString(o, pairs[i].second);
    }
    o.push_back('}');
}

void JsonStrings(std::string& o, const std::vector<std::string>& v) {
    o.push_back('[');
    for (std::size_t i = 0; i < v.size(); ++i) {
        if (i) o.push_back(',');
        AppendJsonString(o, v[i]);
    }
    o.push_back(']');
}

void JsonFormat(std::string& o, const Format& f) {
    o += "{\"type\":" + std::to_string(f.type) + ",\"width\":" + std::to_string(f.width) +
         ",\"decimals\":" + std::to_string(f.decimals) + ",\"text\":";
    AppendJsonString(o, FormatName(f));
    o.push_back('}');
}

void JsonMissing(std::string& o, const Variable& v) {
    const MissingValues& m = v.missing;
    const int f = m.format;
    o += "{\"kind\":";
    o += f == 0 ? "\"none\"" : f > 0 ? "\"discrete\"" : "\"range\"";
    if (f < 0 && v.type == 0) {
        o += ",\"low\":";
        JsonNumber(o, m.numbers[0]);
        o += ",\"high\":";
        JsonNumber(o, m.numbers[1]);
        if (f == -3) {
            o += ",\"value\":";
            JsonNumber(o, m.numbers[2]);
        }
    } else if (f > 0) {
        o += ",\"values\":[";
        for (int i = 0; i < f && i < 3; ++i) {
            if (i) o.push_back(',');
            if (v.type == 0)
                JsonNumber(o, m.numbers[i]);
            else
                AppendJsonString(o, m.texts[i]);
        }
        o.push_back(']');
    }
    o.push_back('}');
}

void JsonVariable(std::string& o, const Variable& v) {
    o += "{\"name\":";
    AppendJsonString(o, v.name);
    o += ",\"type\":";
    o += v.type == 0 ? "\"numeric\"" : "\"string\"";
    o += ",\"width\":" + std::to_string(v.type);
    o += ",\"label\":";
    if (v.hasLabel)
        AppendJsonString(o, v.label);
    else
        o += "null";
    o += ",\"print_format\":";
    JsonFormat(o, v.print);
    o += ",\"write_format\":";
    JsonFormat(o, v.write);
    o += ",\"missing\":";
    JsonMissing(o, v);
    o += ",\"value_labels\":[";
    bool first = true;
    for (const auto& [value, label] : v.numberLabels) {
        if (!first) o.push_back(',');
        first = false;
        o += "{\"value\":";
        JsonNumber(o, value);
        o += ",\"label\":";
        AppendJsonString(o, label);
        o.push_back('}');
    }
    for (const auto& [value, label] : v.textLabels) {
        if (!first) o.push_back(',');
        first = false;
        o += "{\"value\":";
        AppendJsonString(o, value);
        o += ",\"label\":";
        AppendJsonString(o, label);
        o.push_back('}');
    }
    o += "],\"measure\":\"";
    o += MeasureName(v.measure);
    o += "\",\"alignment\":\"";
    o += AlignmentName(v.alignment);
    o += "\",\"column_width\":" + std::to_string(v.columnWidth);
    o += ",\"attributes\":";
    JsonPairs(o, v.attributes);
    o.push_back('}');
}

std::string MissingText(const Variable& v) {
    const MissingValues& m = v.missing;
    std::string s;
    auto num = [&](double d) { AppendNumber(s, d); };
    if (m.format == 0) return "";
    if (m.format < 0) {
        num(m.numbers[0]);
        s += " THRU ";
        num(m.numbers[1]);
        if (m.format == -3) {
            s += ", ";
            num(m.numbers[2]);
        }
        return s;
    }
    for (int i = 0; i < m.format && i < 3; ++i) {
        if (i) s += ", ";
        if (v.type == 0)
            num(m.numbers[i]);
        else
            s += "'" + m.texts[i] + "'";
    }
    return s;
}

std::string TypeText(const Variable& v) { return v.type == 0 ? "numeric" : "string(" + std::to_string(v.type) + ")"; }

std::string ValueText(double v) {
    std::string s;
    AppendNumber(s, v);
    return s;
}

// The variables as a table with a header row, then what does not fit a
// table cell: value labels and attributes, one per line under their variable.
void AppendDictTable(std::string& o, const FileMeta& m) {
    std::vector<std::vector<std::string>> rows;
    rows.push_back({"Name", "Type", "Print", "Write", "Measure", "Align", "Columns", "Missing", "Label"});
    for (const Variable& v : m.vars)
        rows.push_back({v.name, TypeText(v), FormatName(v.print), FormatName(v.write), MeasureName(v.measure),
                        AlignmentName(v.alignment), std::to_string(v.columnWidth), MissingText(v),
                        v.hasLabel ? v.label : ""});
    AppendTable(o, rows, {false, false, false, false, false, false, true, false, false});
    bool heading = false;
    for (const Variable& v : m.vars) {
        if (v.numberLabels.empty() && v.textLabels.empty() && v.attributes.empty()) continue;
        if (!heading) o += "\nValue labels and attributes\n";
        heading = true;
        o += "  " + v.name + "\n";
        for (const auto& [value, label] : v.numberLabels) o += "    " + ValueText(value) + " = " + label + "\n";
        for (const auto& [value, label] : v.textLabels) o += "    '" + value + "' = " + label + "\n";
        for (const auto& [name, value] : v.attributes) o += "    @" + name + " = " + value + "\n";
    }
    if (!m.attributes.empty() || !m.mrsets.empty() || !m.varSets.empty()) o.push_back('\n');
}

void AppendCsvField(std::string& o, std::string_view s) {
    if (s.find_first_of(",\"\r\n") == std::string_view::npos) {
        o += s;
        return;
    }
    o.push_back('"');
    for (char c : s) {
        if (c == '"') o.push_back('"');
        o.push_back(c);
    }
    o.push_back('"');
}

void AppendCsvRow(std::string& o, std::initializer_list<std::string_view> cells) {
    bool first = true;
    for (std::string_view c : cells) {
        if (!first) o.push_back(',');
        first = false;
        AppendCsvField(o, c);
    }
    o += "\n";
}

}  // namespace

int RunInfo(const std::string& file) {
    ReadHandle h(file);
    const FileMeta m = LoadMeta(h, Detail::kFull);
    std::size_t valueLabels = 0, varAttributes = 0;
    for (const Variable& v : m.vars) {
        valueLabels += v.numberLabels.size() + v.textLabels.size();
        varAttributes += v.attributes.size();
    }
    Output out;
    std::string& o = out.buf();
    auto line = [&](const char* key, const std::string& value) {
        char head[32];
        std::snprintf(head, sizeof head, "%-20s", key);
        o += head;
        o += value;
        o.push_back('\n');
    };
    line("File:", m.path);
    line("Product:", m.product);
    line("Created:", m.date + " " + m.time);
    line("Byte order:", m.byteOrder);
    line("Compression:", CompressionName(m.compression));
    line("Cases:", m.cases < 0 ? "unknown" : std::to_string(m.cases));
    line("Case size:", std::to_string(m.caseSize) + " bytes");
    line("Variables:", std::to_string(m.vars.size()));
    line("File label:", m.hasLabel && !m.label.empty() ? m.label : "(none)");
    line("Weight variable:", m.weight.empty() ? "(none)" : m.weight);
    line("Value labels:", std::to_string(valueLabels));
    line("Attributes:", std::to_string(m.attributes.size()) + " of the file, " + std::to_string(varAttributes) +
                             " of variables");
    line("Variable sets:", std::to_string(m.varSets.size()));
    line("Mult. resp. sets:", std::to_string(m.mrsets.size()));
    line("Date variables:", m.dateVariables.empty() ? "no" : "yes");
    line("Data-entry block:", m.zopBytes > 0 ? std::to_string(m.zopBytes) + " bytes" : "no");
    std::string records;
    for (int s : m.recordsPresent) records += (records.empty() ? "" : " ") + std::to_string(s);
    line("Extension records:", records.empty() ? "(none)" : "subtypes " + records);
    // Documents have no reading call in the interface; `convert` keeps them.
    out.Flush();  // a failure to write is the command's failure
    return kExitOk;
}

int RunDict(const std::string& file, bool json) {
    ReadHandle h(file);
    const FileMeta m = LoadMeta(h, Detail::kFull);
    Output out;
    std::string& o = out.buf();
    if (json) {
        o += "{\"file\":";
        AppendJsonString(o, m.path);
        o += ",\"label\":";
        if (m.hasLabel)
            AppendJsonString(o, m.label);
        else
            o += "null";
        o += ",\"product\":";
        AppendJsonString(o, m.product);
        o += ",\"created\":";
        AppendJsonString(o, m.date + " " + m.time);
        o += ",\"byte_order\":";
        AppendJsonString(o, m.byteOrder);
        o += ",\"compression\":";
        AppendJsonString(o, CompressionName(m.compression));
        o += ",\"cases\":" + std::to_string(m.cases);
        o += ",\"case_size\":" + std::to_string(m.caseSize);
        o += ",\"weight\":";
        if (m.weight.empty())
            o += "null";
        else
            AppendJsonString(o, m.weight);
        o += ",\"text_info\":";
        AppendJsonString(o, m.textInfo);
        o += ",\"variables\":[";
        for (std::size_t i = 0; i < m.vars.size(); ++i) {
            if (i) o.push_back(',');
            o += "\n";
            JsonVariable(o, m.vars[i]);
            out.MaybeFlush();
        }
        o += "],\n\"attributes\":";
        JsonPairs(o, m.attributes);
        o += ",\n\"multiple_response_sets\":[";
        for (std::size_t i = 0; i < m.mrsets.size(); ++i) {
            const MultResponseSet& s = m.mrsets[i];
            if (i) o.push_back(',');
            o += "{\"name\":";
            AppendJsonString(o, s.name);
            o += ",\"label\":";
            AppendJsonString(o, s.label);
            o += ",\"kind\":";
            o += s.dichotomy ? "\"dichotomies\"" : "\"categories\"";
            if (s.dichotomy) {
                o += ",\"counted_value\":";
                if (s.numeric)
                    o += std::to_string(s.countedValue);
                else
                    AppendJsonString(o, s.countedText);
            }
            o += ",\"category_labels\":";
            o += s.categoryLabels ? "true" : "false";
            o += ",\"first_variable_label\":";
            o += s.firstVarLabel ? "true" : "false";
            o += ",\"variables\":";
            JsonStrings(o, s.variables);
            o.push_back('}');
        }
        o += "],\n\"variable_sets\":[";
        for (std::size_t i = 0; i < m.varSets.size(); ++i) {
            if (i) o.push_back(',');
            o += "{\"name\":";
            AppendJsonString(o, m.varSets[i].first);
            o += ",\"variables\":";
            JsonStrings(o, m.varSets[i].second);
            o.push_back('}');
        }
        o += "],\n\"date_variables\":[";
        for (std::size_t i = 0; i < m.dateVariables.size(); ++i)
            o += (i ? "," : "") + std::to_string(m.dateVariables[i]);
        o += "],\n\"data_entry\":";
        if (m.zopBytes > 0) {
            o += "{\"guid\":";
            AppendJsonString(o, m.zopGuid);
            o += ",\"bytes\":" + std::to_string(m.zopBytes) + ",\"segments\":" + std::to_string(m.zopSegments) + "}";
        } else {
            o += "null";
        }
        o += ",\n\"extension_records\":[";
        for (std::size_t i = 0; i < m.openRecords.size(); ++i) {
            const ExtensionRecord& r = m.openRecords[i];
            o += (i ? "," : "") + std::string("{\"subtype\":") + std::to_string(r.subtype) +
                 ",\"unit_size\":" + std::to_string(r.unitSize) + ",\"count\":" + std::to_string(r.count) + "}";
        }
        o += "]}\n";
        out.Flush();
        return kExitOk;
    }

    AppendDictTable(o, m);
    for (const auto& [name, value] : m.attributes) o += "File attribute " + name + " = " + value + "\n";
    for (const MultResponseSet& s : m.mrsets) {
        o += "Multiple-response set " + s.name + " (" + (s.dichotomy ? "dichotomies" : "categories") + "): " + s.label +
             "\n   ";
        for (const std::string& v : s.variables) o += " " + v;
        o += "\n";
    }
    for (const auto& [name, vars] : m.varSets) {
        o += "Variable set " + name + ":";
        for (const std::string& v : vars) o += " " + v;
        o += "\n";
    }
    out.Flush();
    return kExitOk;
}

int RunDictCsv(const std::string& file, bool labelsTable) {
    ReadHandle h(file);
    const FileMeta m = LoadMeta(h, Detail::kFull);
    Output out;
    std::string& o = out.buf();
    if (labelsTable) {
        // The variable label as "variable,,label", each value label as
        // "variable,value,label". A label of the blank string value would read
        // back as the variable's label, so it is left out and said so.
        AppendCsvRow(o, {"variable", "value", "label"});
        for (const Variable& v : m.vars) {
            if (v.hasLabel) AppendCsvRow(o, {v.name, "", v.label});
            for (const auto& [value, label] : v.numberLabels) AppendCsvRow(o, {v.name, ValueText(value), label});
            for (const auto& [value, label] : v.textLabels) {
                if (value.empty())
                    std::fprintf(stderr, "murv dict: %s: the label of the blank value (%s) has no row in this form\n",
                                 v.name.c_str(), label.c_str());
                else
                    AppendCsvRow(o, {v.name, value, label});
            }
            out.MaybeFlush();
        }
        return kExitOk;
    }
    AppendCsvRow(o, {"name", "type", "width", "label", "print_format", "write_format", "measure", "alignment",
                     "column_width", "missing_values", "value_labels"});
    for (const Variable& v : m.vars) {
        std::string labels;
        for (const auto& [value, label] : v.numberLabels) labels += (labels.empty() ? "" : "; ") + ValueText(value) + "=" + label;
        for (const auto& [value, label] : v.textLabels) labels += (labels.empty() ? "" : "; ") + value + "=" + label;
        AppendCsvRow(o, {v.name, v.type == 0 ? "numeric" : "string", std::to_string(v.type), v.label, FormatName(v.print),
                         FormatName(v.write), MeasureName(v.measure), AlignmentName(v.alignment),
                         std::to_string(v.columnWidth), MissingText(v), labels});
        out.MaybeFlush();
    }
    return kExitOk;
}

int RunCheck(const std::string& file) {
    std::unique_ptr<ReadHandle> rh;
    FileMeta m;
    try {
        rh = std::make_unique<ReadHandle>(file);
        // Every record of the dictionary, through every getter.
        m = LoadMeta(*rh, Detail::kFull);
    } catch (const Failure& f) {
        if (f.exit != kExitLibrary) throw;
        std::fprintf(stderr, "%s (the file is damaged)\n", f.what());
        return kExitDamaged;
    }
    const int h = rh->get();
    Progress progress("checking", m.cases);
    std::int64_t read = 0;
    int rc = MURV_RC_OK;
    while ((rc = murvReadCaseRecord(h)) == MURV_RC_OK) progress.Update(++read);
    progress.Finish();
    const std::string damage = DamageText(m, read, rc);
    if (!damage.empty()) {
        std::fprintf(stderr, "%s\n", damage.c_str());
        return kExitDamaged;
    }
    std::printf("%s: sound: %" PRId64 " cases\n", file.c_str(), read);
    return std::fflush(stdout) == 0 ? kExitOk : kExitIo;
}

}  // namespace murv
