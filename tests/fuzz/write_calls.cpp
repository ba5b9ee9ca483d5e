// Drives the writing calls from the input bytes: each command byte picks a
// call, the bytes after it its arguments. The file written is then read
// back; when the writer reported success throughout, the file must open and
// hold the variables and cases that were written, value for value.
#include <array>
#include <cstdint>
#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include "fuzz_support.h"
#include "murvio.h"

namespace {

using murv::fuzz::Fail;
using murv::fuzz::Input;
using std::tuple;

// Names that meet the interesting rules: short and long, equal but for case,
// sharing their first eight bytes, reserved, invalid.
const char* const kNames[] = {"A",        "b",        "V1",       "v1",        "VAR00001",
                              "ABCDEFGHI", "ABCDEFGHJ", "ALL",      "x.y",       "$sys",
                              "#tmp",     "1st",      "_u",       "WEIGHT",    "@at",
                              "ends.",    "a_very_long_variable_name_that_goes_well_past_the_short_form_xyz"};
constexpr std::size_t kNameCount = sizeof kNames / sizeof kNames[0];

struct Var {
    std::string name;
    int type;
};

class Writer {
public:
    Writer(Input& in, int handle) : in_(in), h_(handle) {}

    // Runs the commands and closes the file; when the writer reported success
    // throughout, the file holds what was written.
    void Run(const char* path) {
        for (int steps = 0; steps < 4096 && Step(); ++steps) {
        }
        if (murvCloseWrite(h_) == MURV_RC_OK && committed_) ReadBack(path);
    }

private:
    std::string Name() {
        const std::uint8_t pick = in_.Byte();
        if (pick < 200) return kNames[pick % kNameCount];
        if (pick < 230 && !vars_.empty()) return vars_[pick % vars_.size()].name;
        return in_.Text(80);
    }
    int Type() {
        const std::uint8_t t = in_.Byte();
        if (t < 128) return 0;
        if (t < 240) return 1 + t % 40;
        return static_cast<int>(in_.Bits(4) % 1200);  // up to very long strings
    }
    // Calls f on the handle and the arguments, which are read from the input
    // in order (a braced list is evaluated left to right); texts go as C strings.
    template <typename F, typename... A>
    int Call(F f, const std::tuple<A...>& args) {
        return std::apply([&](const A&... a) { return f(h_, Raw(a)...); }, args);
    }
    static const char* Raw(const std::string& s) { return s.c_str(); }
    template <typename T>
    static T Raw(T v) { return v; }
    static std::vector<const char*> Ptrs(const std::vector<std::string>& texts) {
        std::vector<const char*> ptrs;
        for (const auto& t : texts) ptrs.push_back(t.c_str());
        return ptrs;
    }

    // Runs one command; false when the input is used up.
    bool Step() {
        if (in_.Empty()) return false;
        switch (in_.Byte() % 24) {
            case 0: {
                const Var v{Name(), Type()};
                if (murvSetVarName(h_, v.name.c_str(), v.type) == MURV_RC_OK) {
                    if (murvValidateVarname(v.name.c_str()) != 0) Fail("a variable took a name that fails validation");
                    vars_.push_back(v);
                }
                break;
            }
            case 1: Call(murvSetVarLabel, tuple{Name(), in_.Text()}); break;
            case 2: Call(murvSetVarNValueLabel, tuple{Name(), in_.Double(), in_.Text()}); break;
            case 3: Call(murvSetVarCValueLabel, tuple{Name(), in_.Text(40), in_.Text()}); break;
            case 4:
                Call(murvSetVarNMissingValues, tuple{Name(), in_.Signed(), in_.Double(), in_.Double(), in_.Double()});
                break;
            case 5:
                Call(murvSetVarCMissingValues, tuple{Name(), in_.Signed(), in_.Text(12), in_.Text(12), in_.Text(12)});
                break;
            case 6: {
                const std::string name = Name();
                const int type = in_.Byte(), dec = in_.Byte() % 20, wid = in_.Byte();
                (type & 1 ? murvSetVarPrintFormat : murvSetVarWriteFormat)(h_, name.c_str(), type / 2, dec, wid);
                break;
            }
            case 7: {
                const std::string name = Name();
                const int which = in_.Byte() % 3, value = in_.Signed();
                const auto set = std::array{murvSetVarAlignment, murvSetVarColumnWidth, murvSetVarMeasureLevel};
                set[which](h_, name.c_str(), value);
                break;
            }
            case 8: {
                const std::string text = in_.Text();
                (in_.Byte() & 1 ? murvSetIdString : murvSetTextInfo)(h_, text.c_str());
                break;
            }
            case 9: murvSetCaseWeightVar(h_, Name().c_str()); break;
            case 10: murvSetCompression(h_, in_.Byte() % 3); break;
            case 11: {
                const std::string attr = in_.Text(70);
                const int sub = in_.Signed();
                const std::string text = in_.Text();
                if (sub & 1)
                    murvAddFileAttribute(h_, attr.c_str(), sub / 2, text.c_str());
                else
                    murvAddVarAttribute(h_, Name().c_str(), attr.c_str(), sub / 2, text.c_str());
                break;
            }
            case 12: {
                const std::string set = "$" + in_.Text(20), label = in_.Text();
                std::vector<std::string> members;
                for (int i = in_.Byte() % 5; i > 0; --i) members.push_back(Name());
                std::vector<const char*> ptrs = Ptrs(members);
                const int mode = in_.Byte(), dichotomy = (mode >> 1) & 1, count = static_cast<int>(ptrs.size());
                if (mode & 1)
                    murvAddMultRespDefC(h_, set.c_str(), label.c_str(), dichotomy, in_.Text(20).c_str(), ptrs.data(),
                                        count);
                else
                    murvAddMultRespDefN(h_, set.c_str(), label.c_str(), dichotomy, in_.Signed(), ptrs.data(), count);
                break;
            }
            case 13: {
                const std::string text = in_.Text();
                (in_.Byte() & 1 ? murvSetMultRespDefs : murvSetVariableSets)(h_, text.c_str());
                break;
            }
            case 14: {
                std::vector<int> info(in_.Byte() % 12);
                for (int& v : info) v = in_.Signed();
                murvSetDateVariables(h_, static_cast<int>(info.size()), info.data());
                break;
            }
            case 15: {
                const std::string data = in_.Text();
                const int which = in_.Byte() % 3, size = static_cast<int>(data.size());
                if (which == 0) murvSetZOPGUID(h_, data.c_str());
                if (which != 0) (which == 1 ? murvSetZOPFirst : murvSetZOPNext)(h_, data.data(), size);
                break;
            }
            case 16: {
                const int subtype = in_.Byte() % 40, unit = 1 << (in_.Byte() % 4);
                const std::string data = in_.Text();
                murvSetExtensionData(h_, subtype, unit, static_cast<int>(data.size()) / unit, data.data());
                break;
            }
            case 17:
                if (murvCommitHeader(h_) == MURV_RC_OK) {
                    committed_ = true;
                    Reset();
                }
                break;
            case 18: {
                if (vars_.empty()) break;
                const std::size_t i = in_.Byte() % vars_.size();
                const Var& v = vars_[i];
                double vh = 0;
                if (murvGetVarHandle(h_, v.name.c_str(), &vh) != MURV_RC_OK) Fail("a defined variable has no handle");
                if (v.type == 0) {
                    const double value = in_.Double();
                    if (murvSetValueNumeric(h_, vh, value) == MURV_RC_OK) current_[i] = Cell(value);
                } else {
                    const std::string value = in_.Text(static_cast<std::size_t>(v.type) + 2);
                    if (murvSetValueChar(h_, vh, value.c_str()) == MURV_RC_OK)
                        current_[i] = value + std::string(static_cast<std::size_t>(v.type) - value.size(), ' ');
                }
                break;
            }
            case 19:
                if (murvCommitCaseRecord(h_) == MURV_RC_OK) {
                    cases_.push_back(current_);
                    Reset();
                }
                break;
            case 20: {
                int n = 0;
                if (murvGetCaseSize(h_, &n) != MURV_RC_OK || n <= 0 || n > (1 << 20)) break;
                std::vector<char> record(static_cast<std::size_t>(n), ' ');
                for (char& c : record) c = static_cast<char>(in_.Byte());
                if (murvWholeCaseOut(h_, record.data()) == MURV_RC_OK) {
                    cases_.push_back({});
                    checkValues_ = false;
                }
                break;
            }
            case 21: {
                char shortName[9];
                murvGetVarCompatName(h_, Name().c_str(), shortName);
                break;
            }
            case 22: {
                const std::string name = Name();
                std::vector<double> values(in_.Byte() % 4);
                std::vector<std::string> labels;
                for (double& v : values) {
                    v = in_.Double();
                    labels.push_back(in_.Text(80));
                }
                const char* varNames[] = {name.c_str()};
                const int count = static_cast<int>(values.size());
                murvSetVarNValueLabels(h_, varNames, 1, values.data(), Ptrs(labels).data(), count);
                break;
            }
            default:
                return false;  // ends the program early: short programs stay cheap
        }
        return true;
    }

    void ReadBack(const char* path) const;
    static std::string Cell(double d) { return std::string(reinterpret_cast<const char*>(&d), 8); }
    // The empty case: system-missing and blanks.
    void Reset() {
        current_.clear();
        for (const Var& v : vars_)
            current_.push_back(v.type == 0 ? Cell(murvSysmisVal()) : std::string(static_cast<std::size_t>(v.type), ' '));
    }

    Input& in_;
    int h_;
    std::vector<Var> vars_;
    std::vector<std::string> current_;
    std::vector<std::vector<std::string>> cases_;
    bool committed_ = false;
    bool checkValues_ = true;
};

void Writer::ReadBack(const char* path) const {
    int h = -1;
    if (murvOpenRead(path, &h) != MURV_RC_OK) Fail("a file closed without error cannot be read");
    int numVars = 0, numCases = 0;
    murvGetNumberofVariables(h, &numVars);
    if (numVars != static_cast<int>(vars_.size())) Fail("variable count differs from the variables written");
    murvGetNumberofCases(h, &numCases);
    if (numCases != static_cast<int>(cases_.size())) Fail("case count differs from the cases written");

    std::vector<double> handles;
    for (const Var& v : vars_) {
        double vh = 0;
        if (murvGetVarHandle(h, v.name.c_str(), &vh) != MURV_RC_OK) Fail("a variable written is missing");
        handles.push_back(vh);
    }
    std::vector<char> text(32768 + 1);
    std::size_t read = 0;
    while (murvReadCaseRecord(h) == MURV_RC_OK) {
        if (read >= cases_.size()) Fail("more cases read than written");
        if (checkValues_) {
            const auto& expect = cases_[read];
            for (std::size_t i = 0; i < vars_.size(); ++i) {
                const Var& v = vars_[i];
                if (v.type == 0) {
                    double d;
                    if (murvGetValueNumeric(h, handles[i], &d) != MURV_RC_OK) Fail("numeric value unreadable");
                    if (std::memcmp(&d, expect[i].data(), 8) != 0) Fail("numeric value differs");
                } else {
                    if (murvGetValueChar(h, handles[i], text.data(), v.type + 1) != MURV_RC_OK)
                        Fail("string value unreadable");
                    if (expect[i].compare(0, std::string::npos, text.data(), static_cast<std::size_t>(v.type)) != 0)
                        Fail("string value differs");
                }
            }
        }
        ++read;
    }
    if (read != cases_.size()) Fail("fewer cases read than written");
    murvCloseRead(h);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static murv::fuzz::ScratchFile file("write.murv");
    file.Remove();
    Input in(data, size);
    int h = -1;
    if (murvOpenWrite(file.Path(), &h) != MURV_RC_OK) Fail("cannot open the output file");
    Writer(in, h).Run(file.Path());
    return 0;
}
