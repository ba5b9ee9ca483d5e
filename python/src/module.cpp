// _murvio: the compiled part of the Python module. It works through the C
// interface, so that every code and text is the interface's; the bulk paths
// move whole case records between the file and numpy columns without a call
// per value, and the documents (which the interface can only copy) are read
// and set on the dataset behind the handle.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <sys/mman.h>
#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <map>
#include <mutex>
#include <unordered_map>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "api/handles.h"
#include "model/variable.h"
#include "sysfile/codec_kernels.h"
#include "murvio.h"

namespace py = pybind11;

namespace {

// Raises murvio.Error(code, message).
[[noreturn]] void Fail(int rc, const std::string& what) {
    py::object cls = py::module_::import("murvio").attr("Error");
    PyErr_SetObject(cls.ptr(), py::make_tuple(rc, what).ptr());
    throw py::error_already_set();
}

// Issues murvio.CodeWarning(code, message).
void Warn(int rc, const std::string& what) {
    py::object cls = py::module_::import("murvio").attr("CodeWarning");
    py::module_::import("warnings").attr("warn")(cls(rc, what), py::arg("stacklevel") = 3);
}

void Check(int rc, const std::string& what) {
    if (rc > 0) Fail(rc, what);
}

// Errors raise; the warning codes of the calls that define a file (a label
// stored cut) warn.
void CheckSet(int rc, const std::string& what) {
    if (rc > 0) Fail(rc, what);
    if (rc == MURV_RC_VAR_LABEL_CUT || rc == MURV_RC_VALUE_LABEL_CUT) Warn(rc, what);
}

double Sysmis() { return murvSysmisVal(); }

py::bytes Bytes(const std::string& s) { return py::bytes(s.data(), s.size()); }

// ---- reading ----

int OpenRead(const std::string& path) {
    int h = -1;
    const int rc = murvOpenRead(path.c_str(), &h);
    Check(rc, path + ": opening for reading");
    return h;
}

void CloseHandle(int h) { murvCloseRead(h); }

// Everything the file says about itself, as plain Python values. Per-variable
// properties come as parallel lists, so that a file of a million variables
// makes a few lists rather than a million dictionaries.
py::dict Metadata(int h) {
    py::dict m;
    int n = 0;
    char** names = nullptr;
    int* types = nullptr;
    Check(murvGetVarNames(h, &n, &names, &types), "reading the variable names");
    py::list vnames, vtypes, labels, printFmt, writeFmt, missing, valueLabels, measure, alignment, width, attrs, offsets;
    std::vector<std::string> nameList(static_cast<std::size_t>(n));
    long offset = 0;
    for (int i = 0; i < n; ++i) {
        nameList[static_cast<std::size_t>(i)] = names[i];
        vnames.append(py::bytes(names[i]));
        vtypes.append(types[i]);
        offsets.append(offset);
        offset += types[i] == 0 ? 8 : (types[i] + 7) / 8 * 8;
    }
    std::vector<int> typeList(types, types + n);
    murvFreeVarNames(names, types, n);
    // Labels, formats and display properties straight from the dataset (no
    // look-up by name for each of them); missing values, value labels and
    // attributes through the interface's own calls, for the variables that
    // have them.
    murv::api::dioDataSource* ds = nullptr;
    Check(murv::api::lookupHandle(h, murv::api::anyMode, &ds), "reading the dictionary");
    // Most variables share a few formats: each distinct one is made once.
    std::unordered_map<std::uint64_t, py::object> formats;
    auto format = [&formats](int t, int w, int d) -> py::object {
        const bool known = (t >= 1 && t <= 12) || (t >= 15 && t <= 17) || (t >= 20 && t <= 39);
        if (!known) t = 5;
        const std::uint64_t key = (static_cast<std::uint64_t>(static_cast<std::uint32_t>(t)) << 40) ^
                                  (static_cast<std::uint64_t>(static_cast<std::uint32_t>(w)) << 20) ^
                                  static_cast<std::uint32_t>(d);
        auto it = formats.find(key);
        if (it == formats.end()) it = formats.emplace(key, py::make_tuple(t, w, d)).first;
        return it->second;
    };
    for (int i = 0; i < n; ++i) {
        const char* name = nameList[static_cast<std::size_t>(i)].c_str();
        const int type = typeList[static_cast<std::size_t>(i)];
        const murv::MURV_Variable& var = ds->GetVariable(i);
        const std::string* lab = var.GetLabel();
        labels.append(lab ? py::object(Bytes(*lab)) : py::object(py::none()));
        int t = 0, d = 0, w = 0;
        var.GetPrintFormat(&t, &w, &d);
        printFmt.append(format(t, w, d));
        var.GetWriteFormat(&t, &w, &d);
        writeFmt.append(format(t, w, d));
        const char* slots[3] = {};
        const bool hasMissing = var.GetMissingValues(&slots[0], &slots[1], &slots[2]) != 0;
        const bool hasLabels = var.GetValueLabels().Count() > 0;
        int rc = MURV_RC_OK;
        if (type == 0) {
            int kind = 0;
            double v[3] = {0, 0, 0};
            if (hasMissing) Check(murvGetVarNMissingValues(h, name, &kind, &v[0], &v[1], &v[2]), "missing values");
            missing.append(kind == 0 ? py::object(py::none()) : py::object(py::make_tuple(kind, v[0], v[1], v[2])));
            double* values = nullptr;
            char** vl = nullptr;
            int count = 0;
            if (hasLabels && murvGetVarNValueLabels(h, name, &values, &vl, &count) == MURV_RC_OK) {
                py::list pairs;
                for (int k = 0; k < count; ++k) pairs.append(py::make_tuple(values[k], py::bytes(vl[k])));
                murvFreeVarNValueLabels(values, vl, count);
                valueLabels.append(pairs);
            } else {
                valueLabels.append(py::none());
            }
        } else {
            int kind = 0;
            char a[64] = {}, b[64] = {}, c[64] = {};
            if (hasMissing) rc = murvGetVarCMissingValues(h, name, &kind, a, b, c);
            missing.append(hasMissing && rc == MURV_RC_OK && kind != 0
                               ? py::object(py::make_tuple(kind, py::bytes(a), py::bytes(b), py::bytes(c)))
                               : py::object(py::none()));
            char** values = nullptr;
            char** vl = nullptr;
            int count = 0;
            if (hasLabels && murvGetVarCValueLabels(h, name, &values, &vl, &count) == MURV_RC_OK) {
                py::list pairs;
                for (int k = 0; k < count; ++k) pairs.append(py::make_tuple(py::bytes(values[k]), py::bytes(vl[k])));
                murvFreeVarCValueLabels(values, vl, count);
                valueLabels.append(pairs);
            } else {
                valueLabels.append(py::none());
            }
        }
        // As murvGetVarMeasureLevel and murvGetVarAlignment report them: a
        // stored value out of range reads as the default (0, and 1: right).
        const int level = var.GetMeasureLevel(), align = var.GetAlignment();
        measure.append(level >= 0 && level <= murv::MURV_Variable::eMaxMeasureLevel ? level : 0);
        alignment.append(align >= 0 && align <= murv::MURV_Variable::eMaxAlignment ? align : 1);
        width.append(static_cast<int>(var.GetColumnWidth()));
        if (!var.GetAttributes().Empty()) {
            char** an = nullptr;
            char** av = nullptr;
            int na = 0;
            Check(murvGetVarAttributes(h, name, &an, &av, &na), "variable attributes");
            py::list pairs;
            for (int k = 0; k < na; ++k) pairs.append(py::make_tuple(py::bytes(an[k]), py::bytes(av[k])));
            murvFreeAttributes(an, av, na);
            attrs.append(na > 0 ? py::object(pairs) : py::object(py::none()));
        } else {
            attrs.append(py::none());
        }
    }
    m["names"] = vnames;
    m["types"] = vtypes;
    m["labels"] = labels;
    m["print_formats"] = printFmt;
    m["write_formats"] = writeFmt;
    m["missing"] = missing;
    m["value_labels"] = valueLabels;
    m["measures"] = measure;
    m["alignments"] = alignment;
    m["column_widths"] = width;
    m["attributes"] = attrs;
    m["offsets"] = offsets;

    char buf[1024] = {};
    m["file_label"] = murvGetIdString(h, buf) == MURV_RC_OK ? py::object(py::bytes(buf)) : py::object(py::none());
    buf[0] = 0;
    murvGetSystemString(h, buf);
    m["product"] = py::bytes(buf);
    char date[32] = {}, time[32] = {};
    murvGetTimeStamp(h, date, time);
    m["date"] = py::bytes(date);
    m["time"] = py::bytes(time);
    int value = 0;
    murvGetNumberofCases(h, &value);
    m["cases"] = value;
    murvGetCaseSize(h, &value);
    m["case_size"] = value;
    murvGetCompression(h, &value);
    m["compression"] = value;
    buf[0] = 0;
    m["weight"] = murvGetCaseWeightVar(h, buf) == MURV_RC_OK ? py::object(py::bytes(buf)) : py::object(py::none());
    buf[0] = 0;
    murvGetTextInfo(h, buf);
    m["text_info"] = py::bytes(buf);
    char** an = nullptr;
    char** av = nullptr;
    int na = 0;
    Check(murvGetFileAttributes(h, &an, &av, &na), "file attributes");
    py::list fattrs;
    for (int k = 0; k < na; ++k) fattrs.append(py::make_tuple(py::bytes(an[k]), py::bytes(av[k])));
    murvFreeAttributes(an, av, na);
    m["file_attributes"] = fattrs;

    py::list mrsets;
    int nsets = 0;
    if (murvGetMultRespCount(h, &nsets) == MURV_RC_OK) {
        for (int i = 0; i < nsets; ++i) {
            murvMultRespDef* d = nullptr;
            Check(murvGetMultRespDefByIndex(h, i, &d), "multiple-response set");
            py::list vars;
            for (int k = 0; k < d->varCount; ++k) vars.append(py::bytes(d->varNames[k]));
            py::dict s;
            s["name"] = py::bytes(d->setName);
            s["label"] = py::bytes(d->setLabel);
            s["dichotomy"] = d->isDichotomy != 0;
            s["numeric"] = d->isNumeric != 0;
            s["category_labels"] = d->useCategoryLabels != 0;
            s["first_variable_label"] = d->useFirstVarLabel != 0;
            s["counted_value"] = d->countedValueText ? py::object(py::bytes(d->countedValueText)) : py::object(py::none());
            s["variables"] = vars;
            murvFreeMultRespDefStruct(d);
            mrsets.append(s);
        }
    }
    m["mrsets"] = mrsets;
    char* sets = nullptr;
    m["variable_sets"] = murvGetVariableSets(h, &sets) == MURV_RC_OK && sets ? py::object(py::bytes(sets)) : py::object(py::none());
    if (sets) murvFreeVariableSets(sets);
    int ndates = 0;
    int* dates = nullptr;
    py::list dateInfo;
    if (murvGetDateVariables(h, &ndates, &dates) == MURV_RC_OK && dates)
        for (int k = 0; k < ndates; ++k) dateInfo.append(dates[k]);
    if (dates) murvFreeDateVariables(dates);
    m["date_variables"] = dateInfo;
    char guid[512] = {};
    murvGetZOPGUID(h, guid);
    int zb = 0, zs = 0;
    murvGetZOPInfo(h, &zb, &zs);
    m["data_entry"] = zb > 0 ? py::object(py::make_tuple(py::bytes(guid), zb, zs)) : py::object(py::none());
    py::dict records;
    for (int s = 0; s <= 32; ++s) {
        int unit = 0, count = 0;
        if (murvGetExtensionDataDesc(h, s, &unit, &count) != MURV_RC_OK || count <= 0) continue;
        std::string data(static_cast<std::size_t>(unit) * static_cast<std::size_t>(count), '\0');
        int got = 0;
        murvGetExtensionData(h, s, static_cast<int>(data.size()), &got, data.data());
        records[py::int_(s)] = py::make_tuple(unit, Bytes(data));
    }
    m["extension_records"] = records;
    py::list present;
    for (int s = 0; s <= 32; ++s) {
        int found = 0;
        if (murvQueryType7(h, s, &found) == MURV_RC_OK && found) present.append(s);
    }
    m["records_present"] = present;

    // Documents: 80-byte lines kept with the dataset.
    py::list docs;
    if (ds->HasExtension(0)) {
        const std::string& bytes = ds->GetExtension(0).Contents();
        for (std::size_t p = 0; p + 80 <= bytes.size(); p += 80) {
            std::size_t len = 80;
            while (len > 0 && bytes[p + len - 1] == ' ') --len;
            docs.append(py::bytes(bytes.data() + p, len));
        }
    }
    m["documents"] = docs;
    return m;
}

// Memory for the columns of a read. Large buffers are aligned and marked for
// huge pages, so that filling them costs few page faults, and when the frame
// that holds one goes away the buffer is kept for the next read (up to a
// limit), so that reading chunk after chunk, or file after file, does not ask
// the system for fresh pages each time: on many machines a fresh page costs
// more than the case data that fills it.
class BufferCache {
public:
    static BufferCache& Get() {
        static BufferCache* cache = new BufferCache;  // never destroyed: frames may outlive the module
        return *cache;
    }

    // A buffer of at least `bytes`.
    char* Take(std::size_t bytes) {
        if (bytes >= kLarge) {
            bytes = (bytes + kHuge - 1) / kHuge * kHuge;
            std::lock_guard<std::mutex> lock(m_);
            auto it = kept_.lower_bound(bytes);
            if (it != kept_.end() && it->first <= bytes + bytes / 2 + kHuge) {
                char* p = it->second;
                keptBytes_ -= it->first;
                live_[p] = it->first;
                kept_.erase(it);
                return p;
            }
        }
        char* p = nullptr;
        if (bytes >= kLarge) {
            p = static_cast<char*>(std::aligned_alloc(kHuge, bytes));
            if (p) madvise(p, bytes, MADV_HUGEPAGE);
        } else {
            p = static_cast<char*>(std::malloc(std::max<std::size_t>(bytes, 1)));
        }
        if (!p) throw std::bad_alloc();
        std::lock_guard<std::mutex> lock(m_);
        live_[p] = bytes;
        return p;
    }

    // Gives a buffer of Take back: kept when it is large and there is room.
    void Put(char* p) {
        if (!p) return;
        std::lock_guard<std::mutex> lock(m_);
        auto it = live_.find(p);
        const std::size_t bytes = it == live_.end() ? 0 : it->second;
        if (it != live_.end()) live_.erase(it);
        if (bytes < kLarge || bytes > limit_) {
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
    std::size_t Limit(long long limit) {
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
        return keptBytes_;
    }

private:
    static constexpr std::size_t kHuge = 2u << 20;
    static constexpr std::size_t kLarge = 2 * kHuge;
    std::mutex m_;
    std::multimap<std::size_t, char*> kept_;
    std::unordered_map<char*, std::size_t> live_;
    std::size_t keptBytes_ = 0;
    std::size_t limit_ = std::size_t{1} << 30;
};

class Buffer {
public:
    Buffer() = default;
    Buffer(const Buffer&) = delete;
    Buffer& operator=(const Buffer&) = delete;
    Buffer(Buffer&& o) noexcept : p_(o.p_), size_(o.size_) { o.p_ = nullptr; o.size_ = 0; }
    ~Buffer() { Release(); }

    char* data() const { return p_; }
    void Release() {
        BufferCache::Get().Put(p_);
        p_ = nullptr;
        size_ = 0;
    }

    // Resizes to `bytes`, keeping the first `keep` bytes.
    void Resize(std::size_t bytes, std::size_t keep) {
        char* p = BufferCache::Get().Take(bytes);
        if (p_ && keep) std::memcpy(p, p_, std::min(keep, bytes));
        Release();
        p_ = p;
        size_ = bytes;
    }

    // The buffer as a numpy array of `shape` and `strides`, which owns it.
    py::array Give(py::dtype dt, std::vector<py::ssize_t> shape, std::vector<py::ssize_t> strides) {
        if (!p_) Resize(1, 0);
        char* p = p_;
        py::capsule owner(p, [](void* q) { BufferCache::Get().Put(static_cast<char*>(q)); });
        p_ = nullptr;
        size_ = 0;
        return py::array(dt, std::move(shape), std::move(strides), p, owner);
    }

private:
    char* p_ = nullptr;
    std::size_t size_ = 0;
};

// A read is split over two threads from this size on (cases in each half,
// bytes in all).
long kParallelMinCases = 50000;
double kParallelMinBytes = 32.0 * (1 << 20);

// User-missing values of a numeric variable: (kind, a, b, c) as the
// interface reports them.
struct MissingSet {
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

// Copies `count` values to memory that is not in the cache, without reading
// it first, system-missing values as NaN.
void StreamValues(double* dst, const double* src, std::size_t count, double sysmis) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    std::size_t i = 0;
#ifdef __SSE2__
    for (; i < count && (reinterpret_cast<std::uintptr_t>(dst + i) & 15) != 0; ++i) dst[i] = src[i] == sysmis ? nan : src[i];
    const __m128d sm = _mm_set1_pd(sysmis), qn = _mm_set1_pd(nan);
    for (; i + 2 <= count; i += 2) {
        __m128d v = _mm_loadu_pd(src + i);
        const __m128d hit = _mm_cmpeq_pd(v, sm);
        v = _mm_or_pd(_mm_and_pd(hit, qn), _mm_andnot_pd(hit, v));
        _mm_stream_pd(dst + i, v);
    }
#endif
    for (; i < count; ++i) dst[i] = src[i] == sysmis ? nan : src[i];
}

// Reads up to `count` cases (all that are left for count < 0) from case
// `first` (or from where the handle stands for first < 0). Each selected
// variable goes where `dest` says: 0 a column of one float64 block of rows
// (one row per case, so that a case is read straight into it), 1 a float64
// column of its own, 2 (strings) a row of an object array of str, decoded
// with `encoding` and without trailing blanks. System-missing becomes NaN,
// and so do user-missing values of the variables `missing` gives (kind and
// three values, or None). With `parallel`, a large read from case `first`
// on may read its second half on a second handle of `path`. Returns (block,
// own columns, strings, cases read, and the code of the read or seek that
// failed, else 0): the cases before a failure are always returned, and the
// caller tells what the failure means. `hold` is the most cases the file
// can hold from `first` on, as its size allows (below 0: unknown); buffers
// are reserved for no more than that and grow if the file holds more, so a
// header that states a huge count costs no memory.
py::tuple ReadBlock(int h, long first, long count, const std::vector<long>& offsets, const std::vector<int>& types,
                    const std::vector<int>& dest, const py::list& missing, const std::string& encoding, const std::string& path,
                    bool parallel, long hold) {
    const std::size_t ncols = offsets.size();
    if (types.size() != ncols || dest.size() != ncols || missing.size() != ncols)
        throw std::invalid_argument("read_block: arguments of different lengths");
    int seekCode = MURV_RC_OK;
    if (first >= 0) {
        if (first > 0x7FFFFFFF) Fail(MURV_RC_FILE_READ, "case number too large");
        seekCode = murvSeekNextCase(h, static_cast<int>(first));
    }
    int caseSize = 0;
    Check(murvGetCaseSize(h, &caseSize), "case size");

    struct Col {
        std::size_t offset;
        std::size_t width;  // bytes: 8 for numbers
        int dest;
        std::size_t slot;   // column in the block, own column or string row
        MissingSet miss;
    };
    std::vector<Col> cols(ncols);
    std::size_t nb = 0, no = 0, ns = 0;
    for (std::size_t c = 0; c < ncols; ++c) {
        Col& col = cols[c];
        col.offset = static_cast<std::size_t>(offsets[c]);
        col.width = types[c] == 0 ? 8 : static_cast<std::size_t>(types[c]);
        col.dest = types[c] == 0 ? (dest[c] == 1 ? 1 : 0) : 2;
        if (col.offset + col.width > static_cast<std::size_t>(caseSize)) throw std::invalid_argument("read_block: a column outside the case");
        col.slot = col.dest == 0 ? nb++ : col.dest == 1 ? no++ : ns++;
        if (types[c] == 0 && !missing[c].is_none()) {
            py::tuple m = missing[c].cast<py::tuple>();
            col.miss.kind = m[0].cast<int>();
            for (int k = 0; k < 3 && k + 1 < static_cast<int>(m.size()); ++k) col.miss.v[k] = m[static_cast<std::size_t>(k) + 1].cast<double>();
        }
    }
    // The whole case is the block's row: read straight into it.
    bool direct = nb == ncols && static_cast<std::size_t>(caseSize) == 8 * nb;
    for (std::size_t c = 0; direct && c < ncols; ++c) direct = cols[c].offset == 8 * c;
    std::vector<std::size_t> blockMissing;  // block columns with user-missing values
    std::vector<MissingSet> blockSets;
    for (const Col& col : cols)
        if (col.dest == 0 && col.miss.kind != 0) blockMissing.push_back(col.slot), blockSets.push_back(col.miss);

    long capacity = count;
    int stated = -1;
    murvGetNumberofCases(h, &stated);
    const long remaining = stated >= 0 ? std::max(0L, stated - std::max(first, 0L)) : -1;
    if (capacity < 0) capacity = remaining >= 0 ? remaining : 65536;
    else if (remaining >= 0 && remaining < capacity) capacity = remaining;  // grows if the file holds more
    if (hold >= 0 && hold < capacity) capacity = hold;
    capacity = std::max(capacity, 1L);

    Buffer block;
    std::vector<Buffer> own(no), strs(ns);
    std::vector<std::size_t> strWidth(ns);
    for (const Col& col : cols)
        if (col.dest == 2) strWidth[col.slot] = col.width;
    // Makes room for `cases` rows, keeping `keepBlock` rows of the block and
    // `keep` rows of the other columns.
    auto reserve = [&](long cases, long keepBlock, long keep) {
        const std::size_t n = static_cast<std::size_t>(cases), kb = static_cast<std::size_t>(keepBlock),
                          k = static_cast<std::size_t>(keep);
        block.Resize(8 * nb * n, 8 * nb * kb);
        for (Buffer& b : own) b.Resize(8 * n, 8 * k);
        for (std::size_t s = 0; s < ns; ++s) strs[s].Resize(strWidth[s] * n, strWidth[s] * k);
    };
    // Cases are read into a tile of rows that stays in the cache and then
    // streamed into the block, system-missing turned into NaN on the way.
    // `run` reads up to `limit` cases (no limit below 0) into the rows from
    // `at` on, growing the buffers when `grow` allows; it returns the cases
    // read and leaves the last code in `code`.
    const std::size_t tileRows = std::max<std::size_t>(1, (64u << 10) / std::max<std::size_t>(8 * nb, 1));
    const double sysmis = Sysmis();
    const double nan = std::numeric_limits<double>::quiet_NaN();
    auto run = [&](int handle, long at, long limit, bool grow, int& code) -> long {
        std::vector<char> rec(direct ? 0 : static_cast<std::size_t>(std::max(caseSize, 8)));
        std::vector<double> tile(tileRows * nb + 1);
        long done = 0;
        code = MURV_RC_OK;
        while (code == MURV_RC_OK && (limit < 0 || done < limit)) {
            std::size_t m = 0;
            while (m < tileRows && (limit < 0 || done + static_cast<long>(m) < limit)) {
                const long row_at = at + done + static_cast<long>(m);
                if (row_at == capacity && !grow) {
                    code = MURV_RC_END_OF_FILE;
                    break;
                }
                double* row = tile.data() + nb * m;
                char* r = direct ? reinterpret_cast<char*>(row) : rec.data();
                code = murvWholeCaseIn(handle, r);
                if (code != MURV_RC_OK) break;
                // Room is made only for a case that is there: a file that
                // holds the cases it states is read into buffers of its size.
                if (row_at == capacity) {
                    capacity *= 2;
                    reserve(capacity, at + done, row_at);  // the rows of the tile are not in the block yet
                }
                if (!direct) {
                    for (const Col& col : cols) {
                        const char* src = r + col.offset;
                        if (col.dest == 0) {
                            std::memcpy(row + col.slot, src, 8);
                        } else if (col.dest == 1) {
                            double v;
                            std::memcpy(&v, src, 8);
                            if (v == sysmis || col.miss.Is(v)) v = nan;
                            reinterpret_cast<double*>(own[col.slot].data())[row_at] = v;
                        } else {
                            std::memcpy(strs[col.slot].data() + col.width * static_cast<std::size_t>(row_at), src, col.width);
                        }
                    }
                }
                for (std::size_t k = 0; k < blockMissing.size(); ++k)
                    if (blockSets[k].Is(row[blockMissing[k]])) row[blockMissing[k]] = nan;
                ++m;
            }
            if (nb) StreamValues(reinterpret_cast<double*>(block.data()) + nb * static_cast<std::size_t>(at + done), tile.data(), nb * m, sysmis);
            done += static_cast<long>(m);
        }
#ifdef __SSE2__
        _mm_sfence();
#endif
        return done;
    };

    long n = 0;
    int rc = MURV_RC_OK;
    // A large read with a known end is split in two: the second half read on
    // a handle of its own on a second thread (separate read handles may be
    // read on separate threads). The handle `h` then stands somewhere in the
    // middle, which is why only whole reads, which seek first, do this. In a
    // compressed file the second handle finds its first case by skipping the
    // blocks before it, which costs a small part of decoding them.
    const long span = capacity;
    const bool split = seekCode == MURV_RC_OK && parallel && first >= 0 && remaining >= 0 &&
                       (count < 0 || count >= span) && span >= 2 * kParallelMinCases &&
                       static_cast<double>(span) * caseSize >= kParallelMinBytes && std::thread::hardware_concurrency() > 1;
    {
        py::gil_scoped_release unlocked;
        reserve(capacity, 0, 0);
        int h2 = -1;
        const long mid = span / 2;
        if (split && murvOpenRead(path.c_str(), &h2) == MURV_RC_OK) {
            int rc2 = murvSeekNextCase(h2, static_cast<int>(first + mid));
            long n2 = 0;
            std::thread second;
            if (rc2 == MURV_RC_OK) second = std::thread([&] { n2 = run(h2, mid, span - mid, false, rc2); });
            n = run(h, 0, mid, false, rc);
            if (second.joinable()) second.join();
            if (n < mid || rc2 == MURV_RC_END_OF_FILE) {
                // The file ends before its stated count: what the first half read is all.
                if (n == mid) n += n2;
                if (rc == MURV_RC_OK) rc = MURV_RC_END_OF_FILE;
            } else if (rc2 != MURV_RC_OK) {
                rc = rc2;
                n += n2;
            } else {
                n += n2;
                // The file may hold more cases than it states.
                if (count < 0 || count > n) n += run(h2, n, count < 0 ? -1 : count - n, true, rc);
            }
            if (rc == MURV_RC_OK && count < 0) rc = MURV_RC_END_OF_FILE;
            murvCloseRead(h2);
        } else if (seekCode != MURV_RC_OK) {
            rc = seekCode;
        } else {
            n = run(h, 0, count, true, rc);
        }
    }
    // A read that fails (the data ends inside a case, a block cannot be
    // decoded) keeps the cases before it; its code comes back for the caller
    // to report in words.
    const int shortfall = rc != MURV_RC_OK && rc != MURV_RC_END_OF_FILE ? rc : 0;

    const auto sn = static_cast<py::ssize_t>(n);
    py::array blockArray = block.Give(py::dtype::of<double>(), {sn, static_cast<py::ssize_t>(nb)},
                                      {static_cast<py::ssize_t>(8 * nb), 8});
    py::list ownArrays;
    for (Buffer& b : own) ownArrays.append(b.Give(py::dtype::of<double>(), {sn}, {8}));
    // Strings as str objects, one row per variable.
    py::array strArray(py::dtype("O"), std::vector<py::ssize_t>{static_cast<py::ssize_t>(ns), sn});
    {
        PyObject** out = static_cast<PyObject**>(strArray.mutable_data());
        const bool utf8 = encoding == "utf-8";
        py::str empty("");
        for (std::size_t s = 0; s < ns; ++s) {
            const std::size_t w = strWidth[s];
            for (long i = 0; i < n; ++i) {
                const char* p = strs[s].data() + w * static_cast<std::size_t>(i);
                // The value as the interface gives it (to its first NUL), without
                // trailing blanks.
                std::size_t len = strnlen(p, w);
                while (len > 0 && p[len - 1] == ' ') --len;
                PyObject* o;
                if (len == 0) {
                    o = empty.inc_ref().ptr();
                } else {
                    o = utf8 ? PyUnicode_DecodeUTF8(p, static_cast<py::ssize_t>(len), "surrogateescape")
                             : PyUnicode_Decode(p, static_cast<py::ssize_t>(len), encoding.c_str(), "surrogateescape");
                    if (!o) throw py::error_already_set();
                }
                PyObject*& slot = out[s * static_cast<std::size_t>(n) + static_cast<std::size_t>(i)];
                Py_XDECREF(slot);
                slot = o;
            }
            strs[s].Release();
        }
    }
    return py::make_tuple(blockArray, ownArrays, strArray, n, shortfall);
}

// ---- writing ----

std::string Str(const py::handle& o) {
    if (py::isinstance<py::bytes>(o)) return o.cast<std::string>();
    return o.cast<std::string>();
}

// Variables as write_file and begin_write take them: their types and names.
void TypesAndNames(const py::list& vars, std::vector<int>& types, std::vector<std::string>& names) {
    types.resize(vars.size());
    names.resize(vars.size());
    for (std::size_t i = 0; i < vars.size(); ++i) {
        py::dict v = vars[i].cast<py::dict>();
        names[i] = Str(v["name"]);
        types[i] = v["type"].cast<int>();
    }
}

// Bytes of a case record of variables of these types.
std::size_t RecordSize(const std::vector<int>& types) {
    std::size_t off = 0;
    for (int t : types) off += t == 0 ? 8 : static_cast<std::size_t>((t + 7) / 8) * 8;
    return off;
}

// The rows of a frame on their way to case records: `columns` per variable
// an array (float64 with NaN for system-missing, or fixed-width bytes) or
// None for a variable whose values are in `blocks`: (2-dimensional float64
// array of one row per variable, the variables' positions). Everything is
// checked, and the memory taken, when it is made, so that writing can fail
// only in the library's own case writes.
class Rows {
public:
    Rows(const std::vector<int>& types, const std::vector<std::string>& names, const py::list& columns, const py::list& blocks)
        : src_(types.size()) {
        const std::size_t nv = types.size();
        auto& src = src_;
        auto& held = held_;
        long& n = n_;
        if (columns.size() != nv) throw std::invalid_argument("columns and variables differ in number");
        auto length = [&](long len, const std::string& what) {
            if (n >= 0 && len != n) throw std::invalid_argument(what + ": columns of different lengths");
            n = len;
        };
        for (const py::handle& item : blocks) {
            py::tuple b = item.cast<py::tuple>();
            py::buffer_info info = b[0].cast<py::buffer>().request();
            if (info.format != "d" || info.ndim != 2) throw std::invalid_argument("a block that is not a 2-dimensional float64 array");
            length(static_cast<long>(info.shape[1]), "a block");
            py::list vars = b[1].cast<py::list>();
            if (static_cast<py::ssize_t>(vars.size()) != info.shape[0]) throw std::invalid_argument("a block and its variables differ in number");
            for (std::size_t r = 0; r < vars.size(); ++r) {
                const std::size_t i = vars[r].cast<std::size_t>();
                if (i >= nv || types[i] != 0) throw std::invalid_argument("a block column for a variable that is not numeric");
                src[i].ptr = static_cast<const char*>(info.ptr) + static_cast<py::ssize_t>(r) * info.strides[0];
                src[i].stride = info.strides[1];
            }
            held.push_back(std::move(info));
        }
        for (std::size_t i = 0; i < nv; ++i) {
            if (columns[i].is_none()) {
                if (!src[i].ptr && n != 0) throw std::invalid_argument("no values for variable " + names[i]);
                continue;
            }
            py::buffer_info info = columns[i].cast<py::buffer>().request();
            if (info.ndim != 1) throw std::invalid_argument("column " + names[i] + " is not a vector");
            length(static_cast<long>(info.shape[0]), "column " + names[i]);
            src[i].ptr = static_cast<const char*>(info.ptr);
            src[i].stride = info.strides[0];
            src[i].item = static_cast<std::size_t>(info.itemsize);
            if (types[i] == 0 ? info.format != "d" : (info.format.back() != 's' || src[i].item > static_cast<std::size_t>(types[i])))
                throw std::invalid_argument("column " + names[i] + " does not match its variable");
            held.push_back(std::move(info));
        }
        if (n < 0) n = 0;
        std::size_t off = 0;
        for (std::size_t i = 0; i < nv; ++i) {
            src[i].offset = off;
            src[i].numeric = types[i] == 0;
            src[i].cells = types[i] == 0 ? 8 : static_cast<std::size_t>((types[i] + 7) / 8) * 8;
            off += src[i].cells;
        }
        recSize_ = off;
        tileCases_ = std::max<std::size_t>(1, (256u << 10) / std::max<std::size_t>(recSize_, 1));
        tile_.resize(recSize_ * tileCases_);
    }

    // Writes every row as a case, without the GIL: the code of the first
    // write that failed (0 for none) and, in `done`, the number of the case
    // that failed (from 1), or of the last written.
    int WriteTo(int h, long& done) {
        const std::size_t recSize = recSize_, tileCases = tileCases_;
        const long n = n_;
        std::vector<char>& tile = tile_;
        const std::vector<Src>& src = src_;
        const double sysmis = Sysmis();
        int rc = MURV_RC_OK;
        long& c = done;
        c = 0;
        {
            py::gil_scoped_release unlocked;
            for (long t0 = 0; t0 < n && rc == MURV_RC_OK; t0 += static_cast<long>(tileCases)) {
                const std::size_t m = static_cast<std::size_t>(std::min<long>(static_cast<long>(tileCases), n - t0));
                for (const Src& s : src) {
                    char* dst = tile.data() + s.offset;
                    const char* p = s.ptr + s.stride * t0;
                    if (s.numeric) {
                        for (std::size_t r = 0; r < m; ++r, p += s.stride, dst += recSize) {
                            double v;
                            std::memcpy(&v, p, 8);
                            if (v != v) v = sysmis;
                            std::memcpy(dst, &v, 8);
                        }
                    } else {
                        for (std::size_t r = 0; r < m; ++r, p += s.stride, dst += recSize) {
                            const std::size_t len = strnlen(p, s.item);
                            std::memcpy(dst, p, len);
                            std::memset(dst + len, ' ', s.cells - len);
                        }
                    }
                }
                for (std::size_t r = 0; r < m && rc == MURV_RC_OK; ++r, ++c) rc = murvWholeCaseOut(h, tile.data() + r * recSize);
            }
        }
        return rc;
    }

private:
    struct Src {
        const char* ptr = nullptr;
        py::ssize_t stride = 0;
        std::size_t item = 0;   // bytes of one value of a string column
        std::size_t offset = 0; // in the record
        std::size_t cells = 0;  // bytes the variable takes in the record
        bool numeric = true;
    };
    std::vector<Src> src_;
    std::vector<py::buffer_info> held_;
    long n_ = -1;
    std::size_t recSize_ = 0, tileCases_ = 1;
    std::vector<char> tile_;
};

// Opens `path` for writing, defines the variables of `vars` (dicts: name,
// type, and optionally label, print_format, write_format, missing,
// value_labels, measure, alignment, column_width, attributes) and the
// file's own metadata of `info`, and commits the dictionary: the handle.
// A failure closes the handle, and nothing is on disk before the commit.
int Define(const std::string& path, bool compress, const py::list& vars, const py::dict& info) {
    std::vector<int> types;
    std::vector<std::string> names;
    TypesAndNames(vars, types, names);
    const std::size_t nv = types.size();
    const std::size_t recSize = RecordSize(types);
    int h = -1;
    Check(murvOpenWrite(path.c_str(), &h), path + ": creating the file");
    struct Closer {
        int& h;
        ~Closer() {
            if (h >= 0) murvCloseWrite(h);
        }
    } closer{h};
    for (std::size_t i = 0; i < nv; ++i) {
        py::dict v = vars[i].cast<py::dict>();
        const char* name = names[i].c_str();
        Check(murvSetVarName(h, name, types[i]), "variable " + names[i]);
        if (v.contains("label") && !v["label"].is_none()) CheckSet(murvSetVarLabel(h, name, Str(v["label"]).c_str()), "label of " + names[i]);
        if (v.contains("print_format") && !v["print_format"].is_none()) {
            auto f = v["print_format"].cast<std::tuple<int, int, int>>();
            Check(murvSetVarPrintFormat(h, name, std::get<0>(f), std::get<2>(f), std::get<1>(f)), "print format of " + names[i]);
        }
        if (v.contains("write_format") && !v["write_format"].is_none()) {
            auto f = v["write_format"].cast<std::tuple<int, int, int>>();
            Check(murvSetVarWriteFormat(h, name, std::get<0>(f), std::get<2>(f), std::get<1>(f)), "write format of " + names[i]);
        }
        if (v.contains("missing") && !v["missing"].is_none()) {
            py::tuple m = v["missing"].cast<py::tuple>();
            const int kind = m[0].cast<int>();
            if (types[i] == 0)
                Check(murvSetVarNMissingValues(h, name, kind, m[1].cast<double>(), m[2].cast<double>(), m[3].cast<double>()),
                      "missing values of " + names[i]);
            else
                Check(murvSetVarCMissingValues(h, name, kind, Str(m[1]).c_str(), Str(m[2]).c_str(), Str(m[3]).c_str()),
                      "missing values of " + names[i]);
        }
        if (v.contains("value_labels") && !v["value_labels"].is_none()) {
            for (const py::handle& pair : v["value_labels"]) {
                py::tuple p = pair.cast<py::tuple>();
                if (types[i] == 0)
                    CheckSet(murvSetVarNValueLabel(h, name, p[0].cast<double>(), Str(p[1]).c_str()), "value labels of " + names[i]);
                else
                    CheckSet(murvSetVarCValueLabel(h, name, Str(p[0]).c_str(), Str(p[1]).c_str()), "value labels of " + names[i]);
            }
        }
        if (v.contains("measure") && !v["measure"].is_none()) Check(murvSetVarMeasureLevel(h, name, v["measure"].cast<int>()), "measure");
        if (v.contains("alignment") && !v["alignment"].is_none())
            Check(murvSetVarAlignment(h, name, v["alignment"].cast<int>()), "alignment");
        if (v.contains("column_width") && !v["column_width"].is_none())
            Check(murvSetVarColumnWidth(h, name, v["column_width"].cast<int>()), "column width");
        if (v.contains("attributes") && !v["attributes"].is_none()) {
            std::vector<std::string> an, av;
            for (const py::handle& pair : v["attributes"]) {
                py::tuple p = pair.cast<py::tuple>();
                an.push_back(Str(p[0]));
                av.push_back(Str(p[1]));
            }
            std::vector<const char*> pn, pv;
            for (std::size_t k = 0; k < an.size(); ++k) {
                pn.push_back(an[k].c_str());
                pv.push_back(av[k].c_str());
            }
            Check(murvSetVarAttributes(h, name, pn.data(), pv.data(), static_cast<int>(pn.size())), "attributes of " + names[i]);
        }
    }
    if (info.contains("file_label") && !info["file_label"].is_none()) Check(murvSetIdString(h, Str(info["file_label"]).c_str()), "file label");
    if (info.contains("weight") && !info["weight"].is_none()) Check(murvSetCaseWeightVar(h, Str(info["weight"]).c_str()), "weight");
    if (info.contains("text_info") && !info["text_info"].is_none() && !Str(info["text_info"]).empty())
        Check(murvSetTextInfo(h, Str(info["text_info"]).c_str()), "text information");
    if (info.contains("file_attributes") && !info["file_attributes"].is_none()) {
        std::vector<std::string> an, av;
        for (const py::handle& pair : info["file_attributes"]) {
            py::tuple p = pair.cast<py::tuple>();
            an.push_back(Str(p[0]));
            av.push_back(Str(p[1]));
        }
        std::vector<const char*> pn, pv;
        for (std::size_t k = 0; k < an.size(); ++k) {
            pn.push_back(an[k].c_str());
            pv.push_back(av[k].c_str());
        }
        if (!pn.empty()) Check(murvSetFileAttributes(h, pn.data(), pv.data(), static_cast<int>(pn.size())), "file attributes");
    }
    if (info.contains("mrsets") && !info["mrsets"].is_none()) {
        for (const py::handle& item : info["mrsets"]) {
            py::dict s = item.cast<py::dict>();
            std::vector<std::string> vn;
            for (const py::handle& v : s["variables"]) vn.push_back(Str(v));
            std::vector<char*> pv;
            for (std::string& v : vn) pv.push_back(v.data());
            murvMultRespDef d{};
            std::snprintf(d.setName, sizeof d.setName, "%s", Str(s["name"]).c_str());
            std::snprintf(d.setLabel, sizeof d.setLabel, "%s", s.contains("label") && !s["label"].is_none() ? Str(s["label"]).c_str() : "");
            d.isDichotomy = s.contains("dichotomy") && s["dichotomy"].cast<bool>();
            d.isNumeric = s.contains("numeric") && s["numeric"].cast<bool>();
            d.useCategoryLabels = s.contains("category_labels") && s["category_labels"].cast<bool>();
            d.useFirstVarLabel = s.contains("first_variable_label") && s["first_variable_label"].cast<bool>();
            std::string counted = s.contains("counted_value") && !s["counted_value"].is_none() ? Str(s["counted_value"]) : "";
            if (d.isNumeric && !counted.empty()) d.countedValue = std::atoi(counted.c_str());
            d.countedValueText = counted.empty() ? nullptr : counted.data();
            d.varNames = pv.data();
            d.varCount = static_cast<int>(pv.size());
            Check(murvAddMultRespDefExt(h, &d), "multiple-response set " + Str(s["name"]));
        }
    }
    if (info.contains("variable_sets") && !info["variable_sets"].is_none())
        Check(murvSetVariableSets(h, Str(info["variable_sets"]).c_str()), "variable sets");
    if (info.contains("documents") && !info["documents"].is_none()) {
        std::string lines;
        for (const py::handle& line : info["documents"]) {
            std::string l = Str(line).substr(0, 80);
            l.resize(80, ' ');
            lines += l;
        }
        murv::api::dioDataSource* ds = nullptr;
        Check(murv::api::lookupHandle(h, murv::api::dictionaryOpen, &ds), "documents");
        ds->SetExtension(0, 1, static_cast<int>(lines.size()), lines.data());
    }
    Check(murvSetCompression(h, compress ? 1 : 0), "compression");
    {
        // The layout is checked before the commit, while a failure still
        // leaves nothing on disk.
        murv::api::dioDataSource* ds = nullptr;
        Check(murv::api::lookupHandle(h, murv::api::dictionaryOpen, &ds), "case size");
        if (std::size_t{ds->CaseSize()} * 8 != recSize) throw std::logic_error("the case layout differs from the library's");
    }
    Check(murvCommitHeader(h), path + ": writing the dictionary");
    const int done = h;
    h = -1;
    return done;
}

// Writes a file of the rows of `columns` and `blocks` (see Rows) and the
// variables and metadata of `vars` and `info` (see Define). The rows are
// checked before anything is defined; the library writes beside a file that
// is at the path and moves the new one over it only when it is complete, and
// a case write that fails makes the close remove what it wrote, so a failure
// leaves the old file as it was.
void WriteFile(const std::string& path, bool compress, const py::list& vars, const py::list& columns, const py::list& blocks,
               const py::dict& info) {
    std::vector<int> types;
    std::vector<std::string> names;
    TypesAndNames(vars, types, names);
    Rows rows(types, names, columns, blocks);
    int h = Define(path, compress, vars, info);
    long c = 0;
    const int rc = rows.WriteTo(h, c);
    if (rc != MURV_RC_OK) {
        murvCloseWrite(h);
        Fail(rc, "writing case " + std::to_string(c));
    }
    Check(murvCloseWrite(h), path + ": finishing the file");
}

// Writing in steps, for frames that come in parts: begin_write defines and
// commits (see Define), write_rows adds rows (see Rows), end_write closes.
// A failed write_rows leaves the handle open for end_write to close.
void WriteRows(int h, const py::list& vars, const py::list& columns, const py::list& blocks) {
    std::vector<int> types;
    std::vector<std::string> names;
    TypesAndNames(vars, types, names);
    Rows rows(types, names, columns, blocks);
    int caseSize = 0;
    Check(murvGetCaseSize(h, &caseSize), "case size");
    if (static_cast<std::size_t>(caseSize) != RecordSize(types)) throw std::invalid_argument("rows of another layout than the file's");
    long c = 0;
    Check(rows.WriteTo(h, c), "writing a case");
}

// The C interface's own bulk paths, as the baseline of the benchmarks.
long BulkRead(const std::string& path) {
    int h = OpenRead(path);
    int size = 0;
    murvGetCaseSize(h, &size);
    std::vector<char> rec(static_cast<std::size_t>(size));
    long n = 0;
    {
        py::gil_scoped_release unlocked;
        while (murvWholeCaseIn(h, rec.data()) == MURV_RC_OK) ++n;
    }
    murvCloseRead(h);
    return n;
}

void BulkWrite(const std::string& path, long cases, int vars, bool compress) {
    int h = -1;
    Check(murvOpenWrite(path.c_str(), &h), path);
    for (int v = 0; v < vars; ++v) murvSetVarName(h, ("v" + std::to_string(v)).c_str(), 0);
    murvSetCompression(h, compress ? 1 : 0);
    Check(murvCommitHeader(h), path);
    std::vector<double> rec(static_cast<std::size_t>(vars));
    {
        py::gil_scoped_release unlocked;
        for (long c = 0; c < cases; ++c) {
            for (int v = 0; v < vars; ++v) rec[static_cast<std::size_t>(v)] = static_cast<double>((c * 31 + v * 7) % 1000) / 4;
            murvWholeCaseOut(h, reinterpret_cast<const char*>(rec.data()));
        }
    }
    Check(murvCloseWrite(h), path);
}

}  // namespace

PYBIND11_MODULE(_murvio, m) {
    m.doc() = "The compiled part of murvio";
    m.def("open_read", &OpenRead);
    m.def("close", &CloseHandle);
    m.def("metadata", &Metadata);
    m.def("read_block", &ReadBlock, py::arg("handle"), py::arg("first"), py::arg("count"), py::arg("offsets"),
          py::arg("types"), py::arg("dest"), py::arg("missing"), py::arg("encoding"), py::arg("path") = std::string(),
          py::arg("parallel") = false, py::arg("hold") = -1);
    m.def("write_file", &WriteFile);
    m.def("begin_write", &Define);
    m.def("write_rows", &WriteRows);
    m.def("end_write", [](int h) { Check(murvCloseWrite(h), "finishing the file"); });
    m.def("validate_varname", [](const std::string& name) { return murvValidateVarname(name.c_str()); });
    m.def("sysmis", &Sysmis);
    m.def("split_threshold", [](long cases, double bytes) {
        kParallelMinCases = cases;
        kParallelMinBytes = bytes;
    });
    m.def("buffer_cache", [](long long limit) { return BufferCache::Get().Limit(limit); }, py::arg("limit") = -1);
    m.def("bulk_read", &BulkRead);
    // The codec kernel in use; with a name, that kernel is used from now on
    // (for benchmarks that compare kernels: unknown or unsupported names
    // raise ValueError).
    m.def("codec_kernel", [](const std::string& name) {
        if (!name.empty() && !murv::codec::Select(name.c_str())) throw py::value_error("no kernel " + name + " here");
        return std::string(murv::codec::Active().name);
    }, py::arg("name") = "");
    m.def("bulk_write", &BulkWrite);
}
