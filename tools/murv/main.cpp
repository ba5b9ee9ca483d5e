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
    "  2  bad arguments, or a destination that is not a regular file or is the input itself\n"
    "  3  input or output outside the library failed (the CSV file, standard output, temporary files)\n"
    "  4  the file is damaged: check says where; cat and convert give every whole case before the damage\n"
    "     and then say where it is (cases numbered from 1)\n";

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

    bool json = false, dictCsv = false, labelsTable = false;
    auto* dict = app.add_subcommand("dict", "Every variable with all its properties, the sets and attributes");
    dict->add_option("FILE", file, "A system file")->required();
    auto* djson = dict->add_flag("--json", json, "Give the dictionary as one JSON object");
    auto* dcsv = dict->add_flag("--csv", dictCsv,
                                "A codebook in CSV: one row per variable (name, type, width, label, formats, measure, "
                                "alignment, column width, missing values, value labels as value=label pairs joined by "
                                "\"; \")");
    auto* dtable = dict->add_flag("--labels-table", labelsTable,
                                  "With --csv: the labels as rows variable,value,label (variable,,label for the "
                                  "variable label), the form `murv import --labels` reads");
    djson->excludes(dcsv)->excludes(dtable);
    dtable->needs(dcsv);
    dict->footer(
        "Without an option: a table of the variables with a header row, then their value labels, missing values, "
        "attributes and the file's sets.\n\n" +
        std::string(kExitCodes));

    murv::CatOptions cat;
    bool csv = false, tsv = false, jsonl = false;
    auto* catCmd = app.add_subcommand("cat", "The cases as CSV (the default), TSV or JSON lines");
    catCmd->add_option("FILE", cat.file, "A system file")->required();
    catCmd->add_option("--cases", cat.cases,
                       "Cases A to B-1 (A:B; either side may be left out) or the one case N, numbered from 0; "
                       "negative numbers count from the end");
    catCmd->add_option("--vars", cat.vars, "Comma-separated names of the variables to give, in that order");
    auto* fcsv = catCmd->add_flag("--csv", csv, "RFC 4180 CSV with a header row of names");
    auto* ftsv = catCmd->add_flag("--tsv", tsv, "Tab-separated, with \\t \\n \\r \\\\ escapes");
    auto* fjson = catCmd->add_flag("--json", jsonl, "One JSON object per case and line");
    fcsv->excludes(ftsv)->excludes(fjson);
    ftsv->excludes(fjson);
    catCmd->add_flag("--labels", cat.labels, "Value labels instead of the values they label");
    catCmd->add_flag("--formatted", cat.formatted,
                     "Each value as its print format shows it (decimals, width, COMMA, DOLLAR, DOT and PCT forms, "
                     "dates and times by their format)");
    bool noHeader = false;
    catCmd->add_flag("--no-header", noHeader, "No header row of names (CSV, TSV)");
    auto* fnull = catCmd->add_option("--null", cat.null, "The text of a system-missing value (CSV, TSV; default empty)");
    fnull->excludes(fjson);
    catCmd->add_option("--limit", cat.limit, "At most N cases")->check(CLI::NonNegativeNumber);
    catCmd->footer(
        "--cases takes Python's slice rules: A:B gives cases A to B-1, N the single case N, numbered from 0; a "
        "negative number counts from the end (\"--cases -10:\" is the last ten).\n"
        "System-missing values are empty (null in JSON); numbers print so that they read back exactly; values of "
        "date-formatted variables print as ISO dates (YYYY-MM-DD, YYYY-MM-DDTHH:MM:SS, times as HH:MM:SS). With "
        "--formatted a value that does not fit its format's width in any form shows as asterisks.\n\n" +
        std::string(kExitCodes));

    murv::FreqOptions freq;
    auto* freqCmd = app.add_subcommand("freq", "Frequency tables: each value with its label, count and percents");
    freqCmd->add_option("FILE", freq.file, "A system file")->required();
    freqCmd->add_option("VAR", freq.vars, "The variables to count")->required();
    freqCmd->add_flag("--json", freq.json, "The tables as one JSON object");
    freqCmd->add_flag("--unweighted", freq.unweighted, "Count cases, ignoring the file's weight variable");
    freqCmd->footer(
        "Percent is of all cases, valid percent and cumulative percent of those not missing. User-missing values are "
        "listed after the valid ones, and system-missing values last. With a weight variable the counts are sums of "
        "weights; cases whose weight is missing, zero or negative are left out and their number is given.\n\n" +
        std::string(kExitCodes));

    murv::StatsOptions stats;
    auto* statsCmd = app.add_subcommand("stats", "N, missing, mean, standard deviation, minimum and maximum");
    statsCmd->add_option("FILE", stats.file, "A system file")->required();
    statsCmd->add_option("VAR", stats.vars, "Numeric variables (default: every numeric variable)");
    statsCmd->add_flag("--json", stats.json, "The figures as one JSON object, numbers in full precision");
    statsCmd->add_flag("--unweighted", stats.unweighted, "Ignore the file's weight variable");
    statsCmd->footer(
        "Missing (system- and user-missing) values are left out. With a weight variable N and missing are sums of "
        "weights, the mean is weighted and the standard deviation is that of frequency weights (divided by N - 1); "
        "cases whose weight is missing, zero or negative are left out and their number is given.\n\n" +
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
    std::string na, decimal = ".";
    bool noDates = false, importNoHeader = false;
    impCmd->add_option("--na", na,
                       "Comma-separated texts that mean a missing value, besides the empty cell (common choices: "
                       "NA,NaN,.,N/A)");
    impCmd->add_option("--text", imp.text, "Comma-separated columns kept as text (codes with leading zeros)");
    impCmd->add_flag("--no-dates", noDates, "Keep columns of ISO dates as text");
    impCmd->add_option("--decimal", decimal, "The decimal separator of numbers: . (default) or ,");
    impCmd->add_flag("--no-header", importNoHeader, "The first row is data; the variables are named V1, V2, ...");
    impCmd->add_option("--skip", imp.skip, "Lines to drop before the header (or the first row)")->check(CLI::NonNegativeNumber);
    impCmd->add_option("--labels", imp.labels,
                       "A codebook CSV: rows variable,value,label give value labels, rows variable,,label the "
                       "variable's label (a header row variable,value,label may come first)");
    impCmd->footer(
        "A column whose values are all numbers (or empty) becomes numeric; one whose values are all ISO 8601 dates "
        "(2024-01-15) or date-times (2024-01-15 10:20:30, 2024-01-15T10:20:30.5) becomes a date variable (DATE or "
        "DATETIME format; cat gives it back in the same form); any other a string variable as wide as its longest "
        "value. Empty cells, and cells holding a text given to --na, are missing. Names are made valid and unique by "
        "the library's rules; changed names, rows with fewer fields than the header (filled with empty cells) and "
        "cells made missing by --na are reported on standard error. Without --encoding the input must be UTF-8 when "
        "the locale is (a UTF-8 byte-order mark is dropped; a UTF-16 one reads the file as UTF-16). The file appears "
        "only when complete.\n\n" +
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
        if (dict->parsed()) return dictCsv ? murv::RunDictCsv(file, labelsTable) : murv::RunDict(file, json);
        if (freqCmd->parsed()) return murv::RunFreq(freq);
        if (statsCmd->parsed()) return murv::RunStats(stats);
        // A system file is written beside its destination and moved over it
        // when complete, which standard output does not allow.
        for (const auto& [cmd, out] : {std::pair{impCmd, &imp.out}, std::pair{convCmd, &conv.out}})
            if (cmd->parsed() && *out == "-") {
                std::fprintf(stderr, "murv %s: a system file cannot be written to standard output ('-'); give a file name\n",
                             cmd->get_name().c_str());
                return murv::kExitUsage;
            }
        if (catCmd->parsed()) {
            cat.header = !noHeader;
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
            if (decimal != "." && decimal != ",") {
                std::fprintf(stderr, "murv import: --decimal must be . or ,\n");
                return murv::kExitUsage;
            }
            imp.decimal = decimal[0];
            if (imp.decimal == imp.delimiter) {
                std::fprintf(stderr, "murv import: --decimal %c needs another --delimiter (e.g. ';')\n", imp.decimal);
                return murv::kExitUsage;
            }
            for (std::size_t pos = 0; pos <= na.size();) {
                std::size_t comma = na.find(',', pos);
                if (comma == std::string::npos) comma = na.size();
                if (comma > pos) imp.na.push_back(na.substr(pos, comma - pos));
                pos = comma + 1;
            }
            imp.dates = !noDates;
            imp.header = !importNoHeader;
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
