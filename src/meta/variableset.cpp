#include "meta/variableset.h"

#include <algorithm>
#include <unordered_map>
#include <utility>

#include "port/assert.h"
#include "text/mbtext.h"

namespace murv {
namespace {

// Reads a line token by token. Every read is bounded by the line: nothing
// here looks at a byte past its end.
class LineCursor {
public:
    explicit LineCursor(std::string_view line) : fLine(line) {}

    bool AtEnd() const { return fPos >= fLine.size(); }

    // The next byte, consumed; false at the end of the line.
    bool NextChar(char* c)
    {
        if (AtEnd()) return false;
        *c = fLine[fPos++];
        return true;
    }

    // The text up to the next blank (or the end); the blank is consumed.
    std::string_view Token()
    {
        const std::size_t start = std::min(fPos, fLine.size());
        const std::size_t blank = fLine.find(' ', start);
        if (blank == std::string_view::npos) {
            fPos = fLine.size();
            return fLine.substr(start);
        }
        fPos = blank + 1;
        return fLine.substr(start, blank - start);
    }

    // The next n bytes, when that many are left.
    bool Take(std::size_t n, std::string_view* out)
    {
        if (n > fLine.size() - fPos) return false;
        *out = fLine.substr(fPos, n);
        fPos += n;
        return true;
    }

    std::size_t Left() const { return fLine.size() - fPos; }

private:
    std::string_view fLine;
    std::size_t fPos = 0;
};

// A byte count written in decimal. Only digits are accepted, and a count
// that exceeds limit (the bytes left on the line) is refused before it could
// overflow, so a length never claims text that is not there.
bool ParseLength(std::string_view token, std::size_t limit, std::size_t* length)
{
    if (token.empty()) return false;
    std::size_t value = 0;
    for (const char c : token) {
        if (c < '0' || c > '9') return false;
        value = value * 10 + static_cast<std::size_t>(c - '0');
        if (value > limit) return false;
    }
    *length = value;
    return true;
}

// The line proper: everything before the first carriage return, line feed or
// NUL. A NUL ends a line too because every writer of this format treats
// these texts as C strings; bytes after one are padding, not content.
std::string_view CutLine(std::string_view line)
{
    const std::size_t end = line.find_first_of(std::string_view("\r\n\0", 3));
    return end == std::string_view::npos ? line : line.substr(0, end);
}

// Labels and counted values are counted texts, but the reader still cuts
// lines at a carriage return or line feed: one inside would split the set
// in two (and could even smuggle in a set of its own), so it is written as a
// blank.
void AppendOneLine(std::string& out, std::string_view text)
{
    for (const char c : text) out.push_back(c == '\r' || c == '\n' ? ' ' : c);
}

void AppendMembers(std::string& out, const std::vector<std::string>& members)
{
    for (std::size_t i = 0; i < members.size(); ++i) {
        if (i > 0) out.push_back(' ');
        out += members[i];
    }
}

// Builds a list, keeping names unique by their upper-cased form: a later set
// with the name of an earlier one takes its place.
class ListBuilder {
public:
    explicit ListBuilder(MURV_VariableSetList& list) : fList(list)
    {
        fIndex.reserve(list.size());
        // The list given may hold sets built elsewhere, so an empty name is
        // not ruled out here as it is in parsed sets.
        for (std::size_t i = 0; i < list.size(); ++i) {
            fIndex.emplace(text::UpperCopy(list[i].GetName()), i);
        }
    }

    void Put(MURV_VariableSet&& set)
    {
        auto [where, added] = fIndex.emplace(text::UpperCopy(set.GetName()), fList.size());
        if (added) {
            fList.push_back(std::move(set));
        } else {
            fList[where->second] = std::move(set);
        }
    }

private:
    MURV_VariableSetList& fList;
    std::unordered_map<std::string, std::size_t> fIndex;
};

std::size_t AppendFromText(std::string_view text, MURV_SetListType type, ListBuilder& builder)
{
    const bool multResp = type == MURV_SetListType::eMultipleResponseSets;
    std::size_t malformed = 0;
    std::string prefixed;
    std::size_t pos = 0;
    while (text.size() - pos >= 2) {
        const std::size_t lf = text.find('\n', pos);
        const std::size_t end = lf == std::string_view::npos ? text.size() : lf;
        // Cut first, so that a line of NUL padding is skipped like an empty
        // one rather than counted as malformed.
        std::string_view line = CutLine(text.substr(pos, end - pos));
        pos = lf == std::string_view::npos ? text.size() : lf + 1;
        if (line.size() < 2) continue;
        if (multResp && line[0] != '$') {
            prefixed.assign("$");
            prefixed.append(line);
            line = prefixed;
        }
        // A variable-set text that holds a line of the other kind is
        // refused line by line as well: kept, such a set would be stored
        // into the multiple-response records and overwrite them.
        MURV_VariableSet set;
        if (!set.Parse(line) || set.IsMultipleResponse() != multResp) {
            ++malformed;
            continue;
        }
        builder.Put(std::move(set));
    }
    return malformed;
}

}  // namespace

// ---- MURV_VariableSet ----

bool MURV_VariableSet::GetFlag(Flag flag) const
{
    MURV_ASSERT(flag >= 0 && flag < eNFlags);
    return fFlags[flag];
}

void MURV_VariableSet::SetFlag(Flag flag, bool value)
{
    MURV_ASSERT(flag >= 0 && flag < eNFlags);
    fFlags[flag] = value;
}

std::string MURV_VariableSet::GetUpperName() const
{
    MURV_ASSERT(!fName.empty());
    return text::UpperCopy(fName);
}

// Members are meant to be unique under the locale's case-insensitive
// collation. Two names that collate equal without regard to case are, for
// the names a dictionary can hold, exactly the names whose upper-cased forms
// are equal, so the upper-cased form serves as the key: it can be hashed,
// which keeps adding a member constant time on sets with many thousands of
// members, where comparing with every member by collation would not be.
std::string MURV_VariableSet::MemberKey(std::string_view name)
{
    return text::UpperCopy(name);
}

bool MURV_VariableSet::AddVariable(std::string_view name)
{
    if (name.empty()) return false;
    if (!fMemberKeys.insert(MemberKey(name)).second) return false;
    fVariables.emplace_back(name);
    return true;
}

void MURV_VariableSet::SetVariables(const std::vector<std::string>& names)
{
    ClearVariables();
    fVariables.reserve(names.size());
    for (const std::string& name : names) AddVariable(name);
}

void MURV_VariableSet::ClearVariables()
{
    fVariables.clear();
    fMemberKeys.clear();
}

bool MURV_VariableSet::Parse(std::string_view rawLine)
{
    const std::string_view line = CutLine(rawLine);
    const std::size_t equals = line.find('=');
    if (equals == std::string_view::npos || equals == 0) return false;

    MURV_VariableSet set;
    set.fName.assign(line.substr(0, equals));
    LineCursor cursor(line.substr(equals + 1));

    if (line[0] == '$') {
        char type = 0;
        if (!cursor.NextChar(&type)) return false;
        if (type == 'C') {
            set.fKind = eCategorySet;
        } else if (type == 'D' || type == 'E') {
            set.fKind = eDichotomySet;
        } else {
            return false;
        }

        if (type == 'E') {
            char blank = 0;
            if (!cursor.NextChar(&blank) || blank != ' ') return false;
            const std::string_view flags = cursor.Token();
            for (int i = 0; i < eNFlags; ++i) {
                set.fFlags[i] = static_cast<std::size_t>(i) < flags.size() && flags[i] != '0';
            }
        }

        if (set.fKind == eDichotomySet) {
            const std::string_view token = cursor.Token();
            std::size_t length = 0;
            if (!ParseLength(token, cursor.Left(), &length) || length == 0) return false;
            std::string_view value;
            if (!cursor.Take(length, &value)) return false;
            set.fValue.assign(value);
        }

        char space = 0;
        if (!cursor.NextChar(&space) || space != ' ') return false;
        const std::string_view token = cursor.Token();
        std::size_t length = 0;
        if (!ParseLength(token, cursor.Left(), &length)) return false;
        std::string_view label;
        if (!cursor.Take(length, &label)) return false;
        set.fLabel.assign(label);
        if (!cursor.NextChar(&space) || space != ' ') return false;
    }

    while (!cursor.AtEnd()) set.AddVariable(cursor.Token());
    *this = std::move(set);
    return true;
}

std::string MURV_VariableSet::Encode() const
{
    std::string out = fName;
    switch (fKind) {
    case eVariableSet:
        out += "= ";
        break;
    case eCategorySet:
        out += "=C ";
        out += std::to_string(fLabel.size());
        out.push_back(' ');
        AppendOneLine(out, fLabel);
        out.push_back(' ');
        break;
    case eDichotomySet:
        MURV_ASSERT(fValue.size() > 0);
        if (fFlags[eExtendedForm]) {
            // A digit per flag, cut after the last flag that is set; the
            // extended-form flag is set here, so at least one digit.
            int last = 0;
            for (int i = 0; i < eNFlags; ++i) {
                if (fFlags[i]) last = i;
            }
            out += "=E ";
            for (int i = 0; i <= last; ++i) out.push_back(fFlags[i] ? '1' : '0');
            out.push_back(' ');
        } else {
            out += "=D";
        }
        out += std::to_string(fValue.size());
        out.push_back(' ');
        AppendOneLine(out, fValue);
        out.push_back(' ');
        if (fFlags[eLabelFromFirstVar]) {
            out += "0 ";
        } else {
            out += std::to_string(fLabel.size());
            out.push_back(' ');
            AppendOneLine(out, fLabel);
        }
        out.push_back(' ');
        break;
    default:
        MURV_ASSERT(!"a set of a known kind");
    }
    AppendMembers(out, fVariables);
    out.push_back('\n');
    return out;
}

// ---- lists ----

std::size_t AppendSetsFromText(std::string_view text, MURV_SetListType type,
                               MURV_VariableSetList& list)
{
    ListBuilder builder(list);
    return AppendFromText(text, type, builder);
}

}  // namespace murv
