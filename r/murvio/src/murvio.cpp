// The compiled part of the murvio package. It works through the library's C
// interface only. Reading moves whole case records from the file into R's
// column vectors a tile of cases at a time; writing builds whole records
// from the columns. Failures of the library come back to R as a list of
// class "murvio_failure" (code and what was being done), which the R side
// turns into a condition of class murvio_error: no R error is raised while a
// handle or a file is in a half-done state.
#include <cpp11.hpp>
#include <cpp11/declarations.hpp>

#include <R_ext/Rallocators.h>
#include <R_ext/Rdynload.h>
#include <Rinternals.h>

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <fcntl.h>
#include <climits>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <random>
#include <unordered_map>
#include <string>
#include <thread>
#include <vector>

#include "murvio.h"

namespace {

struct Failure {
    int code;
    std::string what;
};

[[noreturn]] void Fail(int rc, const std::string& what) { throw Failure{rc, what}; }

void Check(int rc, const std::string& what) {
    if (rc > 0) Fail(rc, what);
}

// Warnings of the calls that define a file (a label stored cut) are
// collected and handed back with the result.
std::vector<std::pair<int, std::string>> g_warnings;

void CheckSet(int rc, const std::string& what) {
    if (rc > 0) Fail(rc, what);
    if (rc == MURV_RC_VAR_LABEL_CUT || rc == MURV_RC_VALUE_LABEL_CUT) g_warnings.emplace_back(rc, what);
}

SEXP Alloc(SEXPTYPE type, R_xlen_t n) { return cpp11::safe[Rf_allocVector](type, n); }

SEXP Str1(const std::string& s) {
    return cpp11::safe[Rf_ScalarString](cpp11::safe[Rf_mkCharLenCE](s.data(), static_cast<int>(s.size()), CE_NATIVE));
}

SEXP Int1(int v) { return cpp11::safe[Rf_ScalarInteger](v); }

// A fresh TRUE (R's own TRUE is shared and must not carry attributes).
SEXP Done() {
    SEXP v = Alloc(LGLSXP, 1);
    LOGICAL(v)[0] = TRUE;
    return v;
}
SEXP Real1(double v) { return cpp11::safe[Rf_ScalarReal](v); }

// A character vector of the texts.
SEXP Strings(const std::vector<std::string>& v) {
    cpp11::sexp out = Alloc(STRSXP, static_cast<R_xlen_t>(v.size()));
    cpp11::unwind_protect([&] {
        for (std::size_t i = 0; i < v.size(); ++i)
            SET_STRING_ELT(out, static_cast<R_xlen_t>(i), Rf_mkCharLenCE(v[i].data(), static_cast<int>(v[i].size()), CE_NATIVE));
    });
    return out;
}

// A named list of the values.
SEXP List(const std::vector<std::pair<const char*, cpp11::sexp>>& items) {
    cpp11::sexp out = Alloc(VECSXP, static_cast<R_xlen_t>(items.size()));
    cpp11::sexp names = Alloc(STRSXP, static_cast<R_xlen_t>(items.size()));
    cpp11::unwind_protect([&] {
        for (std::size_t i = 0; i < items.size(); ++i) {
            SET_VECTOR_ELT(out, static_cast<R_xlen_t>(i), items[i].second);
            SET_STRING_ELT(names, static_cast<R_xlen_t>(i), Rf_mkChar(items[i].first));
        }
        Rf_setAttrib(out, R_NamesSymbol, names);
    });
    return out;
}

SEXP FailureObject(const Failure& f) {
    cpp11::sexp out = List({{"code", Int1(f.code)}, {"what", Str1(f.what)}});
    cpp11::safe[Rf_setAttrib](out, R_ClassSymbol, Str1("murvio_failure"));
    return out;
}

// The warnings collected, as list(code, what) pairs in an attribute.
SEXP WithWarnings(SEXP result) {
    if (g_warnings.empty()) return result;
    cpp11::sexp keep(result);
    std::vector<int> codes;
    std::vector<std::string> whats;
    for (auto& w : g_warnings) codes.push_back(w.first), whats.push_back(w.second);
    g_warnings.clear();
    cpp11::sexp c = Alloc(INTSXP, static_cast<R_xlen_t>(codes.size()));
    for (std::size_t i = 0; i < codes.size(); ++i) INTEGER(c)[i] = codes[i];
    cpp11::sexp w = List({{"code", c}, {"what", Strings(whats)}});
    cpp11::safe[Rf_setAttrib](keep, cpp11::safe[Rf_install]("murvio_warnings"), w);
    return keep;
}

// Runs `body`; a failure of the library comes back as its object.
template <class F>
SEXP Guard(F body) {
    g_warnings.clear();
    try {
        return WithWarnings(body());
    } catch (const Failure& f) {
        g_warnings.clear();
        return FailureObject(f);
    } catch (const std::bad_alloc&) {
        g_warnings.clear();
        return FailureObject({MURV_RC_NO_MEMORY, "allocating memory"});
    }
}

std::string Text(SEXP s, R_xlen_t i = 0) {
    SEXP c = STRING_ELT(s, i);
    if (c == NA_STRING) return std::string();
    return std::string(CHAR(c), static_cast<std::size_t>(LENGTH(c)));
}

// Memory for large numeric columns. A column's buffer is aligned and marked
// for huge pages, and when R frees the column the buffer is kept for the next
// read (up to a limit), so that reading chunk after chunk, or file after
// file, does not ask the system for fresh pages each time: a fresh page costs
// about as much as the case data that fills it.
class BufferCache {
public:
    static BufferCache& Get() {
        static BufferCache* cache = new BufferCache;  // never destroyed: columns may outlive the package
        return *cache;
    }

    void* Take(std::size_t bytes) {
        bytes = (bytes + kHuge - 1) / kHuge * kHuge;
        std::lock_guard<std::mutex> lock(m_);
        auto it = kept_.lower_bound(bytes);
        if (it != kept_.end() && it->first <= bytes + bytes / 2 + kHuge) {
            void* p = it->second;
            keptBytes_ -= it->first;
            live_[p] = it->first;
            kept_.erase(it);
            return p;
        }
        void* p = std::aligned_alloc(kHuge, bytes);
        if (!p) return nullptr;
        madvise(p, bytes, MADV_HUGEPAGE);
        live_[p] = bytes;
        return p;
    }

    void Put(void* p) {
        std::lock_guard<std::mutex> lock(m_);
        auto it = live_.find(p);
        const std::size_t bytes = it == live_.end() ? 0 : it->second;
        if (it != live_.end()) live_.erase(it);
        if (bytes == 0 || bytes > limit_) {
            std::free(p);
            return;
        }
        while (keptBytes_ + bytes > limit_ && !kept_.empty()) {
            auto oldest = kept_.begin();
            keptBytes_ -= oldest->first;
            std::free(oldest->second);
            kept_.erase(oldest);
        }
        kept_.emplace(bytes, p);
        keptBytes_ += bytes;
    }

    // Sets the most kept (bytes; negative leaves it) and returns the bytes kept.
    double Limit(double limit) {
        std::lock_guard<std::mutex> lock(m_);
        if (limit >= 0) {
            limit_ = static_cast<std::size_t>(limit);
            while (keptBytes_ > limit_) {
                auto it = kept_.begin();
                keptBytes_ -= it->first;
                std::free(it->second);
                kept_.erase(it);
            }
        }
        return static_cast<double>(keptBytes_);
    }

    static constexpr std::size_t kHuge = 2u << 20;

private:
    std::mutex m_;
    std::multimap<std::size_t, void*> kept_;
    std::unordered_map<void*, std::size_t> live_;
    std::size_t keptBytes_ = 0;
    std::size_t limit_ = std::size_t{1} << 30;
};

void* CacheAlloc(R_allocator_t*, std::size_t bytes) {
    try {
        return BufferCache::Get().Take(bytes);
    } catch (...) {
        return nullptr;
    }
}

void CacheFree(R_allocator_t*, void* p) { BufferCache::Get().Put(p); }

R_allocator_t gColumnAllocator = {CacheAlloc, CacheFree, nullptr, nullptr};

// A numeric column of n values; a large one in the cache's memory.
SEXP AllocNumbers(R_xlen_t n) {
    if (static_cast<std::size_t>(n) * sizeof(double) < 2 * BufferCache::kHuge) return Alloc(REALSXP, n);
    return cpp11::safe[Rf_allocVector3](REALSXP, n, &gColumnAllocator);
}

// ---- open handles ----

// A read handle held by an external pointer; the finalizer closes it when
// R forgets it, so a handle is never lost to an interrupt or an error.
void CloseHandle(SEXP xp) {
    int* h = static_cast<int*>(R_ExternalPtrAddr(xp));
    if (!h) return;
    if (*h >= 0) murvCloseRead(*h);
    delete h;
    R_ClearExternalPtr(xp);
}

int HandleOf(SEXP xp) {
    if (TYPEOF(xp) != EXTPTRSXP || !R_ExternalPtrAddr(xp)) Fail(MURV_RC_BAD_HANDLE, "the file is closed");
    return *static_cast<int*>(R_ExternalPtrAddr(xp));
}

// ---- the file's own layout ----

// What the dictionary records say that the interface does not: where the
// case data begins, the cells a case takes in the file, and the documents.
// Read from the file's bytes, in either byte order; a file that cannot be
// walked gives a data start of -1.
struct Layout {
    double dataStart = -1;
    double fileSize = -1;
    int cells = 0;
    std::vector<std::string> documents;
};

Layout WalkDictionary(const std::string& path) {
    Layout out;
    FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) return out;
    struct Closer {
        FILE* f;
        ~Closer() { std::fclose(f); }
    } closer{f};
    struct stat st;
    if (fstat(fileno(f), &st) == 0) out.fileSize = static_cast<double>(st.st_size);
    unsigned char head[176];
    if (std::fread(head, 1, sizeof head, f) != sizeof head || std::memcmp(head, "$FL2", 4) != 0) return out;
    auto le = [](const unsigned char* p) {
        return static_cast<std::int32_t>(static_cast<std::uint32_t>(p[0]) | static_cast<std::uint32_t>(p[1]) << 8 |
                                         static_cast<std::uint32_t>(p[2]) << 16 | static_cast<std::uint32_t>(p[3]) << 24);
    };
    auto be = [](const unsigned char* p) {
        return static_cast<std::int32_t>(static_cast<std::uint32_t>(p[3]) | static_cast<std::uint32_t>(p[2]) << 8 |
                                         static_cast<std::uint32_t>(p[1]) << 16 | static_cast<std::uint32_t>(p[0]) << 24);
    };
    const std::int32_t code = le(head + 64);
    const bool little = code == 2 || code == 3;
    auto word = [&](const unsigned char* p) { return little ? le(p) : be(p); };
    out.cells = word(head + 68);
    long pos = 176;
    unsigned char w[16];
    auto read = [&](int n) { return std::fread(w, 1, static_cast<std::size_t>(n), f) == static_cast<std::size_t>(n); };
    auto skip = [&](long n) {
        if (n < 0 || std::fseek(f, n, SEEK_CUR) != 0) return false;
        pos += n;
        return true;
    };
    for (int guard = 0; guard < 1 << 30; ++guard) {
        if (!read(4)) return out;
        pos += 4;
        const std::int32_t type = word(w);
        if (type == 2) {
            if (!read(28)) return out;
            pos += 28;
            const std::int32_t hasLabel = word(w + 4), missing = word(w + 8);
            if (hasLabel == 1) {
                if (!read(4)) return out;
                pos += 4;
                const long len = word(w);
                if (!skip((len + 3) / 4 * 4)) return out;
            }
            if (!skip(8L * std::abs(missing))) return out;
        } else if (type == 3) {
            if (!read(4)) return out;
            pos += 4;
            const long count = word(w);
            if (count < 0) return out;
            for (long i = 0; i < count; ++i) {
                if (!skip(8) || !read(1)) return out;
                pos += 1;
                const long len = w[0];
                if (!skip((1 + len + 7) / 8 * 8 - 1)) return out;
            }
        } else if (type == 4) {
            if (!read(4)) return out;
            pos += 4;
            if (!skip(4L * word(w))) return out;
        } else if (type == 6) {
            if (!read(4)) return out;
            pos += 4;
            const long lines = word(w);
            if (lines < 0 || lines > (1L << 24)) return out;
            std::vector<std::string> docs;
            char line[80];
            for (long i = 0; i < lines; ++i) {
                if (std::fread(line, 1, 80, f) != 80) return out;
                pos += 80;
                std::size_t len = 80;
                while (len > 0 && (line[len - 1] == ' ' || line[len - 1] == '\0')) --len;
                docs.emplace_back(line, len);
            }
            out.documents = std::move(docs);
        } else if (type == 7) {
            if (!read(12)) return out;
            pos += 12;
            const long unit = word(w + 4), count = word(w + 8);
            if (unit < 0 || count < 0) return out;
            if (!skip(unit * count)) return out;
        } else if (type == 999) {
            if (!read(4)) return out;
            pos += 4;
            out.dataStart = static_cast<double>(pos);
            return out;
        } else {
            return out;
        }
    }
    return out;
}

// ---- the dictionary ----

const char* FormatName(int t) {
    static const char* names[] = {nullptr, "A", "AHEX", "COMMA", "DOLLAR", "F", "IB", "PIBHEX", "P", "PIB", "PK", "RB", "RBHEX",
                                  nullptr, nullptr, "Z", "N", "E", nullptr, nullptr, "DATE", "TIME", "DATETIME", "ADATE", "JDATE",
                                  "DTIME", "WKDAY", "MONTH", "MOYR", "QYR", "WKYR", "PCT", "DOT", "CCA", "CCB", "CCC", "CCD",
                                  "CCE", "EDATE", "SDATE"};
    return t >= 0 && t < static_cast<int>(sizeof names / sizeof *names) ? names[t] : nullptr;
}

std::string FormatText(int t, int w, int d) {
    const char* name = FormatName(t);
    std::string s = name ? name : "F";
    s += std::to_string(w);
    if (d > 0 && t != 1) s += "." + std::to_string(d);
    return s;
}

SEXP Pairs(const std::vector<std::string>& names, const std::vector<std::string>& values) {
    cpp11::sexp v = Strings(values);
    cpp11::safe[Rf_setAttrib](v, R_NamesSymbol, Strings(names));
    return v;
}

// Everything the dictionary says about the variables, one vector or list
// per property, and about the file.
SEXP Dictionary(int h, bool full) {
    int n = 0;
    char** names = nullptr;
    int* types = nullptr;
    Check(murvGetVarNames(h, &n, &names, &types), "reading the variable names");
    std::vector<std::string> nameList(static_cast<std::size_t>(n));
    std::vector<int> typeList(types, types + n);
    for (int i = 0; i < n; ++i) nameList[static_cast<std::size_t>(i)] = names[i];
    murvFreeVarNames(names, types, n);

    const R_xlen_t rn = n;
    cpp11::sexp rnames = Strings(nameList);
    cpp11::sexp rtypes = Alloc(INTSXP, rn), offsets = Alloc(REALSXP, rn);
    cpp11::sexp labels = Alloc(STRSXP, rn), formats = Alloc(STRSXP, rn), wformats = Alloc(STRSXP, rn);
    cpp11::sexp ptype = Alloc(INTSXP, rn), measure = Alloc(INTSXP, rn), align = Alloc(INTSXP, rn), width = Alloc(INTSXP, rn);
    cpp11::sexp missing = Alloc(VECSXP, rn), vlabels = Alloc(VECSXP, rn), vattrs = Alloc(VECSXP, rn);
    double off = 0;
    char buf[1100];
    // Variable attributes live in one record: without it no variable has any,
    // and a look-up per variable is saved.
    int varAttributes = 1;
    if (murvQueryType7(h, 18, &varAttributes) != MURV_RC_OK) varAttributes = 1;
    // Most variables share a few formats: each distinct one is made once.
    std::vector<std::pair<long, cpp11::sexp>> formatCache;
    auto formatChar = [&](int t, int w, int d) -> SEXP {
        const long key = (static_cast<long>(t) << 40) ^ (static_cast<long>(w) << 20) ^ d;
        for (auto& e : formatCache)
            if (e.first == key) return e.second;
        const std::string s = FormatText(t, w, d);
        formatCache.emplace_back(key, cpp11::safe[Rf_mkCharLenCE](s.data(), static_cast<int>(s.size()), CE_NATIVE));
        return formatCache.back().second;
    };
    for (int i = 0; i < n; ++i) {
        const char* name = nameList[static_cast<std::size_t>(i)].c_str();
        const int type = typeList[static_cast<std::size_t>(i)];
        INTEGER(rtypes)[i] = type;
        REAL(offsets)[i] = off;
        off += type == 0 ? 8 : (type + 7) / 8 * 8;
        int t = 0, d = 0, w = 0;
        Check(murvGetVarPrintFormat(h, name, &t, &d, &w), "print format of " + nameList[static_cast<std::size_t>(i)]);
        INTEGER(ptype)[i] = t;
        SET_STRING_ELT(formats, i, formatChar(t, w, d));
        Check(murvGetVarWriteFormat(h, name, &t, &d, &w), "write format of " + nameList[static_cast<std::size_t>(i)]);
        SET_STRING_ELT(wformats, i, formatChar(t, w, d));
        int len = 0;
        buf[0] = 0;
        const int lrc = murvGetVarLabelLong(h, name, buf, static_cast<int>(sizeof buf), &len);
        if (lrc == MURV_RC_OK && len > 0) {
            cpp11::unwind_protect([&] { SET_STRING_ELT(labels, i, Rf_mkCharLenCE(buf, static_cast<int>(std::strlen(buf)), CE_NATIVE)); });
        } else {
            SET_STRING_ELT(labels, i, NA_STRING);
        }
        int level = 0, a = 1, cw = 8;
        murvGetVarMeasureLevel(h, name, &level);
        murvGetVarAlignment(h, name, &a);
        murvGetVarColumnWidth(h, name, &cw);
        INTEGER(measure)[i] = level;
        INTEGER(align)[i] = a;
        INTEGER(width)[i] = cw;
        // Missing values: c(kind, values) for numbers; list(kind, texts) for strings.
        if (type == 0) {
            int kind = 0;
            double v[3] = {0, 0, 0};
            if (murvGetVarNMissingValues(h, name, &kind, &v[0], &v[1], &v[2]) == MURV_RC_OK && kind != 0) {
                SEXP m = Alloc(REALSXP, 4);
                SET_VECTOR_ELT(missing, i, m);
                REAL(m)[0] = kind;
                for (int k = 0; k < 3; ++k) REAL(m)[k + 1] = v[k];
            }
            double* values = nullptr;
            char** vl = nullptr;
            int count = 0;
            if (murvGetVarNValueLabels(h, name, &values, &vl, &count) == MURV_RC_OK && count > 0) {
                struct Free {
                    double* v;
                    char** l;
                    int n;
                    ~Free() { murvFreeVarNValueLabels(v, l, n); }
                } freer{values, vl, count};
                SEXP vals = Alloc(REALSXP, count);
                SET_VECTOR_ELT(vlabels, i, vals);
                std::memcpy(REAL(vals), values, sizeof(double) * static_cast<std::size_t>(count));
                cpp11::sexp labs = Alloc(STRSXP, count);
                cpp11::unwind_protect([&] {
                    for (int k = 0; k < count; ++k) SET_STRING_ELT(labs, k, Rf_mkCharCE(vl[k], CE_NATIVE));
                    Rf_setAttrib(vals, R_NamesSymbol, labs);
                });
            }
        } else {
            int kind = 0;
            char m1[64] = {}, m2[64] = {}, m3[64] = {};
            if (type <= 8 && murvGetVarCMissingValues(h, name, &kind, m1, m2, m3) == MURV_RC_OK && kind != 0) {
                std::vector<std::string> vals;
                for (const char* s : {m1, m2, m3}) {
                    std::string x(s);
                    while (!x.empty() && x.back() == ' ') x.pop_back();
                    vals.push_back(x);
                }
                SET_VECTOR_ELT(missing, i, List({{"kind", Int1(kind)}, {"values", Strings(vals)}}));
            }
            char** values = nullptr;
            char** vl = nullptr;
            int count = 0;
            if (murvGetVarCValueLabels(h, name, &values, &vl, &count) == MURV_RC_OK && count > 0) {
                struct Free {
                    char** v;
                    char** l;
                    int n;
                    ~Free() { murvFreeVarCValueLabels(v, l, n); }
                } freer{values, vl, count};
                std::vector<std::string> vals, labs;
                for (int k = 0; k < count; ++k) {
                    std::string x(values[k]);
                    while (!x.empty() && x.back() == ' ') x.pop_back();
                    vals.push_back(x);
                    labs.push_back(vl[k]);
                }
                SET_VECTOR_ELT(vlabels, i, Pairs(labs, vals));
            }
        }
        char** an = nullptr;
        char** av = nullptr;
        int na = 0;
        if (varAttributes && murvGetVarAttributes(h, name, &an, &av, &na) == MURV_RC_OK && na > 0) {
            std::vector<std::string> k, v;
            for (int j = 0; j < na; ++j) k.push_back(an[j]), v.push_back(av[j]);
            murvFreeAttributes(an, av, na);
            SET_VECTOR_ELT(vattrs, i, Pairs(k, v));
        }
    }
    std::vector<std::pair<const char*, cpp11::sexp>> items = {
        {"names", rnames}, {"types", rtypes}, {"offsets", offsets}, {"labels", labels}, {"formats", formats},
        {"write_formats", wformats}, {"format_types", ptype}, {"measure", measure}, {"alignment", align},
        {"display_width", width}, {"missing", missing}, {"value_labels", vlabels}, {"attributes", vattrs}};

    // The file.
    int value = 0;
    murvGetNumberofCases(h, &value);
    items.emplace_back("cases", Int1(value));
    murvGetCaseSize(h, &value);
    items.emplace_back("case_size", Int1(value));
    murvGetCompression(h, &value);
    items.emplace_back("compression", Int1(value));
    buf[0] = 0;
    items.emplace_back("file_label", murvGetIdString(h, buf) == MURV_RC_OK ? Str1(buf) : R_NilValue);
    buf[0] = 0;
    items.emplace_back("weight", murvGetCaseWeightVar(h, buf) == MURV_RC_OK && buf[0] ? Str1(buf) : R_NilValue);
    buf[0] = 0;
    items.emplace_back("text_info", murvGetTextInfo(h, buf) == MURV_RC_OK && buf[0] ? Str1(buf) : R_NilValue);
    if (full) {
        buf[0] = 0;
        murvGetSystemString(h, buf);
        items.emplace_back("product", Str1(buf));
        char date[32] = {}, time[32] = {};
        murvGetTimeStamp(h, date, time);
        items.emplace_back("timestamp", Str1(std::string(date) + " " + time));
        int rel[8] = {};
        items.emplace_back("release", R_NilValue);
        if (murvGetReleaseInfo(h, rel) == MURV_RC_OK) {
            SEXP r = Alloc(INTSXP, 3);
            items.back().second = r;
            for (int k = 0; k < 3; ++k) INTEGER(r)[k] = rel[k];
        }
    }
    char** an = nullptr;
    char** av = nullptr;
    int na = 0;
    items.emplace_back("file_attributes", R_NilValue);
    if (murvGetFileAttributes(h, &an, &av, &na) == MURV_RC_OK && na > 0) {
        std::vector<std::string> k, v;
        for (int j = 0; j < na; ++j) k.push_back(an[j]), v.push_back(av[j]);
        murvFreeAttributes(an, av, na);
        items.back().second = Pairs(k, v);
    }
    // Multiple-response sets, one list each.
    int nsets = 0;
    std::vector<cpp11::sexp> sets;
    if (murvGetMultRespCount(h, &nsets) == MURV_RC_OK) {
        for (int i = 0; i < nsets; ++i) {
            murvMultRespDef* d = nullptr;
            Check(murvGetMultRespDefByIndex(h, i, &d), "multiple-response set " + std::to_string(i + 1));
            struct Free {
                murvMultRespDef* d;
                ~Free() { murvFreeMultRespDefStruct(d); }
            } freer{d};
            std::vector<std::string> vars;
            for (int k = 0; k < d->varCount; ++k) vars.push_back(d->varNames[k]);
            sets.emplace_back(List({{"name", Str1(d->setName)},
                                    {"label", Str1(d->setLabel)},
                                    {"dichotomy", cpp11::safe[Rf_ScalarLogical](d->isDichotomy != 0)},
                                    {"numeric", cpp11::safe[Rf_ScalarLogical](d->isNumeric != 0)},
                                    {"category_labels", cpp11::safe[Rf_ScalarLogical](d->useCategoryLabels != 0)},
                                    {"first_variable_label", cpp11::safe[Rf_ScalarLogical](d->useFirstVarLabel != 0)},
                                    {"counted_value", d->countedValueText ? Str1(d->countedValueText) : R_NilValue},
                                    {"variables", Strings(vars)}}));
        }
    }
    cpp11::sexp setList = Alloc(VECSXP, static_cast<R_xlen_t>(sets.size()));
    for (std::size_t i = 0; i < sets.size(); ++i) SET_VECTOR_ELT(setList, static_cast<R_xlen_t>(i), sets[i]);
    items.emplace_back("mrsets", setList);
    char* vs = nullptr;
    items.emplace_back("variable_sets", R_NilValue);
    if (murvGetVariableSets(h, &vs) == MURV_RC_OK && vs) {
        items.back().second = Str1(vs);
    }
    if (vs) murvFreeVariableSets(vs);
    int ndates = 0;
    int* dates = nullptr;
    items.emplace_back("date_variables", R_NilValue);
    if (murvGetDateVariables(h, &ndates, &dates) == MURV_RC_OK && dates && ndates > 0) {
        SEXP d = Alloc(INTSXP, ndates);
        items.back().second = d;
        std::memcpy(INTEGER(d), dates, sizeof(int) * static_cast<std::size_t>(ndates));
    }
    if (dates) murvFreeDateVariables(dates);
    // Records kept as they are, by subtype: the data-entry block (8) and its
    // identifier (12) among them.
    std::vector<cpp11::sexp> recs;
    std::vector<std::string> recNames;
    for (int s : {1, 2, 8, 12, 15, 20, 21, 22, 23, 24, 25, 26, 27, 28, 29, 30, 31, 32}) {
        int unit = 0, count = 0;
        if (murvGetExtensionDataDesc(h, s, &unit, &count) != MURV_RC_OK || count <= 0) continue;
        const std::size_t bytes = static_cast<std::size_t>(std::max(unit, 1)) * static_cast<std::size_t>(count);
        cpp11::sexp raw = Alloc(RAWSXP, static_cast<R_xlen_t>(bytes));
        std::size_t got = 0;
        while (got < bytes) {
            int elements = 0;
            Check(murvGetExtensionData(h, s, static_cast<int>(bytes - got), &elements, RAW(raw) + got), "extension record " + std::to_string(s));
            if (elements <= 0) break;
            got += static_cast<std::size_t>(elements) * static_cast<std::size_t>(std::max(unit, 1));
        }
        cpp11::safe[Rf_setAttrib](raw, cpp11::safe[Rf_install]("unit"), Int1(unit));
        recs.push_back(raw);
        recNames.push_back(std::to_string(s));
    }
    cpp11::sexp recList = Alloc(VECSXP, static_cast<R_xlen_t>(recs.size()));
    for (std::size_t i = 0; i < recs.size(); ++i) SET_VECTOR_ELT(recList, static_cast<R_xlen_t>(i), recs[i]);
    cpp11::safe[Rf_setAttrib](recList, R_NamesSymbol, Strings(recNames));
    items.emplace_back("extension_records", recList);
    if (full) {
        std::vector<int> present;
        for (int s = 0; s <= 32; ++s) {
            int found = 0;
            if (murvQueryType7(h, s, &found) == MURV_RC_OK && found) present.push_back(s);
        }
        SEXP p = Alloc(INTSXP, static_cast<R_xlen_t>(present.size()));
        items.emplace_back("records_present", p);
        for (std::size_t i = 0; i < present.size(); ++i) INTEGER(p)[i] = present[i];
    }
    return List(items);
}

// ---- reading cases ----

struct MissingValues {
    int kind = 0;
    double v[3] = {0, 0, 0};
    bool Is(double x) const {
        switch (kind) {
            case 1: return x == v[0];
            case 2: return x == v[0] || x == v[1];
            case 3: return x == v[0] || x == v[1] || x == v[2];
            case -2: return x >= v[0] && x <= v[1];
            case -3: return (x >= v[0] && x <= v[1]) || x == v[2];
            default: return false;
        }
    }
};

// Reads up to `count` cases (all that are left for count < 0) from case
// `first` (0-based; below 0: from where the handle stands) into one vector
// per selected variable (0-based positions in `sel`). System-missing values
// become NA, and so do the user-missing values of the variables whose
// `na` element is c(kind, v1, v2, v3). `expect` is the number of cases the
// file should still hold (below 0: unknown), to size the vectors. Returns
// list(columns, n, code): the cases read and the code that ended the read
// (0 when `count` cases were read, -5 at the end of the data, else the
// failure).
SEXP ReadCases(int h, const std::string& path, bool parallel, SEXP sel, double first, double count, SEXP na, double expect) {
    int n = 0;
    char** names = nullptr;
    int* types = nullptr;
    Check(murvGetVarNames(h, &n, &names, &types), "reading the variable names");
    std::vector<int> typeList(types, types + n);
    murvFreeVarNames(names, types, n);
    std::vector<std::size_t> offsets(static_cast<std::size_t>(n));
    std::size_t off = 0;
    for (int i = 0; i < n; ++i) {
        offsets[static_cast<std::size_t>(i)] = off;
        off += typeList[static_cast<std::size_t>(i)] == 0 ? 8 : static_cast<std::size_t>(typeList[static_cast<std::size_t>(i)] + 7) / 8 * 8;
    }
    int caseSize = 0;
    Check(murvGetCaseSize(h, &caseSize), "case size");
    if (off != static_cast<std::size_t>(caseSize)) Fail(MURV_RC_BAD_FILE, "the case layout differs from the library's");

    struct Col {
        std::size_t offset;
        std::size_t width;
        bool numeric;
        MissingValues miss;
    };
    const R_xlen_t ncols = Rf_xlength(sel);
    std::vector<Col> cols(static_cast<std::size_t>(ncols));
    for (R_xlen_t c = 0; c < ncols; ++c) {
        const int i = INTEGER(sel)[c];
        if (i < 0 || i >= n) Fail(MURV_RC_VAR_NOT_FOUND, "variable " + std::to_string(i + 1));
        Col& col = cols[static_cast<std::size_t>(c)];
        col.offset = offsets[static_cast<std::size_t>(i)];
        col.numeric = typeList[static_cast<std::size_t>(i)] == 0;
        col.width = col.numeric ? 8 : static_cast<std::size_t>(typeList[static_cast<std::size_t>(i)]);
        SEXP m = VECTOR_ELT(na, c);
        if (col.numeric && TYPEOF(m) == REALSXP && Rf_xlength(m) == 4) {
            col.miss.kind = static_cast<int>(REAL(m)[0]);
            for (int k = 0; k < 3; ++k) col.miss.v[k] = REAL(m)[k + 1];
        }
    }

    int code = MURV_RC_OK;
    if (first >= 0) {
        if (first > INT_MAX) Fail(MURV_RC_FILE_READ, "going to case " + std::to_string(static_cast<long long>(first) + 1));
        code = murvSeekNextCase(h, static_cast<int>(first));
    }
    R_xlen_t capacity = count >= 0 ? static_cast<R_xlen_t>(count) : 1024;
    if (expect >= 0 && (count < 0 || expect < count)) capacity = static_cast<R_xlen_t>(expect);
    capacity = std::max<R_xlen_t>(capacity, 1);

    bool allNumeric = true;
    for (const Col& col : cols) allNumeric = allNumeric && col.numeric;
    cpp11::sexp out = Alloc(VECSXP, ncols);
    auto reserve = [&](R_xlen_t size, R_xlen_t keep) {
        for (R_xlen_t c = 0; c < ncols; ++c) {
            const Col& col = cols[static_cast<std::size_t>(c)];
            SEXP v = col.numeric ? AllocNumbers(size) : Alloc(STRSXP, size);
            SEXP old = VECTOR_ELT(out, c);
            if (keep > 0) {
                if (col.numeric) {
                    std::memcpy(REAL(v), REAL(old), sizeof(double) * static_cast<std::size_t>(keep));
                } else {
                    for (R_xlen_t r = 0; r < keep; ++r) SET_STRING_ELT(v, r, STRING_ELT(old, r));
                }
            }
            SET_VECTOR_ELT(out, c, v);
        }
    };
    reserve(capacity, 0);

    const double sysmis = murvSysmisVal();
    const std::size_t rec = static_cast<std::size_t>(caseSize);
    const std::size_t tileCases = std::max<std::size_t>(1, (64u << 10) / std::max<std::size_t>(rec, 1));
    std::vector<double*> numericOut(cols.size(), nullptr);
    auto pointers = [&] {
        for (std::size_t c = 0; c < cols.size(); ++c)
            numericOut[c] = cols[c].numeric ? REAL(VECTOR_ELT(out, static_cast<R_xlen_t>(c))) : nullptr;
    };
    pointers();
    // The numeric columns of `m` records of a tile into the rows from `at`
    // on; no call of R's, so a second thread may run it.
    const double naValue = NA_REAL;
    auto scatterNumbers = [&](const char* tile, std::size_t m, R_xlen_t at) {
        for (std::size_t c = 0; c < cols.size(); ++c) {
            const Col& col = cols[c];
            if (!col.numeric) continue;
            const char* src = tile + col.offset;
            double* d = numericOut[c] + at;
            if (col.miss.kind == 0) {
                for (std::size_t r = 0; r < m; ++r, src += rec) {
                    double x;
                    std::memcpy(&x, src, 8);
                    d[r] = x == sysmis ? naValue : x;
                }
            } else {
                for (std::size_t r = 0; r < m; ++r, src += rec) {
                    double x;
                    std::memcpy(&x, src, 8);
                    d[r] = x == sysmis || col.miss.Is(x) ? naValue : x;
                }
            }
        }
    };
    auto scatterStrings = [&](const char* tile, std::size_t m, R_xlen_t at) {
        cpp11::unwind_protect([&] {
            for (std::size_t c = 0; c < cols.size(); ++c) {
                const Col& col = cols[c];
                if (col.numeric) continue;
                SEXP v = VECTOR_ELT(out, static_cast<R_xlen_t>(c));
                const char* p = tile + col.offset;
                for (std::size_t r = 0; r < m; ++r, p += rec) {
                    std::size_t len = strnlen(p, col.width);
                    while (len > 0 && p[len - 1] == ' ') --len;
                    SET_STRING_ELT(v, at + static_cast<R_xlen_t>(r), Rf_mkCharLenCE(p, static_cast<int>(len), CE_NATIVE));
                }
            }
        });
    };
    // Reads up to `limit` cases (no limit below 0) on `handle` into the rows
    // from `at` on. Only the main thread may grow the columns or fill strings.
    auto run = [&](int handle, R_xlen_t at, R_xlen_t limit, bool mainThread, int& rc) -> R_xlen_t {
        std::vector<char> tile(rec * tileCases + 8);
        R_xlen_t done = 0;
        rc = MURV_RC_OK;
        while (rc == MURV_RC_OK && (limit < 0 || done < limit)) {
            std::size_t m = 0;
            while (m < tileCases && (limit < 0 || done + static_cast<R_xlen_t>(m) < limit)) {
                if (!mainThread && at + done + static_cast<R_xlen_t>(m) == capacity) break;
                rc = murvWholeCaseIn(handle, tile.data() + m * rec);
                if (rc != MURV_RC_OK) break;
                ++m;
            }
            if (m == 0) break;
            if (mainThread && at + done + static_cast<R_xlen_t>(m) > capacity) {
                const R_xlen_t need = at + done + static_cast<R_xlen_t>(m);
                capacity = std::max<R_xlen_t>(capacity * 2, need);
                reserve(capacity, at + done);
                pointers();
            }
            scatterNumbers(tile.data(), m, at + done);
            if (mainThread && !allNumeric) scatterStrings(tile.data(), m, at + done);
            done += static_cast<R_xlen_t>(m);
        }
        return done;
    };

    R_xlen_t done = 0;
    // A large read of a plain file with a known end is split in two, the
    // second half read on a handle of its own on a second thread (separate
    // read handles may be used on separate threads). Only numbers: strings
    // are R's objects and are made on the main thread. A compressed file is
    // not split: a fresh handle finds a case in its middle by going through
    // the cases before it.
    int compressed = 1;
    murvGetCompression(h, &compressed);
    const R_xlen_t span = capacity;
    const bool split = parallel && code == MURV_RC_OK && allNumeric && !compressed && first >= 0 && expect >= 0 &&
                       (count < 0 || count >= span) && span >= 100000 && static_cast<double>(span) * static_cast<double>(rec) >= 32.0 * (1 << 20) &&
                       std::thread::hardware_concurrency() > 1 && first + span <= INT_MAX;
    int h2 = -1;
    if (split && murvOpenRead(path.c_str(), &h2) == MURV_RC_OK) {
        struct Close {
            int h;
            ~Close() { murvCloseRead(h); }
        } closeSecond{h2};
        const R_xlen_t mid = span / 2;
        int rc2 = murvSeekNextCase(h2, static_cast<int>(first + mid));
        R_xlen_t n2 = 0;
        std::thread second;
        if (rc2 == MURV_RC_OK) second = std::thread([&] { n2 = run(h2, mid, span - mid, false, rc2); });
        R_xlen_t n1 = 0;
        try {
            n1 = run(h, 0, mid, true, code);
        } catch (...) {
            if (second.joinable()) second.join();
            throw;
        }
        if (second.joinable()) second.join();
        if (n1 < mid) {
            // The data ends (or fails) in the first half: that is all.
            done = n1;
        } else {
            done = n1 + n2;
            code = rc2;
            // The file may hold more cases than it states.
            if (code == MURV_RC_OK && done == span && (count < 0 || count > done))
                done += run(h2, done, count < 0 ? -1 : static_cast<R_xlen_t>(count) - done, true, code);
        }
    } else if (code == MURV_RC_OK) {
        done = run(h, 0, count < 0 ? -1 : static_cast<R_xlen_t>(count), true, code);
    }
    if (done != capacity) {
        for (R_xlen_t c = 0; c < ncols; ++c) {
            SEXP v = cpp11::safe[Rf_xlengthgets](VECTOR_ELT(out, c), done);
            SET_VECTOR_ELT(out, c, v);
        }
    }
    return List({{"columns", out}, {"n", Real1(static_cast<double>(done))}, {"code", Int1(code)}});
}

// ---- writing ----

// Where a file goes: a path that names a symbolic link writes to the file
// it points to; anything there must be a regular file.
std::string Destination(const std::string& path) {
    std::string p = path;
    for (int hops = 0; hops < 40; ++hops) {
        struct stat st;
        if (lstat(p.c_str(), &st) != 0) {
            if (errno == ENOENT) return p;
            Fail(MURV_RC_FILE_OPEN, path + ": " + std::strerror(errno));
        }
        if (S_ISLNK(st.st_mode)) {
            std::vector<char> buf(static_cast<std::size_t>(PATH_MAX) + 1);
            const ssize_t len = readlink(p.c_str(), buf.data(), buf.size() - 1);
            if (len < 0) Fail(MURV_RC_FILE_OPEN, path + ": " + std::strerror(errno));
            std::string target(buf.data(), static_cast<std::size_t>(len));
            if (!target.empty() && target[0] != '/') {
                const std::size_t slash = p.rfind('/');
                if (slash != std::string::npos) target = p.substr(0, slash + 1) + target;
            }
            p = target;
            continue;
        }
        if (S_ISDIR(st.st_mode)) Fail(MURV_RC_FILE_OPEN, path + ": a directory, not a file");
        if (!S_ISREG(st.st_mode)) Fail(MURV_RC_FILE_OPEN, path + ": not a regular file (a device, a pipe or a socket)");
        return p;
    }
    Fail(MURV_RC_FILE_OPEN, path + ": too many symbolic links");
}

std::string TempBeside(const std::string& dest) {
    const std::size_t slash = dest.rfind('/');
    const std::string dir = slash == std::string::npos ? std::string() : dest.substr(0, slash + 1);
    const std::string base = slash == std::string::npos ? dest : dest.substr(slash + 1);
    std::random_device rd;
    char tag[32];
    for (int tries = 0; tries < 100; ++tries) {
        std::snprintf(tag, sizeof tag, "%08x", static_cast<unsigned>(rd()));
        std::string t = dir + "." + base + ".r" + tag + ".tmp";
        struct stat st;
        if (lstat(t.c_str(), &st) != 0 && errno == ENOENT) return t;
    }
    Fail(MURV_RC_FILE_OPEN, dest + ": no name free for a file beside it");
}

SEXP Field(SEXP list, const char* name) {
    SEXP names = Rf_getAttrib(list, R_NamesSymbol);
    for (R_xlen_t i = 0; i < Rf_xlength(list); ++i)
        if (std::strcmp(CHAR(STRING_ELT(names, i)), name) == 0) return VECTOR_ELT(list, i);
    return R_NilValue;
}

bool Has(SEXP v) { return v != R_NilValue && Rf_xlength(v) > 0; }

std::vector<const char*> CStrings(SEXP s, std::vector<std::string>& keep) {
    keep.clear();
    for (R_xlen_t i = 0; i < Rf_xlength(s); ++i) keep.push_back(Text(s, i));
    std::vector<const char*> out;
    for (auto& k : keep) out.push_back(k.c_str());
    return out;
}

// Defines the variables and the file's metadata on a write handle.
void Define(int h, SEXP vars, SEXP info, std::vector<int>& types) {
    const R_xlen_t nv = Rf_xlength(vars);
    std::vector<std::string> ka, kb;
    for (R_xlen_t i = 0; i < nv; ++i) {
        SEXP v = VECTOR_ELT(vars, i);
        const std::string name = Text(Field(v, "name"));
        const int type = Rf_asInteger(Field(v, "type"));
        types.push_back(type);
        const char* nm = name.c_str();
        Check(murvSetVarName(h, nm, type), "variable " + name);
        SEXP x;
        if (Has(x = Field(v, "label"))) CheckSet(murvSetVarLabel(h, nm, Text(x).c_str()), "label of " + name);
        if (Has(x = Field(v, "print"))) Check(murvSetVarPrintFormat(h, nm, INTEGER(x)[0], INTEGER(x)[2], INTEGER(x)[1]), "print format of " + name);
        if (Has(x = Field(v, "write"))) Check(murvSetVarWriteFormat(h, nm, INTEGER(x)[0], INTEGER(x)[2], INTEGER(x)[1]), "write format of " + name);
        if (Has(x = Field(v, "missing"))) {
            const int kind = Rf_asInteger(Field(x, "kind"));
            SEXP vals = Field(x, "values");
            if (type == 0) {
                double m[3] = {0, 0, 0};
                for (R_xlen_t k = 0; k < std::min<R_xlen_t>(3, Rf_xlength(vals)); ++k) m[k] = REAL(vals)[k];
                Check(murvSetVarNMissingValues(h, nm, kind, m[0], m[1], m[2]), "missing values of " + name);
            } else {
                std::string m[3];
                for (R_xlen_t k = 0; k < std::min<R_xlen_t>(3, Rf_xlength(vals)); ++k) m[k] = Text(vals, k);
                Check(murvSetVarCMissingValues(h, nm, kind, m[0].c_str(), m[1].c_str(), m[2].c_str()), "missing values of " + name);
            }
        }
        if (Has(x = Field(v, "value_labels"))) {
            SEXP labs = Field(v, "value_label_texts");
            for (R_xlen_t k = 0; k < Rf_xlength(x); ++k) {
                if (type == 0)
                    CheckSet(murvSetVarNValueLabel(h, nm, REAL(x)[k], Text(labs, k).c_str()), "value labels of " + name);
                else
                    CheckSet(murvSetVarCValueLabel(h, nm, Text(x, k).c_str(), Text(labs, k).c_str()), "value labels of " + name);
            }
        }
        if (Has(x = Field(v, "measure"))) Check(murvSetVarMeasureLevel(h, nm, Rf_asInteger(x)), "measure of " + name);
        if (Has(x = Field(v, "alignment"))) Check(murvSetVarAlignment(h, nm, Rf_asInteger(x)), "alignment of " + name);
        if (Has(x = Field(v, "display_width"))) Check(murvSetVarColumnWidth(h, nm, Rf_asInteger(x)), "display width of " + name);
        if (Has(x = Field(v, "attributes"))) {
            auto an = CStrings(Rf_getAttrib(x, R_NamesSymbol), ka);
            auto av = CStrings(x, kb);
            Check(murvSetVarAttributes(h, nm, an.data(), av.data(), static_cast<int>(an.size())), "attributes of " + name);
        }
    }
    SEXP x;
    if (Has(x = Field(info, "file_label"))) Check(murvSetIdString(h, Text(x).c_str()), "file label");
    if (Has(x = Field(info, "weight"))) Check(murvSetCaseWeightVar(h, Text(x).c_str()), "weight variable");
    if (Has(x = Field(info, "text_info"))) Check(murvSetTextInfo(h, Text(x).c_str()), "text information");
    if (Has(x = Field(info, "file_attributes"))) {
        auto an = CStrings(Rf_getAttrib(x, R_NamesSymbol), ka);
        auto av = CStrings(x, kb);
        Check(murvSetFileAttributes(h, an.data(), av.data(), static_cast<int>(an.size())), "file attributes");
    }
    if (Has(x = Field(info, "mrsets"))) {
        for (R_xlen_t i = 0; i < Rf_xlength(x); ++i) {
            SEXP s = VECTOR_ELT(x, i);
            std::vector<std::string> vn;
            SEXP vv = Field(s, "variables");
            for (R_xlen_t k = 0; k < Rf_xlength(vv); ++k) vn.push_back(Text(vv, k));
            std::vector<char*> pv;
            for (std::string& v : vn) pv.push_back(v.data());
            murvMultRespDef d{};
            const std::string setName = Text(Field(s, "name"));
            std::snprintf(d.setName, sizeof d.setName, "%s", setName.c_str());
            SEXP lab = Field(s, "label");
            std::snprintf(d.setLabel, sizeof d.setLabel, "%s", Has(lab) ? Text(lab).c_str() : "");
            auto flag = [&](const char* f) {
                SEXP b = Field(s, f);
                return Has(b) && Rf_asLogical(b) == TRUE ? 1 : 0;
            };
            d.isDichotomy = flag("dichotomy");
            d.isNumeric = flag("numeric");
            d.useCategoryLabels = flag("category_labels");
            d.useFirstVarLabel = flag("first_variable_label");
            SEXP cv = Field(s, "counted_value");
            std::string counted = Has(cv) ? Text(cv) : "";
            if (d.isNumeric && !counted.empty()) d.countedValue = std::atoi(counted.c_str());
            d.countedValueText = counted.empty() ? nullptr : counted.data();
            d.varNames = pv.data();
            d.varCount = static_cast<int>(pv.size());
            Check(murvAddMultRespDefExt(h, &d), "multiple-response set " + setName);
        }
    }
    if (Has(x = Field(info, "variable_sets"))) Check(murvSetVariableSets(h, Text(x).c_str()), "variable sets");
    if (Has(x = Field(info, "date_variables")))
        Check(murvSetDateVariables(h, static_cast<int>(Rf_xlength(x)), INTEGER(x)), "date variables");
    if (Has(x = Field(info, "extension_records"))) {
        SEXP names = Rf_getAttrib(x, R_NamesSymbol);
        for (R_xlen_t i = 0; i < Rf_xlength(x); ++i) {
            const int sub = std::atoi(CHAR(STRING_ELT(names, i)));
            SEXP raw = VECTOR_ELT(x, i);
            SEXP u = Rf_getAttrib(raw, Rf_install("unit"));
            const int unit = std::max(1, u == R_NilValue ? 1 : Rf_asInteger(u));
            Check(murvSetExtensionData(h, sub, unit, static_cast<int>(Rf_xlength(raw) / unit), RAW(raw)),
                  "extension record " + std::to_string(sub));
        }
    }
}

// A dictionary-only file that holds the documents, for murvCopyDocuments:
// the interface sets documents only by copying them from an open file.
void WriteDocumentDonor(const std::string& path, SEXP docs) {
    std::string b;
    auto i32 = [&](std::int32_t v) {
        const auto u = static_cast<std::uint32_t>(v);
        for (int k = 0; k < 4; ++k) b.push_back(static_cast<char>((u >> (8 * k)) & 0xFF));
    };
    auto text = [&](const std::string& s, std::size_t n) {
        std::string t = s.substr(0, n);
        t.resize(n, ' ');
        b += t;
    };
    b += "$FL2";
    text("@(#) murvio documents", 60);
    i32(2);   // layout code: little-endian
    i32(1);   // one cell per case
    i32(0);   // plain
    i32(0);   // no weight
    i32(0);   // no cases
    const double bias = 100.0;
    std::uint64_t bits;
    std::memcpy(&bits, &bias, 8);
    for (int k = 0; k < 8; ++k) b.push_back(static_cast<char>((bits >> (8 * k)) & 0xFF));
    text("01 Jan 70", 9);
    text("00:00:00", 8);
    text("", 64);
    b.append(3, '\0');
    i32(2);
    i32(0);
    i32(0);
    i32(0);
    i32(0x050802);
    i32(0x050802);
    text("V1", 8);
    i32(6);
    i32(static_cast<std::int32_t>(Rf_xlength(docs)));
    for (R_xlen_t i = 0; i < Rf_xlength(docs); ++i) text(Text(docs, i), 80);
    i32(999);
    i32(0);
    FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) Fail(MURV_RC_FILE_OPEN, path + ": " + std::strerror(errno));
    const bool ok = std::fwrite(b.data(), 1, b.size(), f) == b.size();
    if (std::fclose(f) != 0 || !ok) Fail(MURV_RC_FILE_WRITE, path + ": writing the documents");
}

// Writes a file: `vars` one list per variable (name, type, and optionally
// label, print, write, missing, value_labels with value_label_texts,
// measure, alignment, display_width, attributes); `columns` one vector per
// variable (double, integer or logical for numbers, character for
// strings); `info` the file's own metadata. The file is written beside
// the destination and moved over it only when it is complete.
SEXP WriteFile(const std::string& path, bool compress, SEXP vars, SEXP columns, SEXP info) {
    const std::string dest = Destination(path);
    const std::string temp = TempBeside(dest);
    int h = -1;
    std::string donor;
    int donorHandle = -1;
    struct Cleanup {
        int& h;
        int& dh;
        const std::string& temp;
        const std::string& donor;
        bool keep = false;
        ~Cleanup() {
            if (dh >= 0) murvCloseRead(dh);
            if (!donor.empty()) std::remove(donor.c_str());
            if (h >= 0) murvCloseWrite(h);
            if (!keep) std::remove(temp.c_str());
        }
    } cleanup{h, donorHandle, temp, donor};
    Check(murvOpenWrite(temp.c_str(), &h), path + ": creating the file");
    std::vector<int> types;
    Define(h, vars, info, types);
    SEXP docs = Field(info, "documents");
    if (Has(docs)) {
        donor = TempBeside(dest);
        WriteDocumentDonor(donor, docs);
        Check(murvOpenRead(donor.c_str(), &donorHandle), path + ": reading the documents back");
        Check(murvCopyDocuments(donorHandle, h), path + ": documents");
        murvCloseRead(donorHandle);
        donorHandle = -1;
        std::remove(donor.c_str());
        donor.clear();
    }
    Check(murvSetCompression(h, compress ? 1 : 0), "compression");
    Check(murvCommitHeader(h), path + ": writing the dictionary");
    int caseSize = 0;
    Check(murvGetCaseSize(h, &caseSize), "case size");

    struct Src {
        SEXP v;
        std::size_t offset;
        std::size_t cells;
        int type;
    };
    const R_xlen_t nv = Rf_xlength(vars);
    std::vector<Src> src(static_cast<std::size_t>(nv));
    std::size_t off = 0;
    R_xlen_t n = -1;
    for (R_xlen_t i = 0; i < nv; ++i) {
        Src& s = src[static_cast<std::size_t>(i)];
        s.v = VECTOR_ELT(columns, i);
        s.type = types[static_cast<std::size_t>(i)];
        s.offset = off;
        s.cells = s.type == 0 ? 8 : static_cast<std::size_t>(s.type + 7) / 8 * 8;
        off += s.cells;
        const R_xlen_t len = Rf_xlength(s.v);
        if (n >= 0 && len != n) Fail(MURV_RC_BAD_HANDLE, "columns of different lengths");
        n = len;
        const int t = TYPEOF(s.v);
        if (s.type == 0 ? !(t == REALSXP || t == INTSXP || t == LGLSXP) : t != STRSXP)
            Fail(MURV_RC_BAD_VAR_TYPE, "column " + std::to_string(i + 1) + " does not match its variable");
    }
    if (off != static_cast<std::size_t>(caseSize)) Fail(MURV_RC_BAD_FILE, "the case layout differs from the library's");
    if (n < 0) n = 0;
    const std::size_t rec = off;
    const std::size_t tileCases = std::max<std::size_t>(1, (256u << 10) / std::max<std::size_t>(rec, 1));
    std::vector<char> tile(rec * tileCases + 8);
    const double sysmis = murvSysmisVal();
    R_xlen_t c = 0;
    for (R_xlen_t t0 = 0; t0 < n; t0 += static_cast<R_xlen_t>(tileCases)) {
        const std::size_t m = static_cast<std::size_t>(std::min<R_xlen_t>(static_cast<R_xlen_t>(tileCases), n - t0));
        for (std::size_t k = 0; k < src.size(); ++k) {
            const Src& s = src[k];
            char* dst = tile.data() + s.offset;
            const int t = TYPEOF(s.v);
            if (t == REALSXP) {
                const double* p = REAL(s.v) + t0;
                for (std::size_t r = 0; r < m; ++r, dst += rec) {
                    double v = p[r];
                    if (std::isnan(v)) v = sysmis;
                    std::memcpy(dst, &v, 8);
                }
            } else if (t == INTSXP || t == LGLSXP) {
                const int* p = (t == INTSXP ? INTEGER(s.v) : LOGICAL(s.v)) + t0;
                for (std::size_t r = 0; r < m; ++r, dst += rec) {
                    const double v = p[r] == NA_INTEGER ? sysmis : static_cast<double>(p[r]);
                    std::memcpy(dst, &v, 8);
                }
            } else {
                for (std::size_t r = 0; r < m; ++r, dst += rec) {
                    SEXP ch = STRING_ELT(s.v, t0 + static_cast<R_xlen_t>(r));
                    std::size_t len = ch == NA_STRING ? 0 : static_cast<std::size_t>(LENGTH(ch));
                    if (len > static_cast<std::size_t>(s.type))
                        Fail(MURV_RC_STRING_TOO_LONG, "case " + std::to_string(t0 + static_cast<R_xlen_t>(r) + 1) + ": a value longer than its variable");
                    if (len) std::memcpy(dst, CHAR(ch), len);
                    std::memset(dst + len, ' ', s.cells - len);
                }
            }
        }
        for (std::size_t r = 0; r < m; ++r, ++c) {
            const int rc = murvWholeCaseOut(h, tile.data() + r * rec);
            if (rc != MURV_RC_OK) Fail(rc, path + ": writing case " + std::to_string(c + 1));
        }
    }
    const int crc = murvCloseWrite(h);
    h = -1;
    Check(crc, path + ": finishing the file");
    // The new file takes the old one's permission bits.
    struct stat st;
    if (stat(dest.c_str(), &st) == 0) chmod(temp.c_str(), st.st_mode & 07777);
    if (std::rename(temp.c_str(), dest.c_str()) != 0) Fail(MURV_RC_FILE_OPEN, path + ": moving the new file into place: " + std::strerror(errno));
    cleanup.keep = true;
    return Done();
}

// The interface's own bulk calls, the benchmarks' baseline: every case
// read into one record, and cases of `vars` numbers written.
double BulkRead(const std::string& path) {
    int h = -1;
    Check(murvOpenRead(path.c_str(), &h), path);
    int size = 0;
    murvGetCaseSize(h, &size);
    std::vector<char> rec(static_cast<std::size_t>(size) + 8);
    double n = 0;
    while (murvWholeCaseIn(h, rec.data()) == MURV_RC_OK) ++n;
    murvCloseRead(h);
    return n;
}

void BulkWrite(const std::string& path, double cases, int vars, bool compress) {
    int h = -1;
    Check(murvOpenWrite(path.c_str(), &h), path);
    for (int v = 0; v < vars; ++v) murvSetVarName(h, ("v" + std::to_string(v)).c_str(), 0);
    murvSetCompression(h, compress ? 1 : 0);
    Check(murvCommitHeader(h), path);
    std::vector<double> rec(static_cast<std::size_t>(vars));
    for (double c = 0; c < cases; ++c) {
        const long long base = static_cast<long long>(c) * 31;
        for (int v = 0; v < vars; ++v) rec[static_cast<std::size_t>(v)] = static_cast<double>((base + v * 7) % 1000) / 4;
        murvWholeCaseOut(h, reinterpret_cast<const char*>(rec.data()));
    }
    Check(murvCloseWrite(h), path);
}

struct CodeRow {
    int code;
    const char* name;
    const char* meaning;
};
const CodeRow kCodes[] = {
#include "codes.h"
};

}  // namespace

extern "C" {

SEXP murvio_codes_() {
    BEGIN_CPP11
    const std::size_t n = sizeof kCodes / sizeof *kCodes;
    cpp11::sexp code = Alloc(INTSXP, static_cast<R_xlen_t>(n));
    std::vector<std::string> names, meanings;
    for (std::size_t i = 0; i < n; ++i) {
        INTEGER(code)[i] = kCodes[i].code;
        names.push_back(kCodes[i].name);
        meanings.push_back(kCodes[i].meaning);
    }
    return List({{"code", code}, {"name", Strings(names)}, {"meaning", Strings(meanings)}});
    END_CPP11
}

SEXP murvio_open_(SEXP path) {
    BEGIN_CPP11
    return Guard([&]() -> SEXP {
        const std::string p = Text(path);
        int h = -1;
        Check(murvOpenRead(p.c_str(), &h), p + ": opening for reading");
        int* box = new int(h);
        cpp11::sexp xp = cpp11::safe[R_MakeExternalPtr](box, R_NilValue, R_NilValue);
        R_RegisterCFinalizerEx(xp, CloseHandle, TRUE);
        return xp;
    });
    END_CPP11
}

SEXP murvio_close_(SEXP xp) {
    BEGIN_CPP11
    if (TYPEOF(xp) == EXTPTRSXP) CloseHandle(xp);
    return R_NilValue;
    END_CPP11
}

SEXP murvio_dict_(SEXP xp, SEXP full) {
    BEGIN_CPP11
    return Guard([&] { return Dictionary(HandleOf(xp), Rf_asLogical(full) == TRUE); });
    END_CPP11
}

SEXP murvio_read_(SEXP xp, SEXP path, SEXP parallel, SEXP sel, SEXP first, SEXP count, SEXP na, SEXP expect) {
    BEGIN_CPP11
    return Guard([&] {
        return ReadCases(HandleOf(xp), Text(path), Rf_asLogical(parallel) == TRUE, sel, Rf_asReal(first), Rf_asReal(count), na,
                         Rf_asReal(expect));
    });
    END_CPP11
}

// Sets attributes on a column the reader has just made, in place: the
// column is new and the reader's own, so no copy of it is needed.
SEXP murvio_attrs_(SEXP x, SEXP attrs) {
    BEGIN_CPP11
    SEXP names = Rf_getAttrib(attrs, R_NamesSymbol);
    for (R_xlen_t i = 0; i < Rf_xlength(attrs); ++i)
        cpp11::safe[Rf_setAttrib](x, cpp11::safe[Rf_install](CHAR(STRING_ELT(names, i))), VECTOR_ELT(attrs, i));
    return x;
    END_CPP11
}

SEXP murvio_cache_limit_(SEXP limit) {
    BEGIN_CPP11
    return Real1(BufferCache::Get().Limit(Rf_asReal(limit)));
    END_CPP11
}

SEXP murvio_layout_(SEXP path) {
    BEGIN_CPP11
    const Layout l = WalkDictionary(Text(path));
    return List({{"data_start", Real1(l.dataStart)}, {"file_size", Real1(l.fileSize)}, {"cells", Int1(l.cells)},
                 {"documents", Strings(l.documents)}});
    END_CPP11
}

SEXP murvio_write_(SEXP path, SEXP compress, SEXP vars, SEXP columns, SEXP info) {
    BEGIN_CPP11
    return Guard([&] { return WriteFile(Text(path), Rf_asLogical(compress) == TRUE, vars, columns, info); });
    END_CPP11
}

SEXP murvio_validate_(SEXP names) {
    BEGIN_CPP11
    const R_xlen_t n = Rf_xlength(names);
    cpp11::sexp out = Alloc(INTSXP, n);
    for (R_xlen_t i = 0; i < n; ++i) INTEGER(out)[i] = murvValidateVarname(Text(names, i).c_str());
    return out;
    END_CPP11
}

SEXP murvio_bulk_read_(SEXP path) {
    BEGIN_CPP11
    return Guard([&] { return Real1(BulkRead(Text(path))); });
    END_CPP11
}

SEXP murvio_bulk_write_(SEXP path, SEXP cases, SEXP vars, SEXP compress) {
    BEGIN_CPP11
    return Guard([&] {
        BulkWrite(Text(path), Rf_asReal(cases), Rf_asInteger(vars), Rf_asLogical(compress) == TRUE);
        return Done();
    });
    END_CPP11
}

static const R_CallMethodDef kCalls[] = {
    {"murvio_codes_", reinterpret_cast<DL_FUNC>(&murvio_codes_), 0},
    {"murvio_open_", reinterpret_cast<DL_FUNC>(&murvio_open_), 1},
    {"murvio_close_", reinterpret_cast<DL_FUNC>(&murvio_close_), 1},
    {"murvio_dict_", reinterpret_cast<DL_FUNC>(&murvio_dict_), 2},
    {"murvio_read_", reinterpret_cast<DL_FUNC>(&murvio_read_), 8},
    {"murvio_layout_", reinterpret_cast<DL_FUNC>(&murvio_layout_), 1},
    {"murvio_attrs_", reinterpret_cast<DL_FUNC>(&murvio_attrs_), 2},
    {"murvio_cache_limit_", reinterpret_cast<DL_FUNC>(&murvio_cache_limit_), 1},
    {"murvio_write_", reinterpret_cast<DL_FUNC>(&murvio_write_), 5},
    {"murvio_validate_", reinterpret_cast<DL_FUNC>(&murvio_validate_), 1},
    {"murvio_bulk_read_", reinterpret_cast<DL_FUNC>(&murvio_bulk_read_), 1},
    {"murvio_bulk_write_", reinterpret_cast<DL_FUNC>(&murvio_bulk_write_), 4},
    {nullptr, nullptr, 0}};

void R_init_murvio(DllInfo* dll) {
    R_registerRoutines(dll, nullptr, kCalls, nullptr, nullptr);
    R_useDynamicSymbols(dll, FALSE);
}

}  // extern "C"
