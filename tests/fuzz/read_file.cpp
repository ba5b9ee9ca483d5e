// Opens the input bytes as a system file and asks every reading call about
// it: dictionary, labels, missing values, attributes, sets, extension
// records, the data-entry block, cases value by value and whole, and seeks.
// Whatever the bytes, the library must answer with codes, not crash, hang
// or leak.
#include <algorithm>
#include <cstdint>
#include <vector>

#include "fuzz_support.h"
#include "murvio.h"

namespace {

// Bounds that keep one run short whatever counts the header claims.
constexpr int kMaxVariables = 256;
constexpr int kMaxCases = 1000;
constexpr int kMaxValueCalls = 20000;
constexpr int kMaxChunks = 64;

struct Slot {
    double handle;
    int type;
};

// Asks every dictionary call about one variable; keeps its handle for the cases.
void ReadVariable(int h, const char* name, int type, std::vector<Slot>& slots) {
    double vh = 0;
    if (murvGetVarHandle(h, name, &vh) == MURV_RC_OK) slots.push_back({vh, type});
    char label[121], small[7], shortName[9], c1[9], c2[9], c3[9];
    int len = 0, a = 0, b = 0, c = 0;
    murvGetVarLabel(h, name, label);
    murvGetVarLabelLong(h, name, small, sizeof small, &len);
    std::vector<char> big(1024);
    murvGetVarLabelLong(h, name, big.data(), static_cast<int>(big.size()), nullptr);
    for (auto get : {murvGetVarPrintFormat, murvGetVarWriteFormat}) get(h, name, &a, &b, &c);
    for (auto get : {murvGetVarAlignment, murvGetVarColumnWidth, murvGetVarMeasureLevel}) get(h, name, &a);
    murvGetVarCompatName(h, name, shortName);

    int kind = 0;
    double m1, m2, m3;
    murvGetVarNMissingValues(h, name, &kind, &m1, &m2, &m3);
    murvGetVarCMissingValues(h, name, &kind, c1, c2, c3);

    // Each value label, whole and into a small buffer, then a value that may have none.
    char vlabel[61], vsmall[5];
    auto valueLabels = [&](auto* values, auto getAll, auto getOne, auto getLong, auto freeAll, auto probe) {
        char** labels = nullptr;
        int n = 0;
        if (getAll(h, name, &values, &labels, &n) == MURV_RC_OK) {
            for (int i = 0; i < n && i < 64; ++i) {
                getOne(h, name, values[i], vlabel);
                getLong(h, name, values[i], vsmall, static_cast<int>(sizeof vsmall), &len);
            }
            freeAll(values, labels, n);
        }
        getOne(h, name, probe, vlabel);
    };
    if (type == 0)
        valueLabels(static_cast<double*>(nullptr), murvGetVarNValueLabels, murvGetVarNValueLabel,
                    murvGetVarNValueLabelLong, murvFreeVarNValueLabels, 1.0);
    else
        valueLabels(static_cast<char**>(nullptr), murvGetVarCValueLabels, murvGetVarCValueLabel,
                    murvGetVarCValueLabelLong, murvFreeVarCValueLabels, "a");

    char** names = nullptr;
    char** texts = nullptr;
    int n = 0;
    if (murvGetVarAttributes(h, name, &names, &texts, &n) == MURV_RC_OK) murvFreeAttributes(names, texts, n);
}

void ReadFileLevel(int h) {
    int n = 0;
    for (auto get : {murvGetNumberofVariables, murvGetCaseSize, murvGetNumberofCases, murvGetEstimatedNofCases,
                     murvGetCompression})
        get(h, &n);
    char text[257], date[10], time[9], info[256];
    for (auto get : {murvGetCaseWeightVar, murvGetIdString, murvGetSystemString}) get(h, text);
    int release[3];
    murvGetReleaseInfo(h, release);
    murvGetTimeStamp(h, date, time);
    murvGetTextInfo(h, info);

    // Every subtype the interface reaches, and a few it refuses; extension
    // records are read in chunks of at least 100 bytes until their count is
    // delivered.
    for (int subtype = -1; subtype <= 34; ++subtype) {
        int found = 0, unit = 0, count = 0;
        murvQueryType7(h, subtype, &found);
        if (murvGetExtensionDataDesc(h, subtype, &unit, &count) != MURV_RC_OK || count <= 0 || unit <= 0) continue;
        const int size = std::max(unit, 100);
        std::vector<unsigned char> buffer(static_cast<std::size_t>(size));
        int delivered = 0;
        for (int i = 0; i < kMaxChunks && delivered < count; ++i) {
            int got = 0;
            if (murvGetExtensionData(h, subtype, size, &got, buffer.data()) != MURV_RC_OK || got <= 0) break;
            delivered += got;
        }
    }

    char** names = nullptr;
    char** texts = nullptr;
    if (murvGetFileAttributes(h, &names, &texts, &n) == MURV_RC_OK) murvFreeAttributes(names, texts, n);

    int* dateInfo = nullptr;
    if (murvGetDateVariables(h, &n, &dateInfo) == MURV_RC_OK) murvFreeDateVariables(dateInfo);

    murvGetZOPGUID(h, text);
    int bytes = 0, segments = 0;
    murvGetZOPInfo(h, &bytes, &segments);
    unsigned char zop[97];
    int delivered = 0;
    if (murvGetZOPFirst(h, zop, sizeof zop, &delivered) == MURV_RC_OK) {
        int total = delivered;
        for (int i = 0; i < kMaxChunks && delivered > 0 && total < bytes; ++i) {
            if (murvGetZOPNext(h, zop, sizeof zop, &delivered) != MURV_RC_OK) break;
            total += delivered;
        }
    }

    char* defs = nullptr;
    if (murvGetMultRespDefs(h, &defs) == MURV_RC_OK) murvFreeMultRespDefs(defs);
    int sets = 0;
    if (murvGetMultRespCount(h, &sets) == MURV_RC_OK) {
        for (int i = -1; i <= sets && i < 64; ++i) {
            murvMultRespDef* set = nullptr;
            if (murvGetMultRespDefByIndex(h, i, &set) == MURV_RC_OK) murvFreeMultRespDefStruct(set);
        }
    }
    char* varSets = nullptr;
    if (murvGetVariableSets(h, &varSets) == MURV_RC_OK) murvFreeVariableSets(varSets);
}

// Reads cases value by value; returns the number of cases read.
int ReadCases(int h, const std::vector<Slot>& slots, int maxCases, int& budget) {
    std::vector<char> text(32768 + 1);
    int cases = 0;
    while (cases < maxCases && murvReadCaseRecord(h) == MURV_RC_OK) {
        ++cases;
        for (const Slot& s : slots) {
            if (budget-- <= 0) return cases;
            if (s.type == 0) {
                double v;
                murvGetValueNumeric(h, s.handle, &v);
            } else {
                murvGetValueChar(h, s.handle, text.data(), s.type + 1);
                murvGetValueChar(h, s.handle, text.data(), s.type);  // one byte short
            }
        }
    }
    return cases;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static murv::fuzz::MemoryFile file("murvio-fuzz-read");
    file.Fill(data, size);

    int h = -1;
    if (murvOpenRead(file.Path(), &h) != MURV_RC_OK) return 0;

    ReadFileLevel(h);

    std::vector<Slot> slots;
    int numVars = 0, type = 0;
    char** names = nullptr;
    int* types = nullptr;
    char name[65];
    if (murvGetVarNames(h, &numVars, &names, &types) == MURV_RC_OK) {
        for (int i = 0; i < numVars && i < kMaxVariables; ++i) {
            murvGetVarInfo(h, i, name, &type);
            ReadVariable(h, names[i], types[i], slots);
        }
        murvFreeVarNames(names, types, numVars);
    }
    murvGetVarInfo(h, numVars, name, &type);  // one past the end

    int caseSize = 0;
    murvGetCaseSize(h, &caseSize);
    int budget = kMaxValueCalls;
    const int read = ReadCases(h, slots, kMaxCases, budget);

    // Back to some cases and on from there, including beyond the end; then
    // whole cases from the first.
    for (int target : {0, read / 2, read - 1, read, read + 1, 1 << 30, -1}) {
        if (murvSeekNextCase(h, target) == MURV_RC_OK) ReadCases(h, slots, 2, budget);
    }
    if (caseSize > 0 && caseSize <= (1 << 20) && murvSeekNextCase(h, 0) == MURV_RC_OK) {
        std::vector<char> record(static_cast<std::size_t>(caseSize));
        for (int i = 0; i < 16 && murvWholeCaseIn(h, record.data()) == MURV_RC_OK; ++i) {
        }
    }

    if (murvCloseRead(h) != MURV_RC_OK) murv::fuzz::Fail("closing a file opened for reading failed");
    return 0;
}
