// Every file operation of creating, writing, replacing, appending to and
// copying a file is made to fail in turn, in each way the platform layer can
// fail it. Whatever fails, no call crashes, every handle ends released, and
// the files on disk are either complete or as they were before.
#include <filesystem>
#include <functional>
#include <string>

#include <gtest/gtest.h>

#include "murvio.h"
#include "port/faults.h"
#include "support/case_files.h"
#include "support/temp_dir.h"

namespace {

namespace fs = std::filesystem;
namespace faults = murv::port::faults;
using namespace murv::testing;

constexpr int kOld = 40;    // cases of a file that exists before
constexpr int kNew = 3000;  // cases written: several buffers' worth

Codes WriteCopy(const TempDir& d) {
    Codes codes;
    int h = -1;
    codes.Note(murvOpenWriteCopy(d.File("copy.murv").c_str(), d.File("f.murv").c_str(), &h));
    if (h < 0) return codes;
    codes.Note(murvCommitHeader(h));
    if (codes.first == MURV_RC_OK) WriteCases(h, codes, 0, kNew);
    codes.close = murvCloseWrite(h);
    return codes;
}

enum Does { kCreate, kReplace, kAppend, kCopy };

struct Scenario {
    const char* name;
    Does does;
    bool compressed;  // the file written, or the one there before
    std::function<Codes(const TempDir&)> run;
} const kScenarios[] = {
    {"new plain", kCreate, false, [](const TempDir& d) { return WriteCaseFile(d.File("f.murv"), kNew, false); }},
    {"new compressed", kCreate, true, [](const TempDir& d) { return WriteCaseFile(d.File("f.murv"), kNew, true); }},
    {"replace", kReplace, true, [](const TempDir& d) { return WriteCaseFile(d.File("f.murv"), kNew, false); }},
    {"append plain", kAppend, false, [](const TempDir& d) { return AppendCases(d.File("f.murv"), kOld, kNew); }},
    {"append compressed", kAppend, true, [](const TempDir& d) { return AppendCases(d.File("f.murv"), kOld, kNew); }},
    {"write copy", kCopy, true, WriteCopy},
};

// The files after a run whose calls all succeeded (ok) or not: the new file
// complete, or else nothing or the old file as it was; a copy's source is
// never written.
void Check(const Scenario& s, const TempDir& d, bool ok, const std::string& oldBytes) {
    const std::string target = d.File(s.does == kCopy ? "copy.murv" : "f.murv");
    EXPECT_TRUE(s.does != kCopy || FileBytes(d.File("f.murv")) == oldBytes) << "the source is never written";
    if (s.does == kAppend)
        EXPECT_TRUE(HoldsCases(target, 0, ok ? kOld + kNew : kOld));
    else if (ok)
        EXPECT_TRUE(HoldsCases(target, 0, kNew));
    else if (s.does == kReplace)
        EXPECT_EQ(FileBytes(target), oldBytes);
    else
        EXPECT_FALSE(fs::exists(target));
    for (const auto& entry : fs::directory_iterator(d.Path())) {
        const std::string name = entry.path().filename().string();
        EXPECT_TRUE(name == "f.murv" || (s.does == kCopy && name == "copy.murv")) << "left behind: " << name;
    }
}

TEST(FaultSweep, EveryFailedOperationIsHandled) {
    for (const Scenario& s : kScenarios) {
        SCOPED_TRACE(s.name);
        std::uint64_t total = 0;  // the operations the scenario makes when nothing fails
        // Runs the scenario with its nth operation failing as kind (none when
        // n is 0) and checks what it leaves.
        const auto run = [&](std::uint64_t n, faults::Kind kind) {
            TempDir dir;
            EXPECT_TRUE(s.does == kCreate || WriteCaseFile(dir.File("f.murv"), kOld, s.compressed).AllOk());
            const std::string oldBytes = FileBytes(dir.File("f.murv"));  // the file there before, if any
            faults::Arm(faults::kAllOps, n, kind);
            const Codes codes = s.run(dir);
            const bool fired = faults::Fired();
            if (n == 0) total = faults::Counted();
            faults::Disarm();
            ASSERT_EQ(fired, n > 0);
            ASSERT_TRUE(fired || codes.AllOk());
            // Only a failed look at a file that is not there (the probes) or a
            // failed close of a file only read can pass unreported.
            const faults::Op op = faults::FiredOp();
            EXPECT_TRUE(!fired || !codes.AllOk() || op == faults::Op::Open || op == faults::Op::Close) << int(op);
            // A failure that no call reported must have done no harm: the
            // files are then checked as complete.
            Check(s, dir, codes.AllOk(), oldBytes);
            for (int h = 0; h < 100; ++h) EXPECT_EQ(murvCloseRead(h), MURV_RC_BAD_HANDLE) << "handle " << h << " open";
        };
        run(0, faults::Kind::NoSpace);
        ASSERT_GT(total, 5u);
        for (faults::Kind kind : {faults::Kind::NoSpace, faults::Kind::IoError, faults::Kind::ShortWrite}) {
            for (std::uint64_t n = 1; n <= total && !::testing::Test::HasFailure(); ++n) {
                SCOPED_TRACE(::testing::Message() << "kind " << int(kind) << ", operation " << n << " of " << total);
                run(n, kind);
            }
        }
    }
}

}  // namespace
