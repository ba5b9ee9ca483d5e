// Errors, the metadata of an open file, and the pieces of text output that
// the subcommands share.
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <chrono>
#include <cmath>
#include <cstring>
#include <cwchar>
#include <cwctype>
#include <filesystem>
#include <memory>
#include <random>
#include <unordered_map>

#include "murv.h"

namespace murv {

namespace {

struct CodeText {
    int rc;
    const char* name;
    const char* reason;
};

constexpr CodeText kCodes[] = {
    {MURV_RC_OK, "MURV_RC_OK", "no error"},
    {MURV_RC_FILE_OPEN, "MURV_RC_FILE_OPEN", "the file cannot be opened"},
    {MURV_RC_FILE_WRITE, "MURV_RC_FILE_WRITE", "writing the file failed"},
    {MURV_RC_FILE_READ, "MURV_RC_FILE_READ", "reading the file failed or it ends early"},
    {MURV_RC_TABLE_FULL, "MURV_RC_TABLE_FULL", "too many files open"},
    {MURV_RC_BAD_HANDLE, "MURV_RC_BAD_HANDLE", "bad handle or argument, or the call failed"},
    {MURV_RC_BAD_FILE, "MURV_RC_BAD_FILE", "not a readable system file, or damaged"},
    {MURV_RC_NO_MEMORY, "MURV_RC_NO_MEMORY", "out of memory"},
    {MURV_RC_READ_MODE, "MURV_RC_READ_MODE", "the file is open for reading"},
    {MURV_RC_WRITE_MODE, "MURV_RC_WRITE_MODE", "the file is open for writing"},
    {MURV_RC_BAD_VAR_NAME, "MURV_RC_BAD_VAR_NAME", "invalid variable name"},
    {MURV_RC_EMPTY_DICT, "MURV_RC_EMPTY_DICT", "no variables defined"},
    {MURV_RC_VAR_NOT_FOUND, "MURV_RC_VAR_NOT_FOUND", "no such variable"},
    {MURV_RC_DUP_VAR, "MURV_RC_DUP_VAR", "duplicate variable name"},
    {MURV_RC_NUMERIC_EXPECTED, "MURV_RC_NUMERIC_EXPECTED", "a numeric variable was expected"},
    {MURV_RC_STRING_EXPECTED, "MURV_RC_STRING_EXPECTED", "a string variable was expected"},
    {MURV_RC_SHORT_STRING_EXPECTED, "MURV_RC_SHORT_STRING_EXPECTED", "a short string variable was expected"},
    {MURV_RC_BAD_VAR_TYPE, "MURV_RC_BAD_VAR_TYPE", "invalid variable type"},
    {MURV_RC_BAD_MISSING, "MURV_RC_BAD_MISSING", "invalid missing values"},
    {MURV_RC_BAD_PRINT_FORMAT, "MURV_RC_BAD_PRINT_FORMAT", "invalid print format"},
    {MURV_RC_BAD_WRITE_FORMAT, "MURV_RC_BAD_WRITE_FORMAT", "invalid write format"},
    {MURV_RC_BAD_DATE, "MURV_RC_BAD_DATE", "invalid date"},
    {MURV_RC_BAD_TIME, "MURV_RC_BAD_TIME", "invalid time"},
    {MURV_RC_DICT_COMMITTED, "MURV_RC_DICT_COMMITTED", "the dictionary is already committed"},
    {MURV_RC_DICT_NOT_COMMITTED, "MURV_RC_DICT_NOT_COMMITTED", "the dictionary is not committed"},
    {MURV_RC_NO_RELEASE_INFO, "MURV_RC_NO_RELEASE_INFO", "no release information"},
    {MURV_RC_BAD_DATE_INFO, "MURV_RC_BAD_DATE_INFO", "invalid date-variable information"},
    {MURV_RC_STRING_TOO_LONG, "MURV_RC_STRING_TOO_LONG", "string too long"},
    {MURV_RC_CANNOT_FREE, "MURV_RC_CANNOT_FREE", "memory cannot be released"},
    {MURV_RC_BUFFER_SHORT, "MURV_RC_BUFFER_SHORT", "buffer too short"},
    {MURV_RC_NO_CURRENT_CASE, "MURV_RC_NO_CURRENT_CASE", "no current case"},
    {MURV_RC_BAD_SUBTYPE, "MURV_RC_BAD_SUBTYPE", "extension subtype not open to callers"},
    {MURV_RC_BAD_VAR_HANDLE, "MURV_RC_BAD_VAR_HANDLE", "invalid variable handle"},
    {MURV_RC_BAD_MRSET_DEF, "MURV_RC_BAD_MRSET_DEF", "invalid multiple-response set"},
    {MURV_RC_BAD_MRSET_NAME, "MURV_RC_BAD_MRSET_NAME", "invalid multiple-response set name"},
    {MURV_RC_DUP_MRSET_NAME, "MURV_RC_DUP_MRSET_NAME", "duplicate multiple-response set name"},
    {MURV_RC_BAD_EXTENSION, "MURV_RC_BAD_EXTENSION", "invalid extension record"},
    {MURV_RC_BAD_ATTR_NAME, "MURV_RC_BAD_ATTR_NAME", "invalid attribute name"},
    {MURV_RC_BAD_ATTR_DEF, "MURV_RC_BAD_ATTR_DEF", "invalid attribute"},
    {MURV_RC_BAD_MRSET_INDEX, "MURV_RC_BAD_MRSET_INDEX", "no multiple-response set at that index"},
    {MURV_RC_VAR_LABEL_CUT, "MURV_RC_VAR_LABEL_CUT", "variable label cut"},
    {MURV_RC_VALUE_LABEL_CUT, "MURV_RC_VALUE_LABEL_CUT", "value label cut"},
    {MURV_RC_END_OF_FILE, "MURV_RC_END_OF_FILE", "end of file"},
    {MURV_RC_NO_VARIABLE_SETS, "MURV_RC_NO_VARIABLE_SETS", "no variable sets"},
    {MURV_RC_NO_VALUE_LABELS, "MURV_RC_NO_VALUE_LABELS", "no value labels"},
    {MURV_RC_NO_LABEL, "MURV_RC_NO_LABEL", "no label"},
    {MURV_RC_NO_WEIGHT, "MURV_RC_NO_WEIGHT", "no weight variable"},
    {MURV_RC_NO_DATE_INFO, "MURV_RC_NO_DATE_INFO", "no date-variable information"},
    {MURV_RC_NO_MRSETS, "MURV_RC_NO_MRSETS", "no multiple-response sets"},
    {MURV_RC_NO_ZOP, "MURV_RC_NO_ZOP", "no data-entry block"},
};

const CodeText* FindCode(int rc) {
    for (const auto& c : kCodes)
        if (c.rc == rc) return &c;
    return nullptr;
}

std::string BufferText(const char* b) { return std::string(b); }

// Runs a getter that fills a fixed buffer; a negative code means "absent".
template <typename F>
bool GetText(std::string& out, std::size_t size, const std::string& file, const char* step, F call) {
    std::vector<char> buf(size + 1, '\0');
    const int rc = call(buf.data());
    if (rc < 0) return false;
    Check(rc, file, step);
    out = BufferText(buf.data());
    return true;
}

TextPairs TakeAttributes(char** names, char** values, int n) {
    TextPairs out;
    for (int i = 0; i < n; ++i) out.emplace_back(names[i] ? names[i] : "", values[i] ? values[i] : "");
    murvFreeAttributes(names, values, n);
    return out;
}

std::vector<std::pair<std::string, std::vector<std::string>>> ParseVarSets(const std::string& text) {
    // One set per line: NAME= VAR VAR ...
    std::vector<std::pair<std::string, std::vector<std::string>>> sets;
    std::size_t pos = 0;
    while (pos < text.size()) {
        std::size_t eol = text.find('\n', pos);
        if (eol == std::string::npos) eol = text.size();
        std::string line = text.substr(pos, eol - pos);
        pos = eol + 1;
        if (!line.empty() && line.back() == '\r') line.pop_back();
        const std::size_t eq = line.find('=');
        if (eq == std::string::npos) continue;
        std::pair<std::string, std::vector<std::string>> set;
        set.first = std::string(TrimRight(line.substr(0, eq)));
        std::size_t p = eq + 1;
        while (p < line.size()) {
            while (p < line.size() && line[p] == ' ') ++p;
            std::size_t q = p;
            while (q < line.size() && line[q] != ' ') ++q;
            if (q > p) set.second.push_back(line.substr(p, q - p));
            p = q;
        }
        sets.push_back(std::move(set));
    }
    return sets;
}

// The byte order is not among what the interface reports: it is read from
// the layout code of the header (4 bytes at offset 64; 2 or 3 in the writer's
// byte order).
std::string ByteOrderOf(const std::string& path) {
    std::FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) return "unknown";
    unsigned char b[68];
    const std::size_t n = std::fread(b, 1, sizeof b, f);
    std::fclose(f);
    if (n != sizeof b) return "unknown";
    const std::uint32_t le = b[64] | (b[65] << 8) | (b[66] << 16) | (std::uint32_t(b[67]) << 24);
    const std::uint32_t be = b[67] | (b[66] << 8) | (b[65] << 16) | (std::uint32_t(b[64]) << 24);
    if (le == 2 || le == 3) return "little-endian";
    if (be == 2 || be == 3) return "big-endian";
    return "unknown";
}

// Where the cases of a file start: the byte after the dictionary's end
// record, found by walking the records as the header lays them out; -1 when
// the dictionary cannot be walked. The interface does not tell it, and
// `cat`, `convert` and `check` need it to tell a plain file cut inside a
// case from one cut at a case boundary.
std::int64_t DataStartOf(const std::string& path) {
    std::FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) return -1;
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> closer(f, std::fclose);
    unsigned char head[176];
    if (std::fread(head, 1, sizeof head, f) != sizeof head) return -1;
    const std::uint32_t layout = head[64] | (head[65] << 8) | (head[66] << 16) | (std::uint32_t(head[67]) << 24);
    const bool little = layout == 2 || layout == 3;
    std::int64_t at = sizeof head;
    auto int32 = [&](std::int32_t& out) {
        unsigned char b[4];
        if (std::fread(b, 1, 4, f) != 4) return false;
        const std::uint32_t u = little ? b[0] | (b[1] << 8) | (b[2] << 16) | (std::uint32_t(b[3]) << 24)
                                       : b[3] | (b[2] << 8) | (b[1] << 16) | (std::uint32_t(b[0]) << 24);
        out = static_cast<std::int32_t>(u);
        at += 4;
        return true;
    };
    auto skip = [&](std::int64_t n) {
        if (n < 0 || std::fseek(f, static_cast<long>(n), SEEK_CUR) != 0) return false;
        at += n;
        return true;
    };
    for (int records = 0; records < 1 << 24; ++records) {
        std::int32_t type = 0;
        if (!int32(type)) return -1;
        switch (type) {
            case 2: {  // a variable: type, has label, missing count, formats, name
                std::int32_t w[4];
                for (std::int32_t& x : w)
                    if (!int32(x)) return -1;
                if (!skip(12)) return -1;  // write format, name
                if (w[1]) {
                    std::int32_t len = 0;
                    if (!int32(len) || !skip((static_cast<std::int64_t>(len) + 3) / 4 * 4)) return -1;
                }
                if (!skip(static_cast<std::int64_t>(w[2] < 0 ? -static_cast<std::int64_t>(w[2]) : w[2]) * 8)) return -1;
                break;
            }
            case 3: {  // value labels: value, length byte, text padded to 8
                std::int32_t n = 0;
                if (!int32(n) || n < 0) return -1;
                for (std::int32_t i = 0; i < n; ++i) {
                    if (!skip(8)) return -1;
                    const int len = std::fgetc(f);
                    if (len == EOF) return -1;
                    ++at;
                    if (!skip((len + 1 + 7) / 8 * 8 - 1)) return -1;
                }
                break;
            }
            case 4: {  // the variables the labels belong to
                std::int32_t n = 0;
                if (!int32(n) || !skip(static_cast<std::int64_t>(n) * 4)) return -1;
                break;
            }
            case 6: {  // documents, 80 bytes a line
                std::int32_t n = 0;
                if (!int32(n) || !skip(static_cast<std::int64_t>(n) * 80)) return -1;
                break;
            }
            case 7: {  // extension records: subtype, unit size, count
                std::int32_t w[3];
                for (std::int32_t& x : w)
                    if (!int32(x)) return -1;
                if (w[1] < 0 || w[2] < 0 || !skip(static_cast<std::int64_t>(w[1]) * w[2])) return -1;
                break;
            }
            case 999: {
                std::int32_t filler = 0;
                return int32(filler) ? at : -1;
            }
            default:
                return -1;
        }
    }
    return -1;
}

void LoadVariable(int h, const std::string& file, Variable& v, Detail detail) {
    const char* name = v.name.c_str();
    Check(murvGetVarPrintFormat(h, name, &v.print.type, &v.print.decimals, &v.print.width), file, "print format of " + v.name);
    if (v.type == 0) {
        double* values = nullptr;
        char** labels = nullptr;
        int n = 0;
        const int rc = murvGetVarNValueLabels(h, name, &values, &labels, &n);
        if (rc == MURV_RC_OK) {
            for (int i = 0; i < n; ++i) v.numberLabels.emplace_back(values[i], labels[i] ? labels[i] : "");
            murvFreeVarNValueLabels(values, labels, n);
        } else if (rc > 0) {
            Check(rc, file, "value labels of " + v.name);
        }
    } else {
        char** values = nullptr;
        char** labels = nullptr;
        int n = 0;
        const int rc = murvGetVarCValueLabels(h, name, &values, &labels, &n);
        if (rc == MURV_RC_OK) {
            for (int i = 0; i < n; ++i)
                v.textLabels.emplace_back(std::string(TrimRight(values[i] ? values[i] : "")), labels[i] ? labels[i] : "");
            murvFreeVarCValueLabels(values, labels, n);
        } else if (rc > 0 && rc != MURV_RC_SHORT_STRING_EXPECTED) {
            Check(rc, file, "value labels of " + v.name);
        }
    }
    if (detail != Detail::kFull) return;

    std::vector<char> label(1 << 16);
    int len = 0;
    int rc = murvGetVarLabelLong(h, name, label.data(), static_cast<int>(label.size()), &len);
    if (rc == MURV_RC_OK) {
        v.hasLabel = true;
        v.label.assign(label.data(), static_cast<std::size_t>(len));
    } else if (rc > 0) {
        Check(rc, file, "label of " + v.name);
    }
    Check(murvGetVarWriteFormat(h, name, &v.write.type, &v.write.decimals, &v.write.width), file, "write format of " + v.name);
    if (v.type == 0) {
        MissingValues& m = v.missing;
        Check(murvGetVarNMissingValues(h, name, &m.format, &m.numbers[0], &m.numbers[1], &m.numbers[2]), file,
              "missing values of " + v.name);
    } else {
        char a[64], b[64], c[64];
        rc = murvGetVarCMissingValues(h, name, &v.missing.format, a, b, c);
        if (rc == MURV_RC_OK) {
            v.missing.texts[0] = std::string(TrimRight(a));
            v.missing.texts[1] = std::string(TrimRight(b));
            v.missing.texts[2] = std::string(TrimRight(c));
        } else if (rc != MURV_RC_SHORT_STRING_EXPECTED) {
            Check(rc, file, "missing values of " + v.name);
        }
    }
    Check(murvGetVarMeasureLevel(h, name, &v.measure), file, "measurement level of " + v.name);
    Check(murvGetVarAlignment(h, name, &v.alignment), file, "alignment of " + v.name);
    Check(murvGetVarColumnWidth(h, name, &v.columnWidth), file, "column width of " + v.name);
    char** an = nullptr;
    char** av = nullptr;
    int n = 0;
    rc = murvGetVarAttributes(h, name, &an, &av, &n);
    Check(rc, file, "attributes of " + v.name);
    v.attributes = TakeAttributes(an, av, n);
}

}  // namespace

const char* CodeName(int rc) {
    const CodeText* c = FindCode(rc);
    return c ? c->name : "unknown code";
}

const char* CodeReason(int rc) {
    const CodeText* c = FindCode(rc);
    return c ? c->reason : "unknown code";
}

std::string DescribeCode(int rc) {
    return "code " + std::to_string(rc) + " " + CodeName(rc) + ": " + CodeReason(rc);
}

void Check(int rc, const std::string& file, const std::string& step) {
    if (rc > 0) throw Failure(kExitLibrary, file + ": " + step + ": " + DescribeCode(rc));
}

std::string DamageText(const FileMeta& m, std::int64_t read, int rc) {
    const std::int64_t n = m.cases;
    const std::string of = n >= 0 ? " of the " + std::to_string(n) + " it states" : "";
    const std::string head = m.path + ": damaged: ";
    auto after = [&](std::int64_t c) { return head + "the file ends after case " + std::to_string(c) + of; };
    auto inside = [&](std::int64_t c) { return head + "the file ends inside case " + std::to_string(c) + of; };
    // A plain file holds nothing but whole cases after its dictionary, so
    // where its data ends follows from its size. Compressed data can also
    // fail on an undecodable command, which the library does not tell from a
    // cut: such a failure is only said to be unreadable.
    std::int64_t whole = -1, rest = 0;
    if (m.compression == 0 && m.caseSize > 0) {
        const std::int64_t start = DataStartOf(m.path);
        std::error_code ec;
        const auto size = static_cast<std::int64_t>(std::filesystem::file_size(m.path, ec));
        if (start >= 0 && !ec && size >= start) {
            whole = (size - start) / m.caseSize;
            rest = (size - start) % m.caseSize;
        }
    }
    // `read` may be a case reached by a seek rather than by reading: a plain
    // file that ends before it says where.
    const bool endsBefore = whole >= 0 && whole <= read && (whole < read || rest != 0 || rc != MURV_RC_END_OF_FILE);
    if (rc == MURV_RC_END_OF_FILE) {
        if (n >= 0 && read < n) return endsBefore ? (rest ? inside(whole + 1) : after(whole)) : after(read);
        if (n >= 0 && read > n)
            return head + "the file holds " + std::to_string(read) + " cases, more than the " + std::to_string(n) +
                   " it states";
        return "";
    }
    if (endsBefore) return rest ? inside(whole + 1) : after(whole);
    return head + "case " + std::to_string(read + 1) + of + " cannot be read";
}

ReadHandle::ReadHandle(const std::string& path) : path_(path) {
    const int rc = murvOpenRead(path.c_str(), &handle_);
    if (rc != MURV_RC_OK) {
        // The library does not tell a missing file from a damaged one.
        if (std::FILE* f = std::fopen(path.c_str(), "rb"))
            std::fclose(f);
        else
            throw Failure(kExitIo, path + ": cannot open: " + std::strerror(errno));
    }
    Check(rc, path, "opening for reading");
}

ReadHandle::~ReadHandle() {
    if (handle_ >= 0) murvCloseRead(handle_);
}

FileMeta LoadMeta(const ReadHandle& rh, Detail detail) {
    const int h = rh.get();
    const std::string& file = rh.path();
    FileMeta m;
    m.path = file;
    int n = 0;
    char** names = nullptr;
    int* types = nullptr;
    const int rc = murvGetVarNames(h, &n, &names, &types);
    Check(rc, file, "reading the variable names");
    m.vars.resize(static_cast<std::size_t>(n));
    std::size_t offset = 0;
    for (int i = 0; i < n; ++i) {
        Variable& v = m.vars[static_cast<std::size_t>(i)];
        v.name = names[i];
        v.type = types[i];
        v.offset = offset;
        offset += v.type == 0 ? 8 : static_cast<std::size_t>((v.type + 7) / 8) * 8;
    }
    murvFreeVarNames(names, types, n);
    for (Variable& v : m.vars) Check(murvGetVarHandle(h, v.name.c_str(), &v.handle), file, "variable " + v.name);
    Check(murvGetCaseSize(h, &m.caseSize), file, "case size");
    Check(murvGetNumberofCases(h, &m.cases), file, "case count");
    Check(murvGetCompression(h, &m.compression), file, "compression");
    if (detail == Detail::kNamesOnly) return m;
    for (Variable& v : m.vars) LoadVariable(h, file, v, detail);
    if (detail != Detail::kFull) return m;

    m.hasLabel = GetText(m.label, 64, file, "file label", [&](char* b) {
        const int r = murvGetIdString(h, b);
        return r == MURV_RC_BAD_HANDLE ? -1 : r;  // no file label
    });
    GetText(m.product, 64, file, "product", [&](char* b) { return murvGetSystemString(h, b); });
    {
        char d[32] = {}, t[32] = {};
        if (murvGetTimeStamp(h, d, t) == MURV_RC_OK) {
            m.date = d;
            m.time = t;
        }
    }
    m.byteOrder = ByteOrderOf(file);
    GetText(m.weight, 64, file, "weight variable", [&](char* b) { return murvGetCaseWeightVar(h, b); });
    GetText(m.textInfo, 256, file, "text information", [&](char* b) { return murvGetTextInfo(h, b); });
    m.hasRelease = murvGetReleaseInfo(h, m.release) == MURV_RC_OK;

    char** an = nullptr;
    char** av = nullptr;
    int na = 0;
    Check(murvGetFileAttributes(h, &an, &av, &na), file, "file attributes");
    m.attributes = TakeAttributes(an, av, na);

    int nsets = 0;
    if (murvGetMultRespCount(h, &nsets) == MURV_RC_OK) {
        for (int i = 0; i < nsets; ++i) {
            murvMultRespDef* d = nullptr;
            Check(murvGetMultRespDefByIndex(h, i, &d), file, "multiple-response set " + std::to_string(i + 1));
            MultResponseSet s;
            s.name = d->setName;
            s.label = d->setLabel;
            s.dichotomy = d->isDichotomy != 0;
            s.numeric = d->isNumeric != 0;
            s.categoryLabels = d->useCategoryLabels != 0;
            s.firstVarLabel = d->useFirstVarLabel != 0;
            s.countedValue = d->countedValue;
            if (d->countedValueText) s.countedText = d->countedValueText;
            for (int k = 0; k < d->varCount; ++k) s.variables.emplace_back(d->varNames[k]);
            murvFreeMultRespDefStruct(d);
            m.mrsets.push_back(std::move(s));
        }
    }
    char* sets = nullptr;
    const int src = murvGetVariableSets(h, &sets);
    if (src == MURV_RC_OK && sets) m.varSets = ParseVarSets(sets);
    if (sets) murvFreeVariableSets(sets);
    if (src > 0) Check(src, file, "variable sets");

    int ndates = 0;
    int* dates = nullptr;
    const int drc = murvGetDateVariables(h, &ndates, &dates);
    if (drc == MURV_RC_OK && dates) m.dateVariables.assign(dates, dates + ndates);
    if (dates) murvFreeDateVariables(dates);
    if (drc > 0) Check(drc, file, "date variables");

    char guid[512] = {};
    if (murvGetZOPGUID(h, guid) == MURV_RC_OK) m.zopGuid = guid;
    murvGetZOPInfo(h, &m.zopBytes, &m.zopSegments);

    for (int s = 0; s <= 32; ++s) {
        int found = 0;
        if (murvQueryType7(h, s, &found) == MURV_RC_OK && found) m.recordsPresent.push_back(s);
        int unit = 0, count = 0;
        if (murvGetExtensionDataDesc(h, s, &unit, &count) == MURV_RC_OK && count > 0)
            m.openRecords.push_back({s, unit, count});
    }
    return m;
}

std::string NameKey(std::string_view name) {
    std::string key;
    key.reserve(name.size() * 4);
    std::mbstate_t state{};
    for (std::size_t pos = 0; pos < name.size();) {
        wchar_t wc = 0;
        const std::size_t n = std::mbrtowc(&wc, name.data() + pos, name.size() - pos, &state);
        if (n == 0) break;
        if (n == static_cast<std::size_t>(-1) || n == static_cast<std::size_t>(-2)) {
            // (A character's key starts with a zero byte: this cannot be one.)
            key += '\xFF';
            key += name[pos++];
            state = std::mbstate_t{};
            continue;
        }
        const auto u = static_cast<std::uint32_t>(std::towupper(static_cast<std::wint_t>(wc)));
        for (int shift = 24; shift >= 0; shift -= 8) key += static_cast<char>((u >> shift) & 0xFF);
        pos += n;
    }
    return key;
}

std::vector<std::size_t> SelectVars(const FileMeta& meta, const std::string& list) {
    std::vector<std::size_t> out;
    if (list.empty()) {
        for (std::size_t i = 0; i < meta.vars.size(); ++i) out.push_back(i);
        return out;
    }
    std::unordered_map<std::string, std::size_t> index;
    for (std::size_t i = 0; i < meta.vars.size(); ++i) index.emplace(NameKey(meta.vars[i].name), i);
    std::string unknown;
    std::size_t pos = 0;
    while (pos <= list.size()) {
        std::size_t comma = list.find(',', pos);
        if (comma == std::string::npos) comma = list.size();
        std::string name = list.substr(pos, comma - pos);
        pos = comma + 1;
        while (!name.empty() && name.front() == ' ') name.erase(name.begin());
        while (!name.empty() && name.back() == ' ') name.pop_back();
        if (name.empty()) continue;
        auto it = index.find(NameKey(name));
        if (it == index.end()) {
            unknown += (unknown.empty() ? "" : ", ") + name;
        } else {
            // A variable named twice would give a row two fields, or a JSON
            // object two keys, of one name.
            if (std::find(out.begin(), out.end(), it->second) != out.end())
                throw Failure(kExitUsage, "--vars: " + name + " is named twice");
            out.push_back(it->second);
        }
    }
    if (!unknown.empty()) throw Failure(kExitUsage, meta.path + ": no such variable: " + unknown);
    if (out.empty()) throw Failure(kExitUsage, meta.path + ": --vars names no variable");
    return out;
}

// ---- text ----

bool IsSysmis(double v) { return v == -1.7976931348623157e308; }

const double kPowersOf10[23] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                                1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

// Writes x / 10^k with k decimals. The output has room for 40 bytes, so
// digits go across in fixed-size copies.
char* WriteDecimal(char* p, std::int64_t x, int k) {
    static constexpr char kPairs[] =
        "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
        "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
        "8081828384858687888990919293949596979899";
    if (x < 0) {
        *p++ = '-';
        x = -x;
    }
    auto u = static_cast<std::uint64_t>(x);
    char tmp[48];
    char* const end = tmp + 24;
    char* e = end;
    while (u >= 100) {
        const auto r = static_cast<unsigned>(u % 100);
        u /= 100;
        e -= 2;
        std::memcpy(e, kPairs + 2 * r, 2);
    }
    if (u >= 10) {
        e -= 2;
        std::memcpy(e, kPairs + 2 * u, 2);
    } else {
        *--e = static_cast<char>('0' + u);
    }
    // Leading zeros so that there is a digit before the point.
    while (end - e <= k) *--e = '0';
    const int n = static_cast<int>(end - e);
    if (k == 0) {
        std::memcpy(p, e, 24);
        return p + n;
    }
    std::memcpy(p, e, 24);
    p += n - k;
    std::memcpy(p + 1, end - k, 24);
    *p = '.';
    return p + 1 + k;
}

char* WriteNumber(char* p, double v) {
    // A value that is x / 10^k for a whole x below 2^50 prints as x with k
    // decimals: the quotient of two exact doubles is rounded correctly, so
    // the text reads back as v, and the smallest such k gives the shortest
    // text. Most data (counts, codes, amounts) take this way; the rest get
    // the general shortest form.
    if (std::fabs(v) < 1e15 && !(v == 0 && std::signbit(v))) {
        for (int k = 0; k <= 9; ++k) {
            const double t = v * kPowersOf10[k];
            if (std::fabs(t) >= 1125899906842624.0) break;  // 2^50
            const auto i = static_cast<std::int64_t>(t < 0 ? t - 0.5 : t + 0.5);
            const auto x = static_cast<double>(i);
            if (std::fabs(t - x) > std::fabs(t) * 1e-15 + 1e-9) continue;
            if (x / kPowersOf10[k] == v) return WriteDecimal(p, i, k);
        }
    }
    return std::to_chars(p, p + 32, v).ptr;
}

void AppendNumber(std::string& out, double v) {
    char buf[40];
    out.append(buf, static_cast<std::size_t>(WriteNumber(buf, v) - buf));
}

bool IsDateFormat(int fmt) {
    switch (fmt) {
        case 20: case 21: case 22: case 23: case 24: case 25: case 28: case 29: case 30: case 38: case 39:
            return true;
        default:
            return false;
    }
}

namespace {

void Append2(std::string& out, int v) {
    out.push_back(static_cast<char>('0' + v / 10 % 10));
    out.push_back(static_cast<char>('0' + v % 10));
}

// Seconds and microseconds, SS or SS.ffffff without trailing zeros.
void AppendSeconds(std::string& out, int s, int micros) {
    Append2(out, s);
    if (micros == 0) return;
    char buf[8];
    std::snprintf(buf, sizeof buf, ".%06d", micros);
    std::size_t n = 7;
    while (buf[n - 1] == '0') --n;
    out.append(buf, n);
}

}  // namespace

bool AppendIsoDate(std::string& out, int fmt, double v) {
    if (!IsDateFormat(fmt) || !std::isfinite(v) || std::fabs(v) > 1e15) return false;
    // Whole seconds and the fraction rounded to the microsecond, carried into
    // the seconds (a value a hair below a whole second is that second).
    // Splitting first keeps the fraction exact: the seconds since 1582 of
    // this era do not fit a double as microseconds.
    const bool negative = v < 0 && (fmt == 21 || fmt == 25);
    const double a = negative ? -v : v;
    auto seconds = static_cast<std::int64_t>(std::floor(a));
    auto micros = static_cast<int>(std::llround((a - std::floor(a)) * 1e6));
    if (micros == 1000000) {
        ++seconds;
        micros = 0;
    }
    if (fmt == 21 || fmt == 25) {  // a time of day or a span: [-]H:MM:SS
        if (negative && (seconds != 0 || micros != 0)) out.push_back('-');
        const std::int64_t hours = seconds / 3600;
        if (hours < 10) out.push_back('0');
        out += std::to_string(hours);
        out.push_back(':');
        Append2(out, static_cast<int>(seconds / 60 % 60));
        out.push_back(':');
        AppendSeconds(out, static_cast<int>(seconds % 60), micros);
        return true;
    }
    const std::int64_t days = seconds >= 0 ? seconds / 86400 : -((-seconds + 86399) / 86400);
    const std::int64_t inDay = seconds - days * 86400;
    int d = 0, mo = 0, y = 0;
    if (murvConvertMURVDate(&d, &mo, &y, static_cast<double>(days) * 86400) != MURV_RC_OK) return false;
    char buf[16];
    std::snprintf(buf, sizeof buf, "%04d-%02d-%02d", y, mo, d);
    out += buf;
    if (fmt == 22) {
        out.push_back('T');
        Append2(out, static_cast<int>(inDay / 3600));
        out.push_back(':');
        Append2(out, static_cast<int>(inDay / 60 % 60));
        out.push_back(':');
        AppendSeconds(out, static_cast<int>(inDay % 60), micros);
    }
    return true;
}

std::string FormatName(const Format& f) {
    static const char* const kNames[] = {
        "",      "A",     "AHEX",     "COMMA", "DOLLAR", "F",     "IB",    "PIBHEX", "P",     "PIB",
        "PK",    "RB",    "RBHEX",    "",      "",       "Z",     "N",     "E",      "",      "",
        "DATE",  "TIME",  "DATETIME", "ADATE", "JDATE",  "DTIME", "WKDAY", "MONTH",  "MOYR",  "QYR",
        "WKYR",  "PCT",   "DOT",      "CCA",   "CCB",    "CCC",   "CCD",   "CCE",    "EDATE", "SDATE"};
    std::string name = (f.type >= 0 && f.type < 40 && kNames[f.type][0]) ? kNames[f.type] : "T" + std::to_string(f.type);
    name += std::to_string(f.width);
    if (f.type != 1 && f.decimals > 0) name += "." + std::to_string(f.decimals);
    return name;
}

std::string_view TrimRight(std::string_view s) {
    std::size_t n = s.size();
    while (n > 0 && s[n - 1] == ' ') --n;
    return s.substr(0, n);
}

void AppendJsonString(std::string& out, std::string_view s) {
    static const char kHex[] = "0123456789abcdef";
    out.push_back('"');
    const auto* p = reinterpret_cast<const unsigned char*>(s.data());
    const std::size_t n = s.size();
    std::size_t i = 0;
    while (i < n) {
        const unsigned char c = p[i];
        if (c < 0x80) {
            switch (c) {
                case '"': out += "\\\""; break;
                case '\\': out += "\\\\"; break;
                case '\n': out += "\\n"; break;
                case '\r': out += "\\r"; break;
                case '\t': out += "\\t"; break;
                default:
                    if (c < 0x20) {
                        out += "\\u00";
                        out.push_back(kHex[c >> 4]);
                        out.push_back(kHex[c & 15]);
                    } else {
                        out.push_back(static_cast<char>(c));
                    }
            }
            ++i;
            continue;
        }
        // A well-formed UTF-8 sequence passes through; any other byte is
        // given as the character of the same number.
        std::size_t len = (c & 0xE0) == 0xC0 ? 2 : (c & 0xF0) == 0xE0 ? 3 : (c & 0xF8) == 0xF0 ? 4 : 0;
        bool ok = len != 0 && i + len <= n && !(c == 0xC0 || c == 0xC1 || c > 0xF4);
        for (std::size_t k = 1; ok && k < len; ++k) ok = (p[i + k] & 0xC0) == 0x80;
        if (ok) {
            out.append(reinterpret_cast<const char*>(p + i), len);
            i += len;
        } else {
            out += "\\u00";
            out.push_back(kHex[c >> 4]);
            out.push_back(kHex[c & 15]);
            ++i;
        }
    }
    out.push_back('"');
}

Output::~Output() {
    try {
        Flush();
    } catch (...) {
    }
}

void Output::Flush() {
    if (buf_.empty()) return;
    const bool ok = std::fwrite(buf_.data(), 1, buf_.size(), f_) == buf_.size();
    buf_.clear();
    if (!ok || std::fflush(f_) != 0) throw Failure(kExitIo, std::string("writing the output: ") + std::strerror(errno));
}

namespace {
double Now() {
    using namespace std::chrono;
    return duration<double>(steady_clock::now().time_since_epoch()).count();
}
}  // namespace

Progress::Progress(const char* what, std::int64_t total)
    : what_(what), total_(total), enabled_(isatty(STDERR_FILENO) == 1), start_(Now()) {}

Progress::~Progress() { Finish(); }

void Progress::Draw(std::int64_t done) {
    if (!enabled_) return;
    const double now = Now();
    if (now - start_ < 0.5 || now - last_ < 0.1) return;
    last_ = now;
    drawn_ = true;
    if (total_ > 0) {
        const int pct = static_cast<int>(std::min<std::int64_t>(100, done * 100 / total_));
        const int bar = pct * 30 / 100;
        std::fprintf(stderr, "\r%s [%.*s%*s] %3d%% %lld/%lld", what_, bar, "##############################", 30 - bar,
                     "", pct, static_cast<long long>(done), static_cast<long long>(total_));
    } else {
        std::fprintf(stderr, "\r%s %lld", what_, static_cast<long long>(done));
    }
    std::fflush(stderr);
}

void Progress::Finish() {
    if (drawn_) {
        std::fprintf(stderr, "\r\033[K");
        std::fflush(stderr);
        drawn_ = false;
    }
    enabled_ = false;
}

namespace {

// The temporary file of the command, for the signal handler: set before the
// file is made, cleared once it is moved into place or removed.
char g_tempPath[4096];
volatile std::sig_atomic_t g_tempArmed = 0;

extern "C" void RemoveTempAndDie(int sig) {
    if (g_tempArmed) ::unlink(g_tempPath);
    struct sigaction dfl {};
    dfl.sa_handler = SIG_DFL;
    sigemptyset(&dfl.sa_mask);
    ::sigaction(sig, &dfl, nullptr);
    ::raise(sig);
}

void ArmSignals(const std::string& temp) {
    static bool installed = false;
    if (temp.size() >= sizeof g_tempPath) throw Failure(kExitIo, temp + ": path too long");
    std::memcpy(g_tempPath, temp.c_str(), temp.size() + 1);
    g_tempArmed = 1;
    if (installed) return;
    installed = true;
    for (int sig : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction old {};
        // A signal the caller chose to ignore (nohup) stays ignored.
        if (::sigaction(sig, nullptr, &old) == 0 && old.sa_handler == SIG_IGN) continue;
        struct sigaction sa {};
        sa.sa_handler = RemoveTempAndDie;
        sigemptyset(&sa.sa_mask);
        ::sigaction(sig, &sa, nullptr);
    }
}

void Disarm() { g_tempArmed = 0; }

std::string DirectoryOf(const std::string& path) {
    const std::size_t slash = path.find_last_of('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

const char* KindOf(mode_t mode) {
    if (S_ISDIR(mode)) return "a directory";
    if (S_ISCHR(mode) || S_ISBLK(mode)) return "a device";
    if (S_ISFIFO(mode)) return "a named pipe";
    if (S_ISSOCK(mode)) return "a socket";
    return "not a regular file";
}

}  // namespace

ReplaceFile::ReplaceFile(const std::string& dest, const std::string& input) : dest_(dest), target_(dest) {
    // Follow symbolic links to the file they name. A link to nothing names a
    // new file there, as a shell's redirection would make it.
    struct stat st {};
    bool exists = false;
    for (int hops = 0;; ++hops) {
        if (::lstat(target_.c_str(), &st) != 0) {
            if (errno != ENOENT) throw Failure(kExitIo, dest + ": " + std::strerror(errno));
            break;
        }
        if (!S_ISLNK(st.st_mode)) {
            exists = true;
            break;
        }
        if (hops == 40) throw Failure(kExitUsage, dest + ": too many levels of symbolic links");
        std::vector<char> link(4096);
        const ssize_t n = ::readlink(target_.c_str(), link.data(), link.size());
        if (n <= 0 || static_cast<std::size_t>(n) >= link.size())
            throw Failure(kExitIo, dest + ": reading the symbolic link: " + std::strerror(errno));
        const std::string to(link.data(), static_cast<std::size_t>(n));
        target_ = to[0] == '/' ? to : DirectoryOf(target_) + "/" + to;
    }
    if (exists && !S_ISREG(st.st_mode))
        throw Failure(kExitUsage, dest + ": is " + KindOf(st.st_mode) + "; murv writes only regular files");
    if (exists && !input.empty() && input != "-") {
        struct stat in {};
        if (::stat(input.c_str(), &in) == 0 && in.st_dev == st.st_dev && in.st_ino == st.st_ino)
            throw Failure(kExitUsage, dest + ": is the input file; write to another name");
    }
    existed_ = exists;
    mode_ = static_cast<unsigned>(st.st_mode & 07777);
    uid_ = exists ? static_cast<long long>(st.st_uid) : -1;
    gid_ = exists ? static_cast<long long>(st.st_gid) : -1;

    std::random_device rd;
    for (int attempt = 0;; ++attempt) {
        if (attempt == 100) throw Failure(kExitIo, dest + ": no free temporary name beside it");
        char suffix[32];
        std::snprintf(suffix, sizeof suffix, ".murv-%u.tmp", static_cast<unsigned>(rd()));
        temp_ = target_ + suffix;
        struct stat t {};
        if (::lstat(temp_.c_str(), &t) != 0 && errno == ENOENT) break;
    }
    ArmSignals(temp_);
}

ReplaceFile::~ReplaceFile() {
    if (done_) return;
    std::remove(temp_.c_str());
    Disarm();
}

void ReplaceFile::Commit() {
    if (existed_) {
        // The owner first: changing it may clear the set-id bits.
        if (uid_ >= 0 && ::chown(temp_.c_str(), static_cast<uid_t>(uid_), static_cast<gid_t>(gid_)) != 0) {
            // Not permitted (another user's file): the new file is ours.
        }
        if (::chmod(temp_.c_str(), static_cast<mode_t>(mode_)) != 0)
            throw Failure(kExitIo, dest_ + ": setting the permissions of the new file: " + std::strerror(errno));
    }
    if (std::rename(temp_.c_str(), target_.c_str()) != 0)
        throw Failure(kExitIo, dest_ + ": moving the finished file into place: " + std::strerror(errno));
    done_ = true;
    Disarm();
}

}  // namespace murv
