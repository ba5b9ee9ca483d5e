// The variable sets and multiple-response sets that a dataset holds in its
// extension records: reading and storing the lists, the displayed label of a
// set, and the reader's clean-up of members that name no variable. (The sets
// themselves and their texts are meta/variableset.h.)
#pragma once

#include <cstddef>
#include <string>

#include "meta/variableset.h"
#include "model/datasource.h"

namespace murv {

// The list held by the dataset's records (type 5; or type 7 and then type
// 19). Absent or empty records contribute nothing. When nMalformed is given
// it receives the number of malformed lines skipped.
MURV_VariableSetList ReadVariableSets(const MURV_DataSource& dataset, MURV_SetListType type,
                                      std::size_t* nMalformed = nullptr);

// Encodes every set of the list and stores the texts: variable sets in type
// 5, category sets and dichotomy sets in type 7, extended dichotomy sets in
// type 19 (unit size 1). A record whose text is empty is left as it is: a
// caller that empties a list removes the records itself first.
void StoreVariableSets(const MURV_VariableSetList& list, MURV_DataSource& dataset);

// The label of a multiple-response set as it is displayed: the stored label,
// or, when the set takes its label from its first variable, the label of the
// first member that is in the dataset and has a non-empty label, else the
// first member's name (empty for a set without members).
std::string MultRespDisplayLabel(const MURV_VariableSet& set, const MURV_DataSource& dataset);

// The reader's clean-up once a dictionary is complete: in the variable sets
// and then the multiple-response sets, drops every member that names no
// variable of the dataset and every set left without members. When anything
// was dropped the records of that list are rewritten from what is left (and
// removed when nothing is).
void PruneSetsAfterRead(MURV_DataSource& dataset);

}  // namespace murv
