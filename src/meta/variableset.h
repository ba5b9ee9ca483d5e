// Variable sets and multiple-response sets.
//
// A variable set is a named list of variables. A multiple-response set is a
// named, labelled group of variables: either a group of categories, or a
// group of dichotomies that also carries the value that counts. Both live in
// the dataset's extension table as text, one set per line: variable sets in
// type 5, multiple-response sets in type 7, and dichotomy sets of the
// extended form in type 19. No extension handler owns these records; the
// functions here read a list of sets out of the records and store a list
// back into them.
//
// Line formats (each line ends with a line feed when written):
//   variable set            name= m1 m2 m3
//   categories              $name=C <label length> <label> m1 m2
//   dichotomies             $name=D<value length> <value> <label length> <label> m1 m2
//   dichotomies, extended   $name=E <flags> <value length> <value> <label length> <label> m1 m2
// Lengths are byte counts in decimal; a label whose set takes its label from
// its first variable is written with length 0. Tokens are separated by single
// blanks, so two blanks in a row make an empty token.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <vector>

namespace murv {


class MURV_VariableSet {
public:
    enum Kind : std::int32_t {
        eVariableSet = 0,   // a plain named list of variables
        eCategorySet = 1,   // multiple-response set of categories
        eDichotomySet = 2   // multiple-response set of dichotomies
    };
    enum Flag : int {
        // Dichotomy sets only: the extended form (type letter E, kept in
        // record type 19, members never renamed between short and long
        // names).
        eExtendedForm = 0,
        // Dichotomy sets only: the label is not written; it is taken from
        // the first member that has one (see MultRespDisplayLabel).
        eLabelFromFirstVar = 1,
        eNFlags = 2
    };

    // A variable set with both flags clear and no name, label, counted value
    // or members.
    MURV_VariableSet() = default;
    explicit MURV_VariableSet(Kind kind) : fKind(kind) {}

    Kind GetKind() const { return fKind; }
    void SetKind(Kind kind) { fKind = kind; }
    bool IsMultipleResponse() const { return fKind != eVariableSet; }
    // A dichotomy set with the extended-form flag: stored in type 19.
    bool IsExtended() const { return fKind == eDichotomySet && fFlags[eExtendedForm]; }

    bool GetFlag(Flag flag) const;
    void SetFlag(Flag flag, bool value);

    // The name as stored; a multiple-response set's name starts with "$".
    const std::string& GetName() const { return fName; }
    void SetName(std::string_view name) { fName.assign(name); }
    // The name upper-cased under the current locale. The name must not be
    // empty (parsed sets never have an empty name).
    std::string GetUpperName() const;

    // Multiple-response sets only.
    const std::string& GetLabel() const { return fLabel; }
    void SetLabel(std::string_view label) { fLabel.assign(label); }
    // Dichotomy sets only: the value that counts, as text; never empty in a
    // set that is encoded.
    const std::string& GetValue() const { return fValue; }
    void SetValue(std::string_view value) { fValue.assign(value); }

    // Member names in order; no two equal without regard to case.
    const std::vector<std::string>& GetVariables() const { return fVariables; }
    std::size_t NVariables() const { return fVariables.size(); }
    // Appends a member. A name that is empty or already listed (without
    // regard to case) is not added; the answer tells whether it was.
    bool AddVariable(std::string_view name);
    // Replaces the members by the names given, in order, with the rules of
    // AddVariable (used when members are renamed).
    void SetVariables(const std::vector<std::string>& names);
    void ClearVariables();
    // Removes every member for which keep(name) is false; answers how many
    // were removed. Order of the others is kept.
    template <typename Predicate>
    std::size_t KeepVariablesIf(Predicate keep);

    // Reads one line of the text form into *this. The line is taken up to
    // its first carriage return, line feed or NUL. A line that starts with
    // "$" is a multiple-response set, any other a variable set. A malformed
    // line leaves *this unchanged and answers false.
    bool Parse(std::string_view line);
    // The line of the text form, ended by a line feed. A carriage return or
    // line feed inside the label or counted value is written as a blank, so
    // that the text stays one line. A dichotomy set must have a counted
    // value.
    std::string Encode() const;

private:
    // The key under which a member counts as "already listed".
    static std::string MemberKey(std::string_view name);

    Kind fKind = eVariableSet;
    bool fFlags[eNFlags] = {false, false};
    std::string fName;
    std::string fLabel;
    std::string fValue;
    std::vector<std::string> fVariables;
    std::unordered_set<std::string> fMemberKeys;
};

template <typename Predicate>
std::size_t MURV_VariableSet::KeepVariablesIf(Predicate keep)
{
    std::size_t kept = 0;
    for (std::size_t i = 0; i < fVariables.size(); ++i) {
        if (keep(static_cast<const std::string&>(fVariables[i]))) {
            if (kept != i) fVariables[kept] = std::move(fVariables[i]);
            ++kept;
        } else {
            fMemberKeys.erase(MemberKey(fVariables[i]));
        }
    }
    const std::size_t removed = fVariables.size() - kept;
    fVariables.resize(kept);
    return removed;
}

// An ordered list of sets; within one list no two sets have the same
// upper-cased name.
using MURV_VariableSetList = std::vector<MURV_VariableSet>;

// Which list to read: variable sets (type 5) or multiple-response sets
// (types 7 and 19).
enum class MURV_SetListType { eVariableSets, eMultipleResponseSets };

// Extension record types that hold the sets' texts.
enum : int {
    eVariableSetRecord = 5,
    eMultRespSetRecord = 7,
    eExtendedMultRespSetRecord = 19
};

// Parses the lines of one record's text into the list. Lines shorter than 2
// bytes are skipped, and so are malformed lines, without disturbing the
// others. For multiple-response sets a line without a leading "$" gets one;
// in a variable-set text a line that reads as a multiple-response set does
// not belong there and is skipped as well. A set whose upper-cased name
// equals that of a set already in the list replaces it in place; others are
// appended. Answers the number of lines skipped as malformed.
std::size_t AppendSetsFromText(std::string_view text, MURV_SetListType type,
                               MURV_VariableSetList& list);

}  // namespace murv
