// Writes the starting corpus of the file-reading target, crafted record by
// record with the tests' byte builder: files in both byte orders, plain and
// compressed, lean and with every optional record the reader knows, with
// none, a few and some dozens of cases. Usage: murvio_fuzz_seeds DIR
#include <cmath>
#include <cstdio>
#include <limits>
#include <string>
#include <vector>

#include "../support/byte_builder.h"

namespace {

using murv::testing::ByteBuilder;

const double kSysmis = -std::numeric_limits<double>::max();

// One cell of a case: a number, or eight bytes of a string.
struct Cell {
    bool text;
    double number;
    std::string bytes;
};

// Byte-code compression: command bytes in groups of eight, each followed by
// the raw cells its codes stand for.
class Compressor {
public:
    explicit Compressor(ByteBuilder& out) : out_(out) {}
    void Add(const Cell& c) {
        if (!c.text && c.number == kSysmis) {
            Code(255);
        } else if (!c.text && c.number == std::floor(c.number) && c.number >= -99 && c.number <= 151) {
            Code(static_cast<unsigned char>(c.number + 100));
        } else if (c.text && c.bytes.find_first_not_of(' ') == std::string::npos) {
            Code(254);
        } else {
            raw_.push_back(c);
            Code(253);
        }
    }
    void Finish(bool endCode) {
        if (endCode) Code(252);
        Flush();
    }

private:
    void Code(unsigned char code) {
        codes_.push_back(code);
        if (codes_.size() == 8) Flush();
    }
    void Flush() {
        if (codes_.empty()) return;
        codes_.resize(8, 0);
        for (unsigned char c : codes_) out_.Byte(c);
        for (const Cell& c : raw_) c.text ? out_.Text(c.bytes, 8) : out_.F64(c.number);
        codes_.clear();
        raw_.clear();
    }
    ByteBuilder& out_;
    std::vector<unsigned char> codes_;
    std::vector<Cell> raw_;
};

std::vector<Cell> CaseCells(int i, bool rich) {
    static const char* const kCities[] = {"LDN", "Paris", "", "Zurich"};
    std::vector<Cell> cells;
    // Cells of a text from byte `at` on, blank past its end.
    auto texts = [&cells](const std::string& text, std::size_t at, int count) {
        for (int k = 0; k < count; ++k, at += 8) cells.push_back({true, 0, text.size() > at ? text.substr(at, 8) : ""});
    };
    cells.push_back({false, i % 5 == 4 ? kSysmis : 20.0 + i % 70 + (i % 3 ? 0.0 : 0.25), {}});
    cells.push_back({true, 0, kCities[i % 4]});
    texts(i % 2 ? "a note that runs on" : "", 0, 3);
    if (rich) {
        cells.push_back({false, 1990.0 + i % 30, {}});
        const std::string text(static_cast<std::size_t>(i * 7 % 300), static_cast<char>('a' + i % 26));
        // A 300-byte string stored as segments of 255 and 48 bytes (252 and 48 of the text), each
        // padded to whole cells.
        texts(text, 0, 32);
        texts(text, 252, 6);
    }
    return cells;
}

ByteBuilder Build(bool big, bool compressed, bool rich, int cases) {
    ByteBuilder b(big);
    const int caseSize = rich ? 5 + 1 + 38 : 5;
    b.Header(caseSize, cases, compressed, rich ? 1 : 0, rich ? "Seed file" : "");
    const std::string label = "Age in years";
    b.Variable(0, "AGE", 0x050400, 0x050400, &label, 1, {99.0});
    b.StringVariable(8, "CITY");
    b.StringVariable(20, "NOTE");
    if (rich) {
        b.Variable(0, "YEAR_", 0x050400, 0x050400);
        b.StringVariable(255, "LONGVARI").StringVariable(48, "LONGV001");
    }
    b.NumericLabels({{99.0, "No answer"}, {20.0, "Twenty"}}, {1});
    b.StringLabels({{"LDN", "London"}}, {2});
    if (rich) {
        b.Documents({"Made for fuzzing", "Second line"});
        b.ExtensionI32(3, {1, 0, 0, 720, 1, 1, big ? 1 : 2, 2});
        b.ExtensionF64(4, {kSysmis, std::numeric_limits<double>::max(), -std::numeric_limits<double>::max() * 0.99});
        b.ExtensionText(7, "$flags=D1 1 5 Flags AGE YEAR_\n");
        b.ExtensionText(5, "Both= AGE CITY\n");
        b.ExtensionI32(6, {0, 1, 1, 1, 1, 1, 6, 2, 1, 0, 0, 0});  // YEAR_, in cell 6, is the year
        // Measure, width and alignment of each variable record, both segments
        // of the long string included.
        b.ExtensionI32(11, {3, 8, 1, 1, 8, 0, 1, 20, 0, 3, 8, 1, 1, 30, 0, 1, 30, 0});
        b.ExtensionText(13, "AGE=age\tCITY=city\tNOTE=note\tYEAR_=YEAR_\tLONGVARI=a_long_variable_name\tLONGV001=LONGV001");
        b.ExtensionText(14, std::string("LONGVARI=00300\0\t", 16));
        b.ExtensionText(17, "origin('seed'\n)");
        b.ExtensionText(18, "age:unit('years'\n)");
        b.ExtensionHeader(16, 8, 2).I64(1).I64(cases);
    }
    b.ExtensionText(20, "UTF-8");
    b.End();
    if (compressed) {
        Compressor c(b);
        for (int i = 0; i < cases; ++i)
            for (const Cell& cell : CaseCells(i, rich)) c.Add(cell);
        c.Finish(cases % 2 == 1);
    } else {
        for (int i = 0; i < cases; ++i)
            for (const Cell& cell : CaseCells(i, rich)) cell.text ? b.StringCell(cell.bytes) : b.Number(cell.number);
    }
    return b;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s DIR\n", argv[0]);
        return 2;
    }
    const std::string dir = argv[1];
    // Named by byte order (l, b), layout (p, c), extent (s, r) and case count.
    for (int kind = 0; kind < 8; ++kind)
        for (int cases : {0, 3, 40}) {
            const bool big = kind & 4, compressed = kind & 2, rich = kind & 1;
            Build(big, compressed, rich, cases)
                .Save(dir + "/" + "lb"[big] + "pc"[compressed] + "sr"[rich] + std::to_string(cases) + ".murv");
        }
    return 0;
}
