// murv: look inside, convert and check system files from the shell.
#include <CLI/CLI.hpp>
#include <clocale>
#include <cstdio>

#include "murv.h"

namespace {

constexpr const char* kExitCodes =
    "Exit codes:\n"
    "  0  success (check: the file is sound)\n"
    "  1  the library refused or failed a call; the message names the file, the step and the code\n"
    "  2  bad arguments\n"
    "  3  input or output outside the library failed (the CSV file, standard output, temporary files)\n"
    "  4  check: the file is damaged (the message gives the library's code and the reason)\n";

}  // namespace

int main(int argc, char** argv) {
    std::setlocale(LC_ALL, "");
    CLI::App app{"murv: inspect, convert and check system files"};
    app.footer(kExitCodes);
    app.set_version_flag("--version", "murv " MURV_VERSION);
    app.require_subcommand(1);

    std::string file;
    auto* info = app.add_subcommand("info", "The header and a summary of the dictionary");
    info->add_option("FILE", file, "A system file")->required();
    info->footer(kExitCodes);

    bool json = false;
    auto* dict = app.add_subcommand("dict", "Every variable with all its properties, the sets and attributes");
    dict->add_option("FILE", file, "A system file")->required();
    dict->add_flag("--json", json, "Give the dictionary as one JSON object");
    dict->footer(kExitCodes);

    murv::CatOptions cat;
    bool csv = false, tsv = false, jsonl = false;
    auto* catCmd = app.add_subcommand("cat", "The cases as CSV (the default), TSV or JSON lines");
    catCmd->add_option("FILE", cat.file, "A system file")->required();
    catCmd->add_option("--cases", cat.cases, "Cases A to B-1, numbered from 0 (A:B; either side may be left out)");
    catCmd->add_option("--vars", cat.vars, "Comma-separated names of the variables to give, in that order");
    auto* fcsv = catCmd->add_flag("--csv", csv, "RFC 4180 CSV with a header row of names");
    auto* ftsv = catCmd->add_flag("--tsv", tsv, "Tab-separated, with \\t \\n \\r \\\\ escapes");
    auto* fjson = catCmd->add_flag("--json", jsonl, "One JSON object per case and line");
    fcsv->excludes(ftsv)->excludes(fjson);
    ftsv->excludes(fjson);
    catCmd->add_flag("--labels", cat.labels, "Value labels instead of the values they label");
    catCmd->footer(
        "System-missing values are empty (null in JSON); numbers print so that they read back exactly; values of "
        "date-formatted variables print as ISO dates (YYYY-MM-DD, YYYY-MM-DDTHH:MM:SS, times as HH:MM:SS).\n\n" +
        std::string(kExitCodes));

    murv::ImportOptions imp;
    std::string delimiter = ",";
    auto* impCmd = app.add_subcommand("import", "A CSV file with a header row of names to a system file");
    impCmd->add_option("CSV", imp.csv, "The CSV file (- for standard input)")->required();
    impCmd->add_option("OUT", imp.out, "The system file to write")->required();
    impCmd->add_flag("--compress", imp.compress, "Store the cases compressed");
    impCmd->add_option("--delimiter", delimiter, "The field separator: one character, or 'tab' (default ,)");
    impCmd->add_option("--encoding", imp.encoding,
                       "The character set of the CSV file (e.g. UTF-8, ISO-8859-1); it is converted to the "
                       "locale's. Default: the locale's own");
    impCmd->footer(
        "A column whose values are all numbers (or empty) becomes numeric, any other a string variable as wide as "
        "its longest value. Empty numeric cells are system-missing. Names are made valid and unique by the "
        "library's rules; changed names are listed on standard error. The file appears only when complete.\n\n" +
        std::string(kExitCodes));

    murv::ConvertOptions conv;
    bool compress = false, plain = false;
    auto* convCmd = app.add_subcommand("convert", "Rewrite a file with everything it holds");
    convCmd->add_option("IN", conv.in, "The system file to read")->required();
    convCmd->add_option("OUT", conv.out, "The system file to write")->required();
    auto* fc = convCmd->add_flag("--compress", compress, "Store the cases compressed");
    auto* fp = convCmd->add_flag("--plain", plain, "Store the cases uncompressed");
    fc->excludes(fp);
    convCmd->add_option("--vars", conv.vars, "Comma-separated names of the variables to keep, in that order");
    convCmd->footer(
        "Without --vars the dictionary is copied whole by the library (variables, labels, documents, sets, "
        "attributes, extension records). With --vars the chosen variables keep all their properties, and sets keep "
        "those of their variables that remain; date-variable information is left out.\n\n" +
        std::string(kExitCodes));

    auto* check = app.add_subcommand("check", "Read every record and every case; exit 0 on a sound file");
    check->add_option("FILE", file, "A system file")->required();
    check->footer(kExitCodes);

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        return app.exit(e) == 0 ? murv::kExitOk : murv::kExitUsage;
    }

    try {
        if (info->parsed()) return murv::RunInfo(file);
        if (dict->parsed()) return murv::RunDict(file, json);
        if (catCmd->parsed()) {
            cat.form = tsv ? murv::CatOptions::Form::kTsv : jsonl ? murv::CatOptions::Form::kJson : murv::CatOptions::Form::kCsv;
            return murv::RunCat(cat);
        }
        if (impCmd->parsed()) {
            if (delimiter == "tab" || delimiter == "\\t") delimiter = "\t";
            if (delimiter.size() != 1 || delimiter[0] == '"' || delimiter[0] == '\n' || delimiter[0] == '\r') {
                std::fprintf(stderr, "murv import: --delimiter must be one character other than a quote or line end\n");
                return murv::kExitUsage;
            }
            imp.delimiter = delimiter[0];
            return murv::RunImport(imp);
        }
        if (convCmd->parsed()) {
            conv.compress = compress ? 1 : plain ? 0 : -1;
            return murv::RunConvert(conv);
        }
        if (check->parsed()) return murv::RunCheck(file);
    } catch (const murv::Failure& f) {
        std::fprintf(stderr, "murv: %s\n", f.what());
        return f.exit;
    } catch (const std::bad_alloc&) {
        std::fprintf(stderr, "murv: out of memory\n");
        return murv::kExitIo;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "murv: %s\n", e.what());
        return murv::kExitIo;
    }
    return murv::kExitUsage;
}
