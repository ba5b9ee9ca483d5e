// murv: the command-line program over the library's public interface.
// Shared pieces of the subcommands: errors and exit codes, the metadata of an
// open file, text output (numbers, dates, JSON), the progress bar.
#pragma once

#include <cstdint>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "murvio.h"

namespace murv {

// Exit codes (documented in `murv --help` and the README).
enum Exit : int {
    kExitOk = 0,
    kExitLibrary = 1,   // the library refused or failed a call
    kExitUsage = 2,     // bad arguments
    kExitIo = 3,        // input or output outside the library (CSV, standard output, temporary files)
    kExitDamaged = 4,   // the file is damaged (check; cat and convert after every whole case)
};

// A failure that ends the command: its exit code and a one-line message
// naming the file and the failing step.
struct Failure : std::runtime_error {
    Failure(int exitCode, const std::string& message) : std::runtime_error(message), exit(exitCode) {}
    int exit;
};

// The macro name of a library return code ("MURV_RC_BAD_FILE"), and a short
// reason in words.
const char* CodeName(int rc);
const char* CodeReason(int rc);
// "code 6 MURV_RC_BAD_FILE: not a readable system file"
std::string DescribeCode(int rc);
// Throws Failure(kExitLibrary) for a positive (error) code: "FILE: STEP: code ...".
void Check(int rc, const std::string& file, const std::string& step);

// A handle opened for reading, closed when it goes.
class ReadHandle {
public:
    explicit ReadHandle(const std::string& path);
    ~ReadHandle();
    ReadHandle(const ReadHandle&) = delete;
    ReadHandle& operator=(const ReadHandle&) = delete;
    int get() const { return handle_; }
    const std::string& path() const { return path_; }

private:
    std::string path_;
    int handle_ = -1;
};

struct MissingValues {
    int format = 0;  // 0 none, 1-3 discrete, -2 range, -3 range and one value
    double numbers[3] = {0, 0, 0};
    std::string texts[3];
};

struct Format {
    int type = 0, width = 0, decimals = 0;
};

using TextPairs = std::vector<std::pair<std::string, std::string>>;

struct Variable {
    std::string name;
    int type = 0;  // 0 numeric, else the string width in bytes
    double handle = 0;
    std::size_t offset = 0;  // byte offset of the value in a whole case record
    std::string label;
    bool hasLabel = false;
    Format print, write;
    MissingValues missing;
    std::vector<std::pair<double, std::string>> numberLabels;
    TextPairs textLabels;
    int measure = 0, alignment = 0, columnWidth = 0;
    TextPairs attributes;
};

struct MultResponseSet {
    std::string name, label;
    bool dichotomy = false, numeric = false, categoryLabels = false, firstVarLabel = false;
    int countedValue = 0;
    std::string countedText;
    std::vector<std::string> variables;
};

struct ExtensionRecord {
    int subtype = 0, unitSize = 0, count = 0;
};

// What a file says about itself, as far as the public interface tells it.
struct FileMeta {
    std::string path;
    std::string label;
    bool hasLabel = false;
    std::string product;
    std::string date, time;
    std::string byteOrder;
    int compression = 0;
    int cases = -1;
    int caseSize = 0;  // bytes of a whole case record
    std::string weight;
    std::string textInfo;
    int release[3] = {0, 0, 0};
    bool hasRelease = false;
    std::vector<Variable> vars;
    TextPairs attributes;
    std::vector<MultResponseSet> mrsets;
    std::vector<std::pair<std::string, std::vector<std::string>>> varSets;
    std::vector<int> dateVariables;
    std::string zopGuid;
    int zopBytes = 0, zopSegments = 0;
    std::vector<int> recordsPresent;             // extension subtypes the file holds (0-32)
    std::vector<ExtensionRecord> openRecords;    // those the interface hands out raw
};

// What is wrong with the cases of a file after `read` whole cases were read
// from its start and the next read gave `rc`, in the words every surface
// uses ("PATH: damaged: the file ends inside case 8 of the 10 it states");
// empty when the end is sound (rc is MURV_RC_END_OF_FILE after the stated
// count). Cases are numbered from 1.
std::string DamageText(const FileMeta& m, std::int64_t read, int rc);

enum class Detail { kNamesOnly, kCases, kFull };
// Reads the metadata of an open read handle. kNamesOnly: names, types,
// handles and offsets; kCases: also print formats and value labels (what
// `cat` needs); kFull: everything.
FileMeta LoadMeta(const ReadHandle& h, Detail detail);

// Picks variables by a comma-separated list of names (empty: all of them);
// unknown names fail naming them.
std::vector<std::size_t> SelectVars(const FileMeta& meta, const std::string& list);

// A key under which names that differ only in case are equal, as the library
// compares variable names: each character of the locale's encoding
// upper-cased (not only ASCII letters: "É" and "é" are one name), a byte
// that is no character compared as itself; a NUL ends the name.
std::string NameKey(std::string_view name);

// ---- text ----

// The shortest decimal text that reads back as the same double; WriteNumber
// needs 40 bytes at p and returns the end.
char* WriteNumber(char* p, double v);
void AppendNumber(std::string& out, double v);
// x / 10^k as text with k decimals ("-12.05" for -1205, 2).
char* WriteDecimal(char* p, std::int64_t x, int k);
extern const double kPowersOf10[23];
bool IsSysmis(double v);
// Date-time formats: the ISO text of a value of format type `fmt`, or false
// when the format is not a date or time format (or the value is out of range).
bool AppendIsoDate(std::string& out, int fmt, double v);
bool IsDateFormat(int fmt);
std::string FormatName(const Format& f);
// JSON string literal; bytes that are not UTF-8 are given as \u00XX.
void AppendJsonString(std::string& out, std::string_view s);
// Strips trailing blanks (the padding of fixed-width strings).
std::string_view TrimRight(std::string_view s);

// A value as its print format shows it (format.cpp): at most kFormattedMax
// bytes at p; returns the end.
constexpr std::size_t kFormattedMax = 320;
char* WriteFormatted(char* p, const Format& f, double v);
void AppendFormatted(std::string& out, const Format& f, double v);
// The bytes of a string as AHEX shows them: two hexadecimal digits for each
// of the first width / 2 bytes.
char* WriteHex(char* p, std::string_view bytes, int width);

// Buffered writing to standard output; fails with kExitIo on an output error.
class Output {
public:
    explicit Output(std::FILE* f = stdout) : f_(f) { buf_.reserve(kChunk + 4096); }
    ~Output();
    std::string& buf() { return buf_; }
    void MaybeFlush() {
        if (buf_.size() >= kChunk) Flush();
    }
    void Flush();

private:
    static constexpr std::size_t kChunk = 1 << 20;
    std::FILE* f_;
    std::string buf_;
};

// A progress bar on standard error, drawn only when standard error is a
// terminal and the work has run for more than half a second.
class Progress {
public:
    Progress(const char* what, std::int64_t total);
    ~Progress();
    // Cheap enough to call per case: looks at the clock every 4096 calls.
    void Update(std::int64_t done) {
        if ((++calls_ & 0xFFF) == 0) Draw(done);
    }
    // Redraws now (at most ten times a second).
    void Draw(std::int64_t done);
    void Finish();

private:
    std::uint32_t calls_ = 0;
    const char* what_;
    std::int64_t total_;
    bool enabled_;
    bool drawn_ = false;
    double start_;
    double last_ = 0;
};

// ---- subcommands ----

struct CatOptions {
    std::string file, cases, vars;
    enum class Form { kCsv, kTsv, kJson } form = Form::kCsv;
    bool labels = false;
    bool formatted = false;  // through the print formats
    bool header = true;
    std::string null;        // the text of a system-missing value (CSV, TSV)
    std::int64_t limit = -1;  // at most this many cases; -1: no limit
};
struct ImportOptions {
    std::string csv, out, encoding;
    char delimiter = ',';
    bool compress = false;
    std::vector<std::string> na;  // texts that mean missing, besides the empty cell
    std::string text;             // comma-separated columns kept as text
    bool dates = true;            // columns of ISO dates become date variables
    char decimal = '.';
    bool header = true;           // false: the first row is data, names V1, V2, ...
    std::int64_t skip = 0;        // lines dropped before the header
    std::string labels;           // a codebook CSV of variable,value,label rows
    std::FILE* notes = stderr;    // where renamed names, short rows and --na cells are reported
};
struct ConvertOptions {
    std::string in, out, vars;
    int compress = -1;  // -1 keep, 0 plain, 1 compressed
};

int RunInfo(const std::string& file);
int RunDict(const std::string& file, bool json);
int RunCat(const CatOptions& opt);
int RunImport(const ImportOptions& opt);
int RunConvert(const ConvertOptions& opt);
int RunCheck(const std::string& file);

// `murv dict --csv`: one row per variable (a codebook), or with labelsTable
// the rows variable,value,label that `import --labels` reads.
int RunDictCsv(const std::string& file, bool labelsTable);

struct FreqOptions {
    std::string file;
    std::vector<std::string> vars;
    bool json = false;
    bool unweighted = false;
};
int RunFreq(const FreqOptions& opt);
struct StatsOptions {
    std::string file;
    std::vector<std::string> vars;  // empty: every numeric variable
    bool json = false;
    bool unweighted = false;
};
int RunStats(const StatsOptions& opt);

// A file written beside its destination and moved over it only when
// complete, so that a failure never leaves a half-written file or destroys
// an old one. The destination must be a regular file or a new name: a
// symbolic link is followed (its target is replaced, the link stays); a
// directory, device, named pipe or socket, and the input file itself, are
// refused with kExitUsage. The replacement keeps the old file's permission
// bits and, where the system allows it, its owner. The temporary file goes
// on any failure and on SIGINT, SIGTERM or SIGHUP (the process then ends by
// that signal).
class ReplaceFile {
public:
    // `input`: the file the command reads ("" or "-" for none).
    ReplaceFile(const std::string& dest, const std::string& input);
    ~ReplaceFile();  // removes the temporary file unless Commit() ran
    const std::string& temp() const { return temp_; }
    void Commit();

private:
    std::string dest_, target_, temp_;
    bool existed_ = false;
    unsigned mode_ = 0;
    long long uid_ = -1, gid_ = -1;
    bool done_ = false;
};

}  // namespace murv
