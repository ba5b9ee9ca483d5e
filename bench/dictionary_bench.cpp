// Large dictionaries and metadata: the time to commit and reopen files whose
// dictionaries hold many variables, value labels, multiple-response sets,
// attributes and long names, at two sizes ten times apart, and the
// throughput of very long strings against plain numbers. Figures are ratios
// against the smaller run or the numeric run of the same process.
//
//   dictionary_bench [scale]    scale 1 (default): 10,000 and 100,000
//                               variables; a smaller scale for a quick run
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <unistd.h>
#include <vector>

#include "murvio.h"

namespace {

using Clock = std::chrono::steady_clock;

double Seconds(Clock::time_point since) { return std::chrono::duration<double>(Clock::now() - since).count(); }

void Check(int rc, const char* what) {
    if (rc != MURV_RC_OK && rc > 0) {
        std::fprintf(stderr, "%s failed with %d\n", what, rc);
        std::exit(1);
    }
}

std::string TempPath(const char* name) {
    const char* dir = std::getenv("TMPDIR");
    return std::string(dir && *dir ? dir : "/tmp") + "/" + name + "." + std::to_string(getpid());
}

struct Timing {
    double write = 0, reopen = 0;
};

// Metadata: variables with 20 value labels each, one multiple-response set
// per 10 variables, one attribute per variable.
Timing Metadata(int nVars, const std::string& path) {
    Timing t;
    auto start = Clock::now();
    int h = -1;
    Check(murvOpenWrite(path.c_str(), &h), "open");
    std::vector<std::string> names(static_cast<std::size_t>(nVars));
    for (int i = 0; i < nVars; ++i) {
        names[static_cast<std::size_t>(i)] = "v" + std::to_string(i);
        Check(murvSetVarName(h, names[static_cast<std::size_t>(i)].c_str(), 0), "name");
        for (int k = 1; k <= 20; ++k)
            Check(murvSetVarNValueLabel(h, names[static_cast<std::size_t>(i)].c_str(), k, ("label " + std::to_string(k)).c_str()),
                  "value label");
        Check(murvAddVarAttribute(h, names[static_cast<std::size_t>(i)].c_str(), "Source", -1, "survey"), "attribute");
    }
    std::string sets;
    for (int s = 0; s < nVars / 10; ++s) {
        sets += "$set" + std::to_string(s) + "=C 5 label";
        for (int m = 0; m < 10; ++m) sets += " " + names[static_cast<std::size_t>(s * 10 + m)];
        sets += "\n";
    }
    Check(murvSetMultRespDefs(h, sets.c_str()), "sets");
    Check(murvCommitHeader(h), "commit");
    Check(murvCloseWrite(h), "close");
    t.write = Seconds(start);
    start = Clock::now();
    Check(murvOpenRead(path.c_str(), &h), "reopen");
    int n = 0;
    Check(murvGetNumberofVariables(h, &n), "count");
    Check(murvCloseRead(h), "close");
    t.reopen = Seconds(start);
    if (n != nVars) std::exit(2);
    std::remove(path.c_str());
    return t;
}

// Long names that share their first 8 characters, so that most short names
// have to be searched for.
Timing LongNames(int nVars, const std::string& path) {
    Timing t;
    auto start = Clock::now();
    int h = -1;
    Check(murvOpenWrite(path.c_str(), &h), "open");
    for (int i = 0; i < nVars; ++i)
        Check(murvSetVarName(h, ("QuestionnaireItem_" + std::to_string(i)).c_str(), i % 5 ? 0 : 20), "name");
    Check(murvCommitHeader(h), "commit");
    Check(murvCloseWrite(h), "close");
    t.write = Seconds(start);
    start = Clock::now();
    Check(murvOpenRead(path.c_str(), &h), "reopen");
    int n = 0;
    Check(murvGetNumberofVariables(h, &n), "count");
    Check(murvCloseRead(h), "close");
    t.reopen = Seconds(start);
    if (n != nVars) std::exit(2);
    std::remove(path.c_str());
    return t;
}

// Bytes per second writing and reading nCases whole cases.
double CaseThroughput(const std::string& path, int nVars, int width, int nCases) {
    int h = -1;
    Check(murvOpenWrite(path.c_str(), &h), "open");
    for (int i = 0; i < nVars; ++i) Check(murvSetVarName(h, ("s" + std::to_string(i)).c_str(), width), "name");
    Check(murvCommitHeader(h), "commit");
    int caseSize = 0;
    Check(murvGetCaseSize(h, &caseSize), "case size");
    std::vector<char> record(static_cast<std::size_t>(caseSize));
    for (std::size_t i = 0; i < record.size(); ++i) record[i] = static_cast<char>(width ? 'a' + i % 26 : 0);
    const auto start = Clock::now();
    for (int c = 0; c < nCases; ++c) Check(murvWholeCaseOut(h, record.data()), "case out");
    Check(murvCloseWrite(h), "close");
    Check(murvOpenRead(path.c_str(), &h), "reopen");
    for (int c = 0; c < nCases; ++c) {
        Check(murvReadCaseRecord(h), "read");
        Check(murvWholeCaseIn(h, record.data()), "case in");
    }
    Check(murvCloseRead(h), "close");
    const double s = Seconds(start);
    std::remove(path.c_str());
    return 2.0 * caseSize * static_cast<double>(nCases) / s;
}

}  // namespace

int main(int argc, char** argv) {
    const double scale = argc > 1 ? std::atof(argv[1]) : 1.0;
    const int small = static_cast<int>(10000 * scale) < 20 ? 20 : static_cast<int>(10000 * scale);
    const std::string path = TempPath("murvio-bench.murv");

    const Timing m1 = Metadata(small, path), m10 = Metadata(10 * small, path);
    std::printf("metadata, %d variables: write %.3f s, reopen %.3f s\n", small, m1.write, m1.reopen);
    std::printf("metadata, %d variables: write %.3f s, reopen %.3f s\n", 10 * small, m10.write, m10.reopen);
    std::printf("metadata ratio (10x size): write %.2f, reopen %.2f (goal: at most 12; large reopen under 2 s)\n",
                m10.write / m1.write, m10.reopen / m1.reopen);

    const Timing l1 = LongNames(small, path), l10 = LongNames(10 * small, path);
    std::printf("long names, %d variables: commit %.3f s, reopen %.3f s\n", small, l1.write, l1.reopen);
    std::printf("long names, %d variables: commit %.3f s, reopen %.3f s\n", 10 * small, l10.write, l10.reopen);
    std::printf("long names ratio (10x size): commit %.2f, reopen %.2f (goal: at most 12; large under 2 s)\n",
                l10.write / l1.write, l10.reopen / l1.reopen);

    const int cases = static_cast<int>(5000 * (scale < 1 ? scale : 1)) + 10;
    const double strings = CaseThroughput(path, 20, 5000, cases);
    const double numbers = CaseThroughput(path, 100, 0, cases * 125);
    std::printf("very long strings: %.1f MB/s, numbers: %.1f MB/s, ratio %.2f (goal: at least 0.5)\n", strings / 1e6,
                numbers / 1e6, strings / numbers);
    return 0;
}
