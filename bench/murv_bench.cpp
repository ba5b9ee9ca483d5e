// Throughput of `murv cat --csv` and `murv import` in MB/s of CSV, against
// copying the same CSV bytes from file to file (read(2) and write(2) in 1 MiB
// pieces) measured in the same run; `murv cat --formatted` against `cat
// --csv`; `murv freq` (of the 50 code variables) and `murv stats` (of all
// variables) against reading every case with the library's bulk call
// murvWholeCaseIn in this process. Each of these is the best of two runs.
//
// Also import with missing-value texts and date detection against import
// with neither.
//
// murv_bench MURV [--cases=N] [--vars=N] [--dir=D]
// The table: half the variables whole numbers 0-99 (answer codes), half
// amounts with two decimals (0-99999.99), as survey data are.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "murvio.h"

namespace {

double Now() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

double Run(const std::string& cmd) {
    const double t = Now();
    if (std::system(cmd.c_str()) != 0) {
        std::fprintf(stderr, "failed: %s\n", cmd.c_str());
        std::exit(1);
    }
    return Now() - t;
}

double CopyFile(const std::string& from, const std::string& to) {
    const double t = Now();
    const int in = ::open(from.c_str(), O_RDONLY);
    const int out = ::open(to.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    std::vector<char> buf(1 << 20);
    ssize_t n;
    while (in >= 0 && out >= 0 && (n = ::read(in, buf.data(), buf.size())) > 0)
        if (::write(out, buf.data(), static_cast<std::size_t>(n)) != n) break;
    ::close(in);
    ::close(out);
    return Now() - t;
}

// Every case read with the bulk call, as a program that only reads would.
double ReadAll(const std::string& path) {
    const double t = Now();
    int h = -1;
    if (murvOpenRead(path.c_str(), &h) != 0) std::exit(1);
    int size = 0;
    murvGetCaseSize(h, &size);
    std::vector<char> rec(static_cast<std::size_t>(size));
    volatile double sink = 0;
    while (murvWholeCaseIn(h, rec.data()) == 0) sink = sink + rec[0];
    murvCloseRead(h);
    return Now() - t;
}

template <class F>
double Best(F&& f) {
    const double a = f();
    return std::min(a, f());
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: murv_bench MURV [--cases=N] [--vars=N] [--dir=D]\n");
        return 2;
    }
    const std::string murv = argv[1];
    long cases = 1000000, vars = 100;
    std::string dir = std::filesystem::exists("/dev/shm") ? "/dev/shm" : std::filesystem::temp_directory_path().string();
    for (int i = 2; i < argc; ++i) {
        const std::string a = argv[i];
        if (a.rfind("--cases=", 0) == 0) cases = std::atol(a.c_str() + 8);
        if (a.rfind("--vars=", 0) == 0) vars = std::atol(a.c_str() + 7);
        if (a.rfind("--dir=", 0) == 0) dir = a.substr(6);
    }
    const std::string base = dir + "/murv_bench_" + std::to_string(::getpid());
    const std::string sys = base + ".murv", csv = base + ".csv", copy = base + ".copy", back = base + "_back.murv";

    int h = -1;
    if (murvOpenWrite(sys.c_str(), &h) != 0) return 1;
    for (long v = 0; v < vars; ++v) murvSetVarName(h, ("v" + std::to_string(v)).c_str(), 0);
    if (murvCommitHeader(h) != 0) return 1;
    std::mt19937_64 rng(42);
    std::vector<double> rec(static_cast<std::size_t>(vars));
    for (long c = 0; c < cases; ++c) {
        for (long v = 0; v < vars; ++v)
            rec[static_cast<std::size_t>(v)] = v % 2 ? static_cast<double>(rng() % 10000000) / 100.0
                                                     : static_cast<double>(rng() % 100);
        murvWholeCaseOut(h, reinterpret_cast<const char*>(rec.data()));
    }
    murvCloseWrite(h);

    const double tCat = Best([&] { return Run("'" + murv + "' cat --csv '" + sys + "' > '" + csv + "'"); });
    const double tFormatted = Best([&] { return Run("'" + murv + "' cat --formatted '" + sys + "' > '" + copy + "'"); });
    const double tRead = Best([&] { return ReadAll(sys); });
    std::string codes;
    for (long v = 0; v < vars; v += 2) codes += " v" + std::to_string(v);
    const double tFreq = Best([&] { return Run("'" + murv + "' freq '" + sys + "'" + codes + " > /dev/null"); });
    const double tStats = Best([&] { return Run("'" + murv + "' stats '" + sys + "' > /dev/null"); });
    const double mb = static_cast<double>(std::filesystem::file_size(csv)) / 1e6;
    const double tImport = Run("'" + murv + "' import '" + csv + "' '" + back + "' 2>/dev/null");
    // Import with every inference on (missing-value texts, dates) against one
    // with as little as possible: the cost of the typing.
    const double tBare = Run("'" + murv + "' import --no-dates '" + csv + "' '" + back + "' 2>/dev/null");
    const double tTyped = Run("'" + murv + "' import --na NA,NaN,.,N/A '" + csv + "' '" + back + "' 2>/dev/null");
    const double tCopy = CopyFile(csv, copy);
    const bool same = Run("'" + murv + "' cat --csv '" + back + "' | cmp -s - '" + csv + "'") >= 0;

    std::printf("murv_bench: %ld cases x %ld numeric variables, %.1f MB of CSV\n", cases, vars, mb);
    std::printf("  copy of the CSV (baseline)  %7.3f s  %7.1f MB/s\n", tCopy, mb / tCopy);
    std::printf("  murv cat --csv              %7.3f s  %7.1f MB/s  %.2f of the copy  (goal 300 MB/s)\n", tCat, mb / tCat,
                tCopy / tCat);
    std::printf("  murv import                 %7.3f s  %7.1f MB/s  %.2f of the copy  (goal 200 MB/s)\n", tImport,
                mb / tImport, tCopy / tImport);
    std::printf("  murv cat --formatted        %7.3f s  %7.1f MB/s  %.2f of cat --csv  (goal 0.7)\n", tFormatted,
                mb / tFormatted, tCat / tFormatted);
    std::printf("  bulk read (baseline)        %7.3f s\n", tRead);
    std::printf("  murv freq (%ld variables)   %7.3f s  %.2f of the bulk read  (goal 0.8)\n", (vars + 1) / 2, tFreq,
                tRead / tFreq);
    std::printf("  murv stats (%ld variables)  %7.3f s  %.2f of the bulk read  (goal 0.8)\n", vars, tStats, tRead / tStats);
    std::printf("  murv import --na NA,NaN,.,N/A %7.3f s  %.2f of import --no-dates (%.3f s)  (goal 0.8)\n", tTyped,
                tBare / tTyped, tBare);
    std::printf("  imported file reads back as the same CSV: %s\n", same ? "yes" : "no");
    for (const std::string& f : {sys, csv, copy, back}) std::remove(f.c_str());
    return same ? 0 : 1;
}
