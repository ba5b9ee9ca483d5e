// `murv convert`: a file rewritten with everything it holds, optionally with
// other compression or a subset of its variables.
#include <cstring>
#include <filesystem>
#include <functional>
#include <unordered_set>

#include "murv.h"

namespace murv {

namespace {

std::vector<const char*> Pointers(const std::vector<std::string>& v) {
    std::vector<const char*> p;
    for (const std::string& s : v) p.push_back(s.c_str());
    return p;
}

void SetAttributes(const TextPairs& attrs, const std::string& out, const std::string& what,
                   const std::function<int(const char**, const char**, int)>& set) {
    if (attrs.empty()) return;
    std::vector<std::string> names, values;
    for (const auto& [n, v] : attrs) {
        names.push_back(n);
        values.push_back(v);
    }
    auto pn = Pointers(names);
    auto pv = Pointers(values);
    Check(set(pn.data(), pv.data(), static_cast<int>(pn.size())), out, "attributes of " + what);
}

// The dictionary of the chosen variables, and what of the file belongs to them.
void CopyDictionary(const ReadHandle& src, const FileMeta& m, const std::vector<std::size_t>& sel, int h,
                    const std::string& out) {
    std::unordered_set<std::string> kept;
    for (std::size_t i : sel) {
        const Variable& v = m.vars[i];
        const char* name = v.name.c_str();
        kept.insert(v.name);
        Check(murvSetVarName(h, name, v.type), out, "defining variable " + v.name);
        if (v.hasLabel) Check(murvSetVarLabel(h, name, v.label.c_str()), out, "label of " + v.name);
        Check(murvSetVarPrintFormat(h, name, v.print.type, v.print.decimals, v.print.width), out, "print format of " + v.name);
        Check(murvSetVarWriteFormat(h, name, v.write.type, v.write.decimals, v.write.width), out, "write format of " + v.name);
        const MissingValues& mv = v.missing;
        if (mv.format != 0) {
            if (v.type == 0)
                Check(murvSetVarNMissingValues(h, name, mv.format, mv.numbers[0], mv.numbers[1], mv.numbers[2]), out,
                      "missing values of " + v.name);
            else
                Check(murvSetVarCMissingValues(h, name, mv.format, mv.texts[0].c_str(), mv.texts[1].c_str(),
                                               mv.texts[2].c_str()),
                      out, "missing values of " + v.name);
        }
        for (const auto& [value, label] : v.numberLabels)
            Check(murvSetVarNValueLabel(h, name, value, label.c_str()), out, "value labels of " + v.name);
        for (const auto& [value, label] : v.textLabels)
            Check(murvSetVarCValueLabel(h, name, value.c_str(), label.c_str()), out, "value labels of " + v.name);
        Check(murvSetVarMeasureLevel(h, name, v.measure), out, "measurement level of " + v.name);
        Check(murvSetVarAlignment(h, name, v.alignment), out, "alignment of " + v.name);
        Check(murvSetVarColumnWidth(h, name, v.columnWidth), out, "column width of " + v.name);
        SetAttributes(v.attributes, out, v.name,
                      [&](const char** n, const char** val, int c) { return murvSetVarAttributes(h, name, n, val, c); });
    }
    if (m.hasLabel) Check(murvSetIdString(h, m.label.c_str()), out, "file label");
    Check(murvCopyDocuments(src.get(), h), out, "documents");
    SetAttributes(m.attributes, out, "the file",
                  [&](const char** n, const char** v, int c) { return murvSetFileAttributes(h, n, v, c); });
    if (!m.weight.empty() && kept.count(m.weight)) Check(murvSetCaseWeightVar(h, m.weight.c_str()), out, "weight variable");
    // Sets keep the chosen variables; a set left without any goes.
    for (const MultResponseSet& s : m.mrsets) {
        std::vector<std::string> vars;
        for (const std::string& v : s.variables)
            if (kept.count(v)) vars.push_back(v);
        if (vars.size() < 2) continue;
        auto pv = Pointers(vars);
        murvMultRespDef d{};
        std::snprintf(d.setName, sizeof d.setName, "%s", s.name.c_str());
        std::snprintf(d.setLabel, sizeof d.setLabel, "%s", s.label.c_str());
        d.isDichotomy = s.dichotomy;
        d.isNumeric = s.numeric;
        d.useCategoryLabels = s.categoryLabels;
        d.useFirstVarLabel = s.firstVarLabel;
        d.countedValue = s.countedValue;
        std::string counted = s.countedText;
        d.countedValueText = counted.empty() ? nullptr : counted.data();
        d.varNames = const_cast<char**>(pv.data());
        d.varCount = static_cast<int>(pv.size());
        Check(murvAddMultRespDefExt(h, &d), out, "multiple-response set " + s.name);
    }
    std::string sets;
    for (const auto& [name, vars] : m.varSets) {
        std::string line;
        for (const std::string& v : vars)
            if (kept.count(v)) line += " " + v;
        if (!line.empty()) sets += name + "=" + line + "\n";
    }
    if (!sets.empty()) Check(murvSetVariableSets(h, sets.c_str()), out, "variable sets");
    // Records the library hands out raw go across unchanged (text information,
    // the data-entry block, records of other programs), except the sets
    // written above. Date-variable information refers to the file's variable
    // positions and is left out of a file with fewer variables.
    for (const ExtensionRecord& r : m.openRecords) {
        if (r.subtype == 5 || r.subtype == 7 || r.subtype == 19) continue;
        std::vector<char> data(static_cast<std::size_t>(r.unitSize) * static_cast<std::size_t>(r.count));
        int got = 0;
        Check(murvGetExtensionData(src.get(), r.subtype, static_cast<int>(data.size()), &got, data.data()), src.path(),
              "extension record " + std::to_string(r.subtype));
        Check(murvSetExtensionData(h, r.subtype, r.unitSize, got, data.data()), out,
              "extension record " + std::to_string(r.subtype));
    }
}

}  // namespace

int RunConvert(const ConvertOptions& opt) {
    ReplaceFile dest(opt.out, opt.in);
    ReadHandle src(opt.in);
    const FileMeta m = LoadMeta(src, opt.vars.empty() ? Detail::kNamesOnly : Detail::kFull);
    int compression = opt.compress;
    if (compression < 0) Check(murvGetCompression(src.get(), &compression), opt.in, "compression");

    int h = -1;
    struct Closer {
        int& h;
        ~Closer() {
            if (h >= 0) murvCloseWrite(h);
        }
    } closer{h};
    std::vector<std::size_t> sel;
    if (opt.vars.empty()) {
        // The whole dictionary, through the library's own copy.
        Check(murvOpenWriteCopy(dest.temp().c_str(), opt.in.c_str(), &h), opt.out, "copying the dictionary of " + opt.in);
    } else {
        sel = SelectVars(m, opt.vars);
        Check(murvOpenWrite(dest.temp().c_str(), &h), opt.out, "creating the file");
        CopyDictionary(src, m, sel, h, opt.out);
    }
    Check(murvSetCompression(h, compression), opt.out, "setting compression");
    Check(murvCommitHeader(h), opt.out, "writing the dictionary");
    int outSize = 0;
    Check(murvGetCaseSize(h, &outSize), opt.out, "case size");

    // Cases, whole records; a subset is cut out of each.
    struct Piece {
        std::size_t from, to, len;
    };
    std::vector<Piece> pieces;
    std::size_t at = 0;
    for (std::size_t i : sel) {
        const Variable& v = m.vars[i];
        const std::size_t len = v.type == 0 ? 8 : static_cast<std::size_t>((v.type + 7) / 8) * 8;
        if (!pieces.empty() && pieces.back().from + pieces.back().len == v.offset)
            pieces.back().len += len;  // neighbours in both files: one copy
        else
            pieces.push_back({v.offset, at, len});
        at += len;
    }
    std::vector<char> in(static_cast<std::size_t>(m.caseSize > 0 ? m.caseSize : 8));
    std::vector<char> outRec(static_cast<std::size_t>(outSize > 0 ? outSize : 8));
    Progress progress("converting", m.cases);
    // Damage in the cases ends the copy: every whole case before it is
    // written, and the damage is reported (exit 4).
    std::string damage;
    for (std::int64_t c = 0;; ++c) {
        const int rc = murvWholeCaseIn(src.get(), in.data());
        if (rc != MURV_RC_OK) {
            damage = DamageText(m, c, rc);
            break;
        }
        const char* rec = in.data();
        if (!pieces.empty()) {
            for (const Piece& p : pieces) std::memcpy(outRec.data() + p.to, in.data() + p.from, p.len);
            rec = outRec.data();
        }
        Check(murvWholeCaseOut(h, rec), opt.out, "writing case " + std::to_string(c + 1));
        progress.Update(c);
    }
    progress.Finish();
    const int crc = murvCloseWrite(h);
    h = -1;
    Check(crc, opt.out, "finishing the file");
    dest.Commit();
    if (!damage.empty()) {
        std::fprintf(stderr, "%s\n%s: written with the whole cases read before the damage\n", damage.c_str(),
                     opt.out.c_str());
        return kExitDamaged;
    }
    return kExitOk;
}

}  // namespace murv
