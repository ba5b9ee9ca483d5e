// Case input and output through the interface, each figure measured against
// a baseline taken in the same run and printed as a ratio:
//
//   plain bulk write     murvWholeCaseOut vs write(2) of the same bytes
//   plain bulk read      murvWholeCaseIn vs read(2) of the file in 256 KiB
//                        blocks and a copy of each record (warm cache)
//   compressed write     survey-like data, compressed vs plain
//   compressed read      survey-like data, compressed vs plain (cases/s)
//   value-by-value       murvSetValueNumeric + murvCommitCaseRecord vs bulk,
//                        murvReadCaseRecord + murvGetValueNumeric vs bulk
//   random access        10,000 seeks and reads vs one sequential read of a
//                        compressed file, on a fresh handle and on one whose
//                        index of case positions is complete
//   parallel read        two handles on two threads, each reading half, vs
//                        one handle reading all (plain and compressed)
//   seek to the middle   a fresh handle reaching the middle case of the
//                        compressed file vs reading the file whole
//   peak memory          resident size of a process reading a whole file
//
// Usage: case_io_bench [--cases=N] [--reps=R] [--dir=DIR] [--json=FILE] [--kernel=NAME]
// --kernel makes the codec use the named kernel (scalar, sse2, sse41, avx2:
// those the processor runs) instead of the widest one. The number of cases
// (default 1,000,000, 100 numeric variables each) may also come from
// MURVIO_BENCH_CASES; each timing is the best of R runs
// (default 3), baseline and library runs interleaved.
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "murvio.h"
#include "sysfile/codec_kernels.h"

namespace {

constexpr int kVars = 100;
constexpr std::size_t kCaseBytes = kVars * 8;
constexpr std::size_t kPoolCases = 997;  // distinct records, cycled through
constexpr int kRandomReads = 10000;
constexpr std::size_t kChunk = 64 * 1024;

struct Options {
    long cases = 1000000;
    int reps = 3;
    std::string dir;
    std::string json;  // --json=FILE: every figure also as JSON, for scripts
    std::string kernel;
};

// Every figure printed, for the JSON output.
struct Figure {
    std::string what, library, baseline, goal;
    double tLibrary, tBaseline, ratio;
    bool met;
};
std::vector<Figure> gFigures;

[[noreturn]] void Fail(const std::string& what, int rc) {
    std::fprintf(stderr, "case_io_bench: %s failed (code %d)\n", what.c_str(), rc);
    std::exit(2);
}

void Check(int rc, const char* what) {
    if (rc != MURV_RC_OK) Fail(what, rc);
}

double Seconds(const std::function<void()>& f) {
    const auto t0 = std::chrono::steady_clock::now();
    f();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}

// Best of reps runs of each of two tasks, alternating so that a burst of load
// on the machine does not fall on one side only.
std::pair<double, double> BestOf(int reps, const std::function<void()>& a, const std::function<void()>& b) {
    double ta = 1e300, tb = 1e300;
    for (int i = 0; i < reps; ++i) {
        ta = std::min(ta, Seconds(a));
        tb = std::min(tb, Seconds(b));
    }
    return {ta, tb};
}

// A pool of case records. Plain data: arbitrary doubles, which compression
// cannot shorten. Survey data: mostly small integer codes, some
// system-missing answers, some fractional values.
std::vector<double> MakePool(bool survey) {
    std::mt19937_64 rng(survey ? 20261123 : 42);
    std::vector<double> pool(kPoolCases * kVars);
    std::uniform_real_distribution<double> any(-1e6, 1e6);
    std::uniform_int_distribution<int> code(1, 9), pct(0, 99);
    for (double& v : pool) {
        if (!survey) {
            v = any(rng);
            continue;
        }
        const int p = pct(rng);
        if (p < 5)
            v = murvSysmisVal();
        else if (p < 15)
            v = code(rng) + 0.25 * code(rng) / 9.0 + 0.01;
        else
            v = code(rng);
    }
    return pool;
}

const char* Record(const std::vector<double>& pool, long i) {
    return reinterpret_cast<const char*>(pool.data() + static_cast<std::size_t>(i) % kPoolCases * kVars);
}

int CreateFile(const std::string& path, bool compressed) {
    int h = -1;
    Check(murvOpenWrite(path.c_str(), &h), "murvOpenWrite");
    char name[16];
    for (int v = 0; v < kVars; ++v) {
        std::snprintf(name, sizeof name, "v%03d", v + 1);
        Check(murvSetVarName(h, name, 0), "murvSetVarName");
    }
    Check(murvSetCompression(h, compressed ? 1 : 0), "murvSetCompression");
    Check(murvCommitHeader(h), "murvCommitHeader");
    return h;
}

void WriteBulk(const Options& o, const std::string& path, const std::vector<double>& pool, bool compressed) {
    const int h = CreateFile(path, compressed);
    for (long i = 0; i < o.cases; ++i) Check(murvWholeCaseOut(h, Record(pool, i)), "murvWholeCaseOut");
    Check(murvCloseWrite(h), "murvCloseWrite");
}

void WriteByValue(const Options& o, const std::string& path, const std::vector<double>& pool) {
    const int h = CreateFile(path, false);
    for (long i = 0; i < o.cases; ++i) {
        const double* rec = pool.data() + static_cast<std::size_t>(i) % kPoolCases * kVars;
        for (int v = 0; v < kVars; ++v) Check(murvSetValueNumeric(h, v + 1, rec[v]), "murvSetValueNumeric");
        Check(murvCommitCaseRecord(h), "murvCommitCaseRecord");
    }
    Check(murvCloseWrite(h), "murvCloseWrite");
}

// The same bytes as the cases of WriteBulk, written with write(2) in 64 KiB
// pieces.
void WriteRaw(const Options& o, const std::string& path, const std::vector<double>& pool) {
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (fd < 0) Fail("open " + path, errno);
    std::vector<char> chunk(kChunk);
    std::size_t fill = 0;
    auto flush = [&] {
        std::size_t done = 0;
        while (done < fill) {
            const ssize_t n = ::write(fd, chunk.data() + done, fill - done);
            if (n <= 0) Fail("write", errno);
            done += static_cast<std::size_t>(n);
        }
        fill = 0;
    };
    for (long i = 0; i < o.cases; ++i) {
        if (fill + kCaseBytes > chunk.size()) flush();
        std::memcpy(chunk.data() + fill, Record(pool, i), kCaseBytes);
        fill += kCaseBytes;
    }
    flush();
    ::close(fd);
}

// Reads the file with read(2) in 256 KiB blocks and copies each record of
// the blocks into a record buffer: the least a call per record must do.
std::uint64_t ReadRaw(const std::string& path) {
    const int fd = ::open(path.c_str(), O_RDONLY);
    if (fd < 0) Fail("open " + path, errno);
    constexpr std::size_t kBlock = 256 * 1024;
    std::vector<char> block(kBlock + kCaseBytes);
    std::vector<char> rec(kCaseBytes);
    std::uint64_t total = 0;
    std::size_t have = 0;
    ssize_t n;
    while ((n = ::read(fd, block.data() + have, kBlock)) > 0) {
        have += static_cast<std::size_t>(n);
        std::size_t at = 0;
        for (; have - at >= kCaseBytes; at += kCaseBytes) {
            std::memcpy(rec.data(), block.data() + at, kCaseBytes);
            total += static_cast<unsigned char>(rec[0]);
            asm volatile("" : : "r"(rec.data()) : "memory");  // the copy is used
        }
        std::memmove(block.data(), block.data() + at, have - at);
        have -= at;
    }
    ::close(fd);
    return total;
}

// Reads every case with murvWholeCaseIn; returns the number read.
long ReadBulk(const std::string& path) {
    int h = -1;
    Check(murvOpenRead(path.c_str(), &h), "murvOpenRead");
    std::vector<char> rec(kCaseBytes);
    long n = 0;
    int rc;
    while ((rc = murvWholeCaseIn(h, rec.data())) == MURV_RC_OK) ++n;
    if (rc != MURV_RC_END_OF_FILE) Fail("murvWholeCaseIn", rc);
    Check(murvCloseRead(h), "murvCloseRead");
    return n;
}

// Reads every case and every value of it one at a time.
long ReadByValue(const std::string& path, double* sum) {
    int h = -1;
    Check(murvOpenRead(path.c_str(), &h), "murvOpenRead");
    long n = 0;
    int rc;
    double s = 0, v = 0;
    while ((rc = murvReadCaseRecord(h)) == MURV_RC_OK) {
        for (int k = 1; k <= kVars; ++k) {
            Check(murvGetValueNumeric(h, k, &v), "murvGetValueNumeric");
            s += v;
        }
        ++n;
    }
    if (rc != MURV_RC_END_OF_FILE) Fail("murvReadCaseRecord", rc);
    Check(murvCloseRead(h), "murvCloseRead");
    *sum = s;
    return n;
}

// Reads cases [first, last) with murvWholeCaseIn on a handle of its own.
long ReadRange(const std::string& path, long first, long last) {
    int h = -1;
    Check(murvOpenRead(path.c_str(), &h), "murvOpenRead");
    std::vector<char> rec(kCaseBytes);
    if (first > 0) Check(murvSeekNextCase(h, static_cast<int>(first)), "murvSeekNextCase");
    long n = 0;
    for (long c = first; c < last; ++c, ++n) Check(murvWholeCaseIn(h, rec.data()), "murvWholeCaseIn");
    Check(murvCloseRead(h), "murvCloseRead");
    return n;
}

// Two threads, each reading half of the file on its own handle.
void ReadHalvesInParallel(const std::string& path, long cases) {
    long a = 0, b = 0;
    std::thread second([&] { b = ReadRange(path, cases / 2, cases); });
    a = ReadRange(path, 0, cases / 2);
    second.join();
    if (a + b != cases) Fail("parallel read: case count", static_cast<int>(a + b));
}

long ReadSequential(const std::string& path) {
    int h = -1;
    Check(murvOpenRead(path.c_str(), &h), "murvOpenRead");
    long n = 0;
    int rc;
    while ((rc = murvReadCaseRecord(h)) == MURV_RC_OK) ++n;
    if (rc != MURV_RC_END_OF_FILE) Fail("murvReadCaseRecord", rc);
    Check(murvCloseRead(h), "murvCloseRead");
    return n;
}

// kRandomReads seeks and reads on a fresh handle, or (timing only the
// seeks) on a handle that has read every case once, so that its index of
// case positions is complete.
double ReadRandom(const Options& o, const std::string& path, bool indexed) {
    int h = -1;
    Check(murvOpenRead(path.c_str(), &h), "murvOpenRead");
    if (indexed) {
        while (murvReadCaseRecord(h) == MURV_RC_OK) {
        }
    }
    const auto start = std::chrono::steady_clock::now();
    std::mt19937 rng(7);
    std::uniform_int_distribution<long> pick(0, o.cases - 1);
    double v = 0;
    for (int i = 0; i < kRandomReads; ++i) {
        const long c = pick(rng);
        Check(murvSeekNextCase(h, static_cast<int>(c)), "murvSeekNextCase");
        Check(murvReadCaseRecord(h), "murvReadCaseRecord");
        Check(murvGetValueNumeric(h, 1, &v), "murvGetValueNumeric");
    }
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    Check(murvCloseRead(h), "murvCloseRead");
    return seconds;
}

long PeakRssKiB() {
    rusage u{};
    getrusage(RUSAGE_SELF, &u);
    return u.ru_maxrss;
}

// Child mode: read the whole file and print the peak resident size before
// and after, in KiB.
int RssChild(const std::string& path) {
    const long before = PeakRssKiB();
    const long n = ReadBulk(path);
    std::printf("%ld %ld %ld\n", before, PeakRssKiB(), n);
    return 0;
}

// Runs this program again in child mode, so that the peak is that of a
// process that does nothing but read the file.
std::pair<long, long> MeasureRss(const std::string& path) {
    char self[4096];
    const ssize_t len = ::readlink("/proc/self/exe", self, sizeof self - 1);
    if (len <= 0) Fail("readlink /proc/self/exe", errno);
    self[len] = '\0';
    const std::string cmd = std::string("'") + self + "' --rss-child='" + path + "'";
    FILE* p = ::popen(cmd.c_str(), "r");
    if (!p) Fail("popen", errno);
    long before = -1, after = -1, n = -1;
    const int got = std::fscanf(p, "%ld %ld %ld", &before, &after, &n);
    ::pclose(p);
    if (got != 3) Fail("rss child", got);
    return {before, after};
}

void Report(const char* what, const char* lib, double tLib, const char* base, double tBase, double ratio,
            const char* goal, bool met) {
    gFigures.push_back({what, lib, base, goal, tLib, tBase, ratio, met});
    std::printf("%-22s %-34s %8.3f s   %-26s %8.3f s   ratio %6.2f  (goal %s)  %s\n", what, lib, tLib, base, tBase,
                ratio, goal, met ? "met" : "NOT MET");
}

// {"cases": N, "reps": R, "figures": [{"figure": ..., "library": ..., ...}]}
void WriteJson(const Options& o, const std::string& path) {
    std::FILE* out = std::fopen(path.c_str(), "w");
    if (!out) Fail("opening " + path, errno);
    std::fprintf(out, "{\"cases\": %ld, \"reps\": %d, \"kernel\": \"%s\", \"figures\": [", o.cases, o.reps,
                 murv::codec::Active().name);
    for (std::size_t i = 0; i < gFigures.size(); ++i) {
        const Figure& f = gFigures[i];
        std::fprintf(out,
                     "%s\n  {\"figure\": \"%s\", \"library\": \"%s\", \"library_value\": %.6g, "
                     "\"baseline\": \"%s\", \"baseline_value\": %.6g, \"ratio\": %.4f, \"goal\": \"%s\", "
                     "\"met\": %s}",
                     i ? "," : "", f.what.c_str(), f.library.c_str(), f.tLibrary, f.baseline.c_str(), f.tBaseline,
                     f.ratio, f.goal.c_str(), f.met ? "true" : "false");
    }
    std::fprintf(out, "\n]}\n");
    if (std::fclose(out) != 0) Fail("writing " + path, errno);
}

Options ParseOptions(int argc, char** argv) {
    Options o;
    if (const char* env = std::getenv("MURVIO_BENCH_CASES")) o.cases = std::atol(env);
    const char* tmp = std::getenv("TMPDIR");
    o.dir = tmp && *tmp ? tmp : "/tmp";
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        if (a.rfind("--cases=", 0) == 0)
            o.cases = std::atol(a.c_str() + 8);
        else if (a.rfind("--reps=", 0) == 0)
            o.reps = std::atoi(a.c_str() + 7);
        else if (a.rfind("--json=", 0) == 0)
            o.json = a.substr(7);
        else if (a.rfind("--dir=", 0) == 0)
            o.dir = a.substr(6);
        else if (a.rfind("--kernel=", 0) == 0)
            o.kernel = a.substr(9);
        else {
            std::fprintf(stderr, "usage: %s [--cases=N] [--reps=R] [--dir=DIR] [--json=FILE] [--kernel=NAME]\n",
                         argv[0]);
            std::exit(2);
        }
    }
    if (o.cases < 1 || o.cases > 2000000000L || o.reps < 1) {
        std::fprintf(stderr, "case_io_bench: --cases must be 1 to 2e9 and --reps at least 1\n");
        std::exit(2);
    }
    if (!o.kernel.empty() && !murv::codec::Select(o.kernel.c_str())) {
        std::fprintf(stderr, "case_io_bench: kernel %s is unknown or not supported here; there are", o.kernel.c_str());
        for (const auto* k : murv::codec::Supported()) std::fprintf(stderr, " %s", k->name);
        std::fprintf(stderr, "\n");
        std::exit(2);
    }
    return o;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 2 && std::strncmp(argv[1], "--rss-child=", 12) == 0) return RssChild(argv[1] + 12);
    const Options o = ParseOptions(argc, argv);

    std::string dir = o.dir + "/murvio-bench-XXXXXX";
    if (!::mkdtemp(dir.data())) Fail("mkdtemp in " + o.dir, errno);
    const std::string raw = dir + "/raw.bin", plain = dir + "/plain.murv", surveyPlain = dir + "/survey_plain.murv",
                      surveyComp = dir + "/survey_comp.murv", byValue = dir + "/by_value.murv";

    std::printf("%ld cases of %d numeric variables (%.1f MiB of case data), best of %d runs, codec kernel %s (of",
                o.cases, kVars, static_cast<double>(o.cases) * kCaseBytes / 1048576.0, o.reps,
                murv::codec::Active().name);
    for (const auto* k : murv::codec::Supported()) std::printf(" %s", k->name);
    std::printf(")\n\n");
    const std::vector<double> plainPool = MakePool(false), surveyPool = MakePool(true);

    // Plain bulk write and read.
    auto [tWrite, tRawWrite] = BestOf(
        o.reps, [&] { WriteBulk(o, plain, plainPool, false); }, [&] { WriteRaw(o, raw, plainPool); });
    Report("plain bulk write", "murvWholeCaseOut", tWrite, "write(2)", tRawWrite, tRawWrite / tWrite, ">= 0.80",
           tRawWrite / tWrite >= 0.8);
    ReadRaw(raw);
    ReadRaw(plain);
    long nRead = 0;
    auto [tRead, tRawRead] = BestOf(o.reps, [&] { nRead = ReadBulk(plain); }, [&] { ReadRaw(raw); });
    if (nRead != o.cases) Fail("plain read: case count", static_cast<int>(nRead));
    Report("plain bulk read", "murvWholeCaseIn", tRead, "read(2) + a copy per case", tRawRead, tRawRead / tRead, ">= 0.85",
           tRawRead / tRead >= 0.85);
    std::remove(raw.c_str());

    // Survey-like data, compressed against plain.
    auto [tCompWrite, tPlainWrite] = BestOf(
        o.reps, [&] { WriteBulk(o, surveyComp, surveyPool, true); },
        [&] { WriteBulk(o, surveyPlain, surveyPool, false); });
    // (A time ratio: a compressed file of such data is about a fifth of the
    // bytes, so writing it should take at most half as long.)
    Report("compressed write", "murvWholeCaseOut, compressed", tCompWrite, "murvWholeCaseOut, plain", tPlainWrite,
           tCompWrite / tPlainWrite, "<= 0.50", tCompWrite / tPlainWrite <= 0.5);
    auto [tCompRead, tPlainRead] = BestOf(
        o.reps, [&] { nRead = ReadBulk(surveyComp); }, [&] { ReadBulk(surveyPlain); });
    if (nRead != o.cases) Fail("compressed read: case count", static_cast<int>(nRead));
    Report("compressed read", "murvWholeCaseIn, compressed", tCompRead, "murvWholeCaseIn, plain", tPlainRead,
           tPlainRead / tCompRead, ">= 0.90", tPlainRead / tCompRead >= 0.9);

    // Value by value against the bulk calls, on the plain survey file.
    auto [tValueWrite, tBulkWrite] = BestOf(
        o.reps, [&] { WriteByValue(o, byValue, surveyPool); }, [&] { WriteBulk(o, surveyPlain, surveyPool, false); });
    Report("value-by-value write", "murvSetValueNumeric+Commit", tValueWrite, "murvWholeCaseOut", tBulkWrite,
           tValueWrite / tBulkWrite, "<= 2.50", tValueWrite / tBulkWrite <= 2.5);
    double sum = 0;
    auto [tValueRead, tBulkRead] = BestOf(
        o.reps, [&] { nRead = ReadByValue(byValue, &sum); }, [&] { ReadBulk(surveyPlain); });
    if (nRead != o.cases) Fail("value read: case count", static_cast<int>(nRead));
    Report("value-by-value read", "murvReadCaseRecord+GetValueNumeric", tValueRead, "murvWholeCaseIn", tBulkRead,
           tValueRead / tBulkRead, "<= 2.50", tValueRead / tBulkRead <= 2.5);
    std::remove(byValue.c_str());

    // Random access in the compressed file, each run on a freshly opened
    // handle (so the positions of cases are learnt anew).
    auto [tRandom, tSeq] = BestOf(o.reps, [&] { ReadRandom(o, surveyComp, false); }, [&] { ReadSequential(surveyComp); });
    char what[64];
    std::snprintf(what, sizeof what, "%d seeks + reads, fresh", kRandomReads);
    Report("random access", what, tRandom, "sequential read", tSeq, tRandom / tSeq, "<= 1.50", tRandom / tSeq <= 1.5);
    // The same seeks on a handle whose index is complete.
    double tIndexed = 1e300;
    for (int i = 0; i < o.reps; ++i) tIndexed = std::min(tIndexed, ReadRandom(o, surveyComp, true));
    std::snprintf(what, sizeof what, "%d seeks + reads, indexed", kRandomReads);
    Report("random access", what, tIndexed, "sequential read", tSeq, tIndexed / tSeq, "<= 0.50", tIndexed / tSeq <= 0.5);

    // Two handles on two threads, each reading half of the file, against one
    // handle reading it all (the second half's handle seeks there first:
    // directly in a plain file, by decoding past the first half in a
    // compressed one, whose fresh handle has no index yet).
    for (const std::string* f : {&surveyPlain, &surveyComp}) {
        auto [tHalves, tWhole] = BestOf(
            o.reps, [&] { ReadHalvesInParallel(*f, o.cases); }, [&] { ReadBulk(*f); });
        Report("parallel read", f == &surveyPlain ? "2 threads x half, plain" : "2 threads x half, compressed",
               tHalves, "1 thread, whole file", tWhole, tHalves / tWhole, "<= 0.60", tHalves / tWhole <= 0.6);
    }

    // A fresh handle reaching the middle of the compressed file (by skipping
    // the blocks before it) against reading the file whole.
    auto [tMiddle, tWholeComp] = BestOf(
        o.reps, [&] { ReadRange(surveyComp, o.cases / 2, o.cases / 2 + 1); }, [&] { ReadBulk(surveyComp); });
    Report("seek to the middle", "fresh handle, compressed", tMiddle, "1 thread, whole file", tWholeComp,
           tMiddle / tWholeComp, "<= 0.10", tMiddle / tWholeComp <= 0.1);

    // Peak memory of reading a whole file, plain and compressed.
    for (const std::string* f : {&plain, &surveyComp}) {
        const auto [before, peak] = MeasureRss(*f);
        std::printf("%-22s %-34s %8.1f MiB   %-26s %8.1f MiB   (goal < 64 MiB)  %s\n", "peak RSS, whole read",
                    f == &plain ? "plain file" : "compressed file", peak / 1024.0, "process at start", before / 1024.0,
                    peak < 64 * 1024 ? "met" : "NOT MET");
        gFigures.push_back({"peak RSS, whole read (MiB)", f == &plain ? "plain file" : "compressed file",
                            "process at start", "< 64", peak / 1024.0, before / 1024.0, 0.0, peak < 64 * 1024});
    }
    if (!o.json.empty()) WriteJson(o, o.json);

    std::remove(plain.c_str());
    std::remove(surveyPlain.c_str());
    std::remove(surveyComp.c_str());
    ::rmdir(dir.c_str());
    return 0;
}
