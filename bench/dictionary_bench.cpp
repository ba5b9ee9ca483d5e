// Large dictionaries and metadata: the time to commit and reopen files whose
// dictionaries hold many variables, value labels, multiple-response sets,
// attributes and long names, at two sizes ten times apart, and the
// throughput of very long strings against plain numbers. Figures are ratios
// against the smaller run or the numeric run of the same process. Last, the
// wide-file case: 100,000 and 1,000,000 numeric variables (every tenth with
// a variable label and two value labels), 10 compressed cases: the time to
// write, reopen and read it (each size in processes of its own, best of
// three), and the peak resident size of a process that does nothing but
// read it, and of one that does nothing but write it.
//
//   dictionary_bench [scale]    scale 1 (default): 10,000 and 100,000
//                               variables (100,000 and 1,000,000 for the
//                               wide file); a smaller scale for a quick run
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/resource.h>
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

struct Wide {
    double write = 0, open = 0, read = 0;
};

constexpr int kWideCases = 10;

// Defines nVars numeric variables, every tenth with a variable label and two
// value labels, writes kWideCases compressed cases and closes the file.
void WriteWide(int nVars, const std::string& path) {
    int h = -1;
    Check(murvOpenWrite(path.c_str(), &h), "open");
    char name[32], label[48];
    for (int i = 0; i < nVars; ++i) {
        std::snprintf(name, sizeof name, "v%d", i);
        Check(murvSetVarName(h, name, 0), "name");
        if (i % 10) continue;
        std::snprintf(label, sizeof label, "Question %d of the survey", i);
        Check(murvSetVarLabel(h, name, label), "variable label");
        Check(murvSetVarNValueLabel(h, name, 1, "Yes"), "value label");
        Check(murvSetVarNValueLabel(h, name, 2, "No"), "value label");
    }
    Check(murvSetCompression(h, 1), "compression");
    Check(murvCommitHeader(h), "commit");
    int caseSize = 0;
    Check(murvGetCaseSize(h, &caseSize), "case size");
    std::vector<double> record(static_cast<std::size_t>(caseSize) / sizeof(double));
    for (int c = 0; c < kWideCases; ++c) {
        for (std::size_t i = 0; i < record.size(); ++i) record[i] = static_cast<double>((i + c) % 7);
        Check(murvWholeCaseOut(h, reinterpret_cast<const char*>(record.data())), "case out");
    }
    Check(murvCloseWrite(h), "close");
}

// Opens the file and reads its cases; the two times go to *w.
void ReadWide(int nVars, const std::string& path, Wide* w) {
    auto start = Clock::now();
    int h = -1;
    Check(murvOpenRead(path.c_str(), &h), "reopen");
    w->open = Seconds(start);
    int n = 0, caseSize = 0;
    Check(murvGetNumberofVariables(h, &n), "count");
    Check(murvGetCaseSize(h, &caseSize), "case size");
    if (n != nVars) std::exit(2);
    start = Clock::now();
    std::vector<char> record(static_cast<std::size_t>(caseSize));
    for (int c = 0; c < kWideCases; ++c) Check(murvWholeCaseIn(h, record.data()), "case in");
    w->read = Seconds(start);
    Check(murvCloseRead(h), "close");
}

// Child modes: time writing and reading the file ("--wide-child"), or read
// or write it and give the peak resident size in KiB ("--wide-rss-child",
// "--wide-write-rss-child").
int WideChild(int nVars, const std::string& path) {
    Wide w;
    const auto start = Clock::now();
    WriteWide(nVars, path);
    w.write = Seconds(start);
    ReadWide(nVars, path, &w);
    std::printf("%.6f %.6f %.6f\n", w.write, w.open, w.read);
    return 0;
}

// Reads the file (read) or writes it (otherwise), then gives the peak
// resident size in KiB.
int WideRssChild(int nVars, const std::string& path, bool read) {
    Wide w;
    if (read)
        ReadWide(nVars, path, &w);
    else
        WriteWide(nVars, path);
    rusage u{};
    getrusage(RUSAGE_SELF, &u);
    std::printf("%ld\n", u.ru_maxrss);
    return 0;
}

// Runs this program again in a child mode and reads what it prints; false
// when that fails. Each size is timed in a process of its own, so that
// neither finds a heap that the runs before it have already grown, and the
// peak resident size is that of a process that does nothing but read.
bool RunChild(const char* mode, int nVars, const std::string& path, const char* format, void* a, void* b = nullptr,
              void* c = nullptr) {
    char self[4096];
    const ssize_t len = ::readlink("/proc/self/exe", self, sizeof self - 1);
    if (len <= 0) return false;
    self[len] = '\0';
    const std::string cmd =
        std::string("'") + self + "' " + mode + "=" + std::to_string(nVars) + " '" + path + "'";
    FILE* p = ::popen(cmd.c_str(), "r");
    if (!p) return false;
    const int want = c ? 3 : b ? 2 : 1;
    const bool ok = std::fscanf(p, format, a, b, c) == want;
    return ::pclose(p) == 0 && ok;
}

// The best of kWideRuns runs, each figure on its own.
constexpr int kWideRuns = 3;

Wide WideFile(int nVars, const std::string& path) {
    Wide best{1e300, 1e300, 1e300};
    for (int run = 0; run < kWideRuns; ++run) {
        Wide w;
        if (!RunChild("--wide-child", nVars, path, "%lf %lf %lf", &w.write, &w.open, &w.read)) {
            std::fprintf(stderr, "wide file child failed\n");
            std::exit(1);
        }
        best = {std::min(best.write, w.write), std::min(best.open, w.open), std::min(best.read, w.read)};
    }
    return best;
}

long WideRssKiB(int nVars, const std::string& path, bool read) {
    long kib = -1;
    return RunChild(read ? "--wide-rss-child" : "--wide-write-rss-child", nVars, path, "%ld", &kib) ? kib : -1;
}

const char* Met(bool met) { return met ? "met" : "NOT MET"; }

}  // namespace

int main(int argc, char** argv) {
    if (argc == 3 && std::strncmp(argv[1], "--wide-rss-child=", 17) == 0)
        return WideRssChild(std::atoi(argv[1] + 17), argv[2], true);
    if (argc == 3 && std::strncmp(argv[1], "--wide-write-rss-child=", 23) == 0)
        return WideRssChild(std::atoi(argv[1] + 23), argv[2], false);
    if (argc == 3 && std::strncmp(argv[1], "--wide-child=", 13) == 0) return WideChild(std::atoi(argv[1] + 13), argv[2]);
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

    // The wide file. Goals are for the full size (1,000,000 variables).
    const int wideSmall = static_cast<int>(100000 * scale) < 100 ? 100 : static_cast<int>(100000 * scale);
    const int wideLarge = 10 * wideSmall;
    const Wide w1 = WideFile(wideSmall, path);
    std::remove(path.c_str());
    const Wide w10 = WideFile(wideLarge, path);
    const long rss = WideRssKiB(wideLarge, path, true);
    const long writeRss = WideRssKiB(wideLarge, path, false);
    std::remove(path.c_str());
    std::printf("wide file, %d variables: write %.3f s, open %.3f s, read %d cases %.3f s\n", wideSmall, w1.write,
                w1.open, kWideCases, w1.read);
    std::printf("wide file, %d variables: write + close %.3f s (goal: at most 2 s) %s\n", wideLarge, w10.write,
                Met(w10.write <= 2.0));
    std::printf("wide file, %d variables: murvOpenRead %.3f s (goal: at most 1 s) %s\n", wideLarge, w10.open,
                Met(w10.open <= 1.0));
    std::printf("wide file, %d variables: read %d cases %.3f s\n", wideLarge, kWideCases, w10.read);
    std::printf("wide file, %d variables: peak resident size reading it %.1f MiB (%.0f bytes a variable; goal: at "
                "most 400 MiB) %s\n",
                wideLarge, rss / 1024.0, rss * 1024.0 / wideLarge, Met(rss >= 0 && rss <= 400 * 1024));
    std::printf("wide file, %d variables: peak resident size writing it (define, commit, %d cases, close) %.1f MiB "
                "(goal: at most 400 MiB) %s\n",
                wideLarge, kWideCases, writeRss / 1024.0, Met(writeRss >= 0 && writeRss <= 400 * 1024));
    const double t1 = w1.write + w1.open + w1.read, t10 = w10.write + w10.open + w10.read;
    const double writeRatio = w10.write / w1.write, openRatio = w10.open / w1.open;
    std::printf("wide file ratio (10x size): write %.2f %s, open %.2f %s, all %.2f %s (goal: each at most 11)\n",
                writeRatio, Met(writeRatio <= 11), openRatio, Met(openRatio <= 11), t10 / t1, Met(t10 / t1 <= 11));
    return 0;
}
