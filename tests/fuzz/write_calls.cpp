// Drives the writing calls from the input bytes: each command byte picks a
// call, the bytes after it its arguments. The file written is then read
// back; when the writer reported success throughout, the file must open and
// hold the variables and cases that were written, value for value.
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz_support.h"
#include "murvio.h"

namespace {

using murv::fuzz::Fail;
using murv::fuzz::Input;

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
        return static_cast<int>(in_.U32() % 1200);  // up to very long strings
    }
    const Var* PickVar() {
        if (vars_.empty()) return nullptr;
        return &vars_[in_.Byte() % vars_.size()];
    }

    // Runs one command; false when the input is used up.
    bool Step() {
        if (in_.Empty()) return false;
        const std::uint8_t op = in_.Byte() % 24;
        int n = 0;
        switch (op) {
            case 0: {
                const std::string name = Name();
                const int type = Type();
                if (murvSetVarName(h_, name.c_str(), type) == MURV_RC_OK) {
                    if (murvValidateVarname(name.c_str()) != 0) Fail("a variable took a name that fails validation");
                    vars_.push_back({name, type});
                }
                break;
            }
            case 1: {
                const std::string name = Name(), label = in_.Text();
                murvSetVarLabel(h_, name.c_str(), label.c_str());
                break;
            }
            case 2: {
                const std::string name = Name();
                const double value = in_.Double();
                const std::string label = in_.Text();
                murvSetVarNValueLabel(h_, name.c_str(), value, label.c_str());
                break;
            }
            case 3: {
                const std::string name = Name(), value = in_.Text(40), label = in_.Text();
                murvSetVarCValueLabel(h_, name.c_str(), value.c_str(), label.c_str());
                break;
            }
            case 4: {
                const std::string name = Name();
                const int kind = static_cast<int8_t>(in_.Byte());
                const double a = in_.Double(), b = in_.Double(), c = in_.Double();
                murvSetVarNMissingValues(h_, name.c_str(), kind, a, b, c);
                break;
            }
            case 5: {
                const std::string name = Name();
                const int kind = static_cast<int8_t>(in_.Byte());
                const std::string a = in_.Text(12), b = in_.Text(12), c = in_.Text(12);
                murvSetVarCMissingValues(h_, name.c_str(), kind, a.c_str(), b.c_str(), c.c_str());
                break;
            }
            case 6: {
                const std::string name = Name();
                const int type = in_.Byte(), dec = in_.Byte() % 20, wid = in_.Byte();
                if (type & 1)
                    murvSetVarPrintFormat(h_, name.c_str(), type / 2, dec, wid);
                else
                    murvSetVarWriteFormat(h_, name.c_str(), type / 2, dec, wid);
                break;
            }
            case 7: {
                const std::string name = Name();
                const int which = in_.Byte(), value = static_cast<int8_t>(in_.Byte());
                if (which % 3 == 0) murvSetVarAlignment(h_, name.c_str(), value);
                if (which % 3 == 1) murvSetVarColumnWidth(h_, name.c_str(), value);
                if (which % 3 == 2) murvSetVarMeasureLevel(h_, name.c_str(), value);
                break;
            }
            case 8: {
                const std::string text = in_.Text();
                if (in_.Byte() & 1)
                    murvSetIdString(h_, text.c_str());
                else
                    murvSetTextInfo(h_, text.c_str());
                break;
            }
            case 9: murvSetCaseWeightVar(h_, Name().c_str()); break;
            case 10: murvSetCompression(h_, in_.Byte() % 3); break;
            case 11: {
                const std::string attr = in_.Text(70);
                const int sub = static_cast<int8_t>(in_.Byte());
                const std::string text = in_.Text();
                if (sub & 1) {
                    murvAddFileAttribute(h_, attr.c_str(), sub / 2, text.c_str());
                } else {
                    const std::string name = Name();
                    murvAddVarAttribute(h_, name.c_str(), attr.c_str(), sub / 2, text.c_str());
                }
                break;
            }
            case 12: {
                const std::string set = "$" + in_.Text(20), label = in_.Text();
                std::vector<std::string> members;
                for (int i = in_.Byte() % 5; i > 0; --i) members.push_back(Name());
                std::vector<const char*> ptrs;
                for (const auto& m : members) ptrs.push_back(m.c_str());
                const int mode = in_.Byte();
                if (mode & 1) {
                    const std::string counted = in_.Text(20);
                    murvAddMultRespDefC(h_, set.c_str(), label.c_str(), (mode >> 1) & 1, counted.c_str(), ptrs.data(),
                                        static_cast<int>(ptrs.size()));
                } else {
                    murvAddMultRespDefN(h_, set.c_str(), label.c_str(), (mode >> 1) & 1,
                                        static_cast<int8_t>(in_.Byte()), ptrs.data(), static_cast<int>(ptrs.size()));
                }
                break;
            }
            case 13: {
                const std::string text = in_.Text();
                if (in_.Byte() & 1)
                    murvSetMultRespDefs(h_, text.c_str());
                else
                    murvSetVariableSets(h_, text.c_str());
                break;
            }
            case 14: {
                std::vector<int> info(in_.Byte() % 12);
                for (int& v : info) v = static_cast<int8_t>(in_.Byte());
                murvSetDateVariables(h_, static_cast<int>(info.size()), info.data());
                break;
            }
            case 15: {
                const std::string data = in_.Text();
                const int which = in_.Byte() % 3;
                if (which == 0) murvSetZOPGUID(h_, data.c_str());
                if (which == 1) murvSetZOPFirst(h_, data.data(), static_cast<int>(data.size()));
                if (which == 2) murvSetZOPNext(h_, data.data(), static_cast<int>(data.size()));
                break;
            }
            case 16: {
                const int subtype = in_.Byte() % 40;
                const int unit = 1 << (in_.Byte() % 4);
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
                const Var* v = PickVar();
                if (!v) break;
                double vh = 0;
                if (murvGetVarHandle(h_, v->name.c_str(), &vh) != MURV_RC_OK) Fail("a defined variable has no handle");
                if (v->type == 0) {
                    const double value = in_.Double();
                    if (murvSetValueNumeric(h_, vh, value) == MURV_RC_OK) Current(*v) = Cell(value);
                } else {
                    const std::string value = in_.Text(static_cast<std::size_t>(v->type) + 2);
                    if (murvSetValueChar(h_, vh, value.c_str()) == MURV_RC_OK)
                        Current(*v) = value + std::string(static_cast<std::size_t>(v->type) - value.size(), ' ');
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
                const std::string name = Name();
                char shortName[9];
                murvGetVarCompatName(h_, name.c_str(), shortName);
                break;
            }
            case 22: {
                const std::string name = Name();
                const std::uint8_t count = in_.Byte() % 4;
                std::vector<double> values(count);
                std::vector<std::string> labels(count);
                std::vector<const char*> ptrs;
                for (std::size_t i = 0; i < count; ++i) {
                    values[i] = in_.Double();
                    labels[i] = in_.Text(80);
                }
                for (const auto& l : labels) ptrs.push_back(l.c_str());
                const char* varNames[] = {name.c_str()};
                murvSetVarNValueLabels(h_, varNames, 1, values.data(), ptrs.data(), count);
                break;
            }
            default:
                return false;  // ends the program early: short programs stay cheap
        }
        return true;
    }

    bool Committed() const { return committed_; }
    const std::vector<Var>& Vars() const { return vars_; }
    const std::vector<std::vector<std::string>>& Cases() const { return cases_; }
    bool CheckValues() const { return checkValues_; }

private:
    static std::string Cell(double d) { return std::string(reinterpret_cast<const char*>(&d), 8); }
    std::string& Current(const Var& v) { return current_[static_cast<std::size_t>(&v - vars_.data())]; }
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

void ReadBack(const char* path, const Writer& w) {
    int h = -1;
    if (murvOpenRead(path, &h) != MURV_RC_OK) Fail("a file closed without error cannot be read");
    int numVars = 0, numCases = 0;
    murvGetNumberofVariables(h, &numVars);
    if (numVars != static_cast<int>(w.Vars().size())) Fail("variable count differs from the variables written");
    murvGetNumberofCases(h, &numCases);
    if (numCases != static_cast<int>(w.Cases().size())) Fail("case count differs from the cases written");

    std::vector<double> handles;
    for (const Var& v : w.Vars()) {
        double vh = 0;
        if (murvGetVarHandle(h, v.name.c_str(), &vh) != MURV_RC_OK) Fail("a variable written is missing");
        handles.push_back(vh);
    }
    std::vector<char> text(32768 + 1);
    std::size_t read = 0;
    while (murvReadCaseRecord(h) == MURV_RC_OK) {
        if (read >= w.Cases().size()) Fail("more cases read than written");
        if (w.CheckValues()) {
            const auto& expect = w.Cases()[read];
            for (std::size_t i = 0; i < w.Vars().size(); ++i) {
                const Var& v = w.Vars()[i];
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
    if (read != w.Cases().size()) Fail("fewer cases read than written");
    murvCloseRead(h);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static murv::fuzz::ScratchFile file("write.murv");
    file.Remove();
    Input in(data, size);
    int h = -1;
    if (murvOpenWrite(file.Path(), &h) != MURV_RC_OK) Fail("cannot open the output file");
    Writer w(in, h);
    for (int steps = 0; steps < 4096 && w.Step(); ++steps) {
    }
    const int rc = murvCloseWrite(h);
    if (rc == MURV_RC_OK && w.Committed()) ReadBack(file.Path(), w);
    return 0;
}
