// The multibyte text helpers and the name rules, under the C locale, UTF-8
// and a double-byte code page (the first input byte picks one; a locale
// that is not installed falls back to C). The rest of the input is split at
// its first 0xFF byte into two texts. Checked: cuts never split a
// character, copies stay inside their buffers, case-insensitive comparison
// agrees with itself and with the folding key, and a name that passes
// validation is taken as a variable name.
#include <clocale>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz_support.h"
#include "murvio.h"
#include "text/mbtext.h"
#include "text/names.h"

namespace {

using murv::fuzz::Fail;
namespace text = murv::text;

locale_t g_locales[3];

// The text decodes into whole valid characters up to its end.
bool Clean(std::string_view s) {
    std::size_t i = 0;
    while (i < s.size()) {
        const int len = text::CharacterLengthAt(s.data() + i, s.size() - i);
        if (len <= 0) return false;
        i += static_cast<std::size_t>(len);
    }
    return i == s.size();
}

void CheckCuts(const std::string& s, std::size_t n) {
    const std::string cut = text::Truncated(s, n);
    if (cut.size() > n || s.compare(0, cut.size(), cut) != 0) Fail("Truncated is not a prefix within the bound");
    if (!Clean(cut)) Fail("Truncated ends inside a character");

    if (n > 0) {
        // An exactly sized heap buffer, so that the sanitizer sees any overrun.
        std::vector<char> padded(n);
        text::CopyPadded(padded.data(), n, s.c_str(), s.size());
        std::size_t used = n;
        while (used > 0 && padded[used - 1] == ' ') --used;
        if (s.compare(0, used, padded.data(), used) != 0) Fail("CopyPadded does not copy a prefix");
    }
}

void CheckCase(const std::string& a, const std::string& b) {
    int status = 0;
    if (!text::EqualIgnoringCase(a.c_str(), -1, a.c_str(), -1, &status)) Fail("a text differs from itself");
    const bool ab = text::EqualIgnoringCase(a, b);
    if (ab != text::EqualIgnoringCase(b, a)) Fail("EqualIgnoringCase is not symmetric");
    if (ab && Clean(a) && Clean(b) && text::CaseFoldKey(a) != text::CaseFoldKey(b))
        Fail("equal texts have different folding keys");

    const std::string upper = text::UpperCopy(a);
    if (upper.size() != a.size()) Fail("upper-casing changed the length");
    std::string lower = a;
    text::ToLower(lower.data());
    if (lower.size() != a.size() || std::strlen(lower.c_str()) != std::strlen(a.c_str()))
        Fail("lower-casing changed the length");
    if (Clean(a) && !text::EqualIgnoringCase(a, upper)) Fail("a text differs from its upper-case copy");

    const char* last = text::FindLastChar(a.c_str(), '.');
    if (last && (*last != '.' || last < a.c_str() || last >= a.c_str() + a.size())) Fail("FindLastChar is wrong");
    if (!a.empty()) text::CharacterLengthAt(a.c_str(), a.size());
}

void CheckName(const std::string& name) {
    const int basic = murv::names::Classify(name.c_str());
    const int extended = murv::names::ClassifyExtended(name.c_str());
    if (basic < 0 || basic > 6) Fail("name class out of range");
    if (basic != 0 && extended != basic) Fail("extended classification changed a refusal");
    const int verdict = murvValidateVarname(name.c_str());
    if (verdict != murv::names::ValidateVarname(name.c_str())) Fail("the exported check disagrees");
    if (verdict != 0) return;

    static murv::fuzz::ScratchFile file("text.murv");
    int h = -1;
    if (murvOpenWrite(file.Path(), &h) != MURV_RC_OK) Fail("cannot open a file to write");
    if (murvSetVarName(h, name.c_str(), 0) != MURV_RC_OK) Fail("a validated name is refused as a variable name");
    double vh = 0;
    if (murvGetVarHandle(h, name.c_str(), &vh) != MURV_RC_OK) Fail("a variable cannot be found by its own name");
    const std::string upper = text::UpperCopy(name);
    if (murvGetVarHandle(h, upper.c_str(), &vh) != MURV_RC_OK) Fail("a variable is not found by its upper-case name");
    char shortName[9];
    murvGetVarCompatName(h, name.c_str(), shortName);
    murvCloseWrite(h);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    const char* names[] = {"C", "en_US.UTF-8", "zh_CN.GBK"};
    for (int i = 0; i < 3; ++i) {
        g_locales[i] = newlocale(LC_ALL_MASK, names[i], static_cast<locale_t>(0));
        if (!g_locales[i]) g_locales[i] = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(0));
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    uselocale(g_locales[data[0] % 3]);
    const std::string rest(reinterpret_cast<const char*>(data + 1), size - 1);
    const std::size_t split = rest.find('\xff');
    // Texts end at their first NUL, as they would at the interface.
    const std::string a = rest.substr(0, split).c_str();
    const std::string b = split == std::string::npos ? std::string() : rest.substr(split + 1).c_str();

    for (std::size_t n : {std::size_t{0}, std::size_t{1}, std::size_t{7}, std::size_t{8}, a.size() / 2, a.size()})
        CheckCuts(a, n);
    CheckCase(a, b);
    CheckName(a);
    uselocale(LC_GLOBAL_LOCALE);
    return 0;
}
