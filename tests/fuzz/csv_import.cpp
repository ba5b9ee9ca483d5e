// murv import over arbitrary bytes, in a UTF-8 locale. The first byte picks
// the options (the delimiter, compression, a decimal comma, missing-value
// texts, no header, a line skipped, no dates); the rest is the CSV file. An import either fails
// with a message, or makes a file that opens and reads back whole: every
// case it states, and no more.
#include <clocale>
#include <cstdint>
#include <cstdio>
#include <exception>

#include "fuzz_support.h"
#include "murv.h"
#include "murvio.h"

namespace {

using murv::fuzz::Fail;

void ReadBack(const char* path) {
    int h = -1;
    if (murvOpenRead(path, &h) != MURV_RC_OK) Fail("an imported file does not open");
    int stated = -1, size = 0;
    if (murvGetNumberofCases(h, &stated) != MURV_RC_OK || stated < 0) Fail("an imported file states no case count");
    if (murvGetCaseSize(h, &size) != MURV_RC_OK || size <= 0) Fail("an imported file has no case size");
    std::vector<char> record(static_cast<std::size_t>(size));
    int read = 0, rc;
    while ((rc = murvWholeCaseIn(h, record.data())) == MURV_RC_OK) ++read;
    if (rc != MURV_RC_END_OF_FILE) Fail("a case of an imported file cannot be read");
    if (read != stated) Fail("an imported file holds another number of cases than it states");
    murvCloseRead(h);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    std::setlocale(LC_ALL, "C.UTF-8");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static murv::fuzz::MemoryFile csv("csv");
    static murv::fuzz::ScratchFile out("out.murv");
    static std::FILE* const quiet = std::fopen("/dev/null", "w");
    if (size == 0) return 0;
    const std::uint8_t options = data[0];
    csv.Fill(data + 1, size - 1);
    out.Remove();
    murv::ImportOptions opt;
    opt.csv = csv.Path();
    opt.out = out.Path();
    opt.delimiter = ",;\t|"[options & 3];
    opt.compress = (options & 4) != 0;
    if ((options & 8) && opt.delimiter != ',') opt.decimal = ',';
    if (options & 16) opt.na = {"NA", ".", "-99"};
    opt.header = (options & 32) == 0;
    opt.skip = (options & 64) ? 1 : 0;
    opt.dates = (options & 128) == 0;
    opt.notes = quiet;
    try {
        if (murv::RunImport(opt) != murv::kExitOk) Fail("import returned a failure without a message");
    } catch (const murv::Failure& f) {
        // The CSV file's faults are the user's (exit 3); the library refusing
        // what the import made of it would be the import's own fault.
        if (f.exit != murv::kExitIo) {
            std::fprintf(stderr, "%s\n", f.what());
            Fail("import failed other than on its input");
        }
        return 0;
    }
    ReadBack(out.Path());
    return 0;
}
