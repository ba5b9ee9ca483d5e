#!/usr/bin/env bash
# The murv program, run as a user runs it.
# Usage: murv_test.sh MURV SAMPLE_FILES_PROGRAM SURVEY_CSV
set -uo pipefail
MURV=$1
SAMPLES=$2
SURVEY=$3
T=$(mktemp -d)
trap 'rm -rf "$T"' EXIT
failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }

# expect CODE COMMAND...: the command exits with CODE.
expect() {
  local want=$1; shift
  "$@" >"$T/out" 2>"$T/err"
  local got=$?
  [ "$got" = "$want" ] || fail "exit $got, expected $want: $* ($(head -c 300 "$T/err"))"
}
# same GOT WANT WHAT: GOT is WANT.
same() { [ "$1" = "$2" ] || fail "$3: got $1"; }
# The dictionary as JSON without what a rewrite changes by design.
dict_of() { "$MURV" dict --json "$1" | sed -E 's/"(file|compression|created|product)":"[^"]*",//g'; }

# ---- CSV -> import -> cat --csv gives the same table ----
# The table as cat writes it: \n line ends, numbers in shortest form, quotes
# only where needed. The input has a \r\n line end and a quoted empty field.
cat >"$T/expected.csv" <<'EOF'
id,name,score,note,empty
1,Ada,3.5,"hello, world",
2,"Bob ""B""",-2,"two
lines",
3,,1e+300,,
4,Zoë,0.1,plain,
5,x,-0.000123,,
EOF
{ printf 'id,name,score,note,empty\r\n'; tail -n +2 "$T/expected.csv" | sed '$s/,,$/,"",/'; } >"$T/table.csv"
for flags in "" "--compress"; do
  expect 0 "$MURV" import "$T/table.csv" "$T/t.murv" $flags
  "$MURV" cat "$T/t.murv" >"$T/back.csv" || fail "cat $flags"
  cmp -s "$T/back.csv" "$T/expected.csv" || fail "import $flags then cat: $(diff "$T"/{expected,back}.csv | head -5)"
done
# Standard input, another delimiter, an input encoding.
printf 'a;b\n1;"x;y"\n2;z\n' | "$MURV" import - "$T/semi.murv" --delimiter ';' || fail "import from stdin"
same "$("$MURV" cat "$T/semi.murv")" $'a,b\n1,x;y\n2,z' "import with --delimiter ;"
if LC_ALL=en_US.UTF-8 locale charmap 2>/dev/null | grep -q UTF-8; then
  iconv -f UTF-8 -t ISO-8859-1 "$T/expected.csv" >"$T/latin1.csv"
  LC_ALL=en_US.UTF-8 "$MURV" import "$T/latin1.csv" "$T/latin1.murv" --encoding ISO-8859-1 || fail "import --encoding"
  cmp -s <(LC_ALL=en_US.UTF-8 "$MURV" cat "$T/latin1.murv") "$T/expected.csv" || fail "import --encoding ISO-8859-1"
fi
# Inferred types and widths: numbers stay numeric, a column with text is a
# string as wide as its longest value, an all-empty column is numeric.
"$MURV" dict --json "$T/t.murv" >"$T/d.json"
for want in '"name":"id","type":"numeric"' '"name":"name","type":"string","width":7' \
            '"name":"note","type":"string","width":12' '"name":"empty","type":"numeric"'; do
  grep -qF "$want" "$T/d.json" || fail "dict of the imported table lacks $want"
done

# Names made valid and unique, and said so.
printf 'first name,1st,BY,id,ID,#x\n1,2,3,4,5,6\n' >"$T/names.csv"
"$MURV" import "$T/names.csv" "$T/names.murv" 2>"$T/err" || fail "import with bad names"
same "$("$MURV" cat "$T/names.murv" | head -1)" "first_name,v1st,BY_,id,ID_2,v#x" "names"
grep -q "'first name' -> first_name" "$T/err" || fail "renamed columns are not reported"

# A failed import leaves no file and keeps an old one.
cp "$T/t.murv" "$T/keep.murv"
printf 'a,b\n1,2\n1,2,3\n' >"$T/ragged.csv"
expect 3 "$MURV" import "$T/ragged.csv" "$T/keep.murv"
grep -q "ragged.csv: line 3: 3 fields" "$T/err" || fail "ragged row message: $(cat "$T/err")"
cmp -s "$T/keep.murv" "$T/t.murv" || fail "a failed import changed the old file"
[ -z "$(ls "$T" | grep '\.tmp$')" ] || fail "a failed import left a temporary file"
printf 'a\n"open\n' >"$T/open.csv"
expect 3 "$MURV" import "$T/open.csv" "$T/open.murv"
[ ! -e "$T/open.murv" ] || fail "a failed import left a file"

# ---- files the tests can make: convert keeps everything ----
mkdir -p "$T/s"
"$SAMPLES" write "$T/s" >/dev/null || fail "writing the sample files"
cp "$SURVEY" "$T/survey.csv"
"$MURV" import "$T/survey.csv" "$T/s/survey.murv" --compress || fail "import of the survey"
for f in "$T"/s/*.murv "$T/t.murv"; do
  for mode in --compress --plain; do
    expect 0 "$MURV" convert "$f" "$T/conv.murv" $mode
    cmp -s <(dict_of "$f") <(dict_of "$T/conv.murv") || fail "convert $mode of $(basename "$f"): dictionary differs"
    cmp -s <("$MURV" cat "$f") <("$MURV" cat "$T/conv.murv") || fail "convert $mode of $(basename "$f"): cases differ"
    want=$([ $mode = --compress ] && echo bytecode || echo none)
    "$MURV" info "$T/conv.murv" | grep -q "^Compression: *$want" || fail "convert $mode: compression"
  done
done
# A subset keeps its variables' properties and its sets' remaining members.
P="$T/s/plain.murv"
expect 0 "$MURV" convert "$P" "$T/sub.murv" --vars essay,id,score,born
cmp -s <("$MURV" cat "$P" --vars essay,id,score,born) <("$MURV" cat "$T/sub.murv") || fail "convert --vars: cases"
"$MURV" dict "$T/sub.murv" >"$T/sub.txt"
for want in "A score with a label" "52.25 = highest" "@Unit = points" "Variable set Everything: id score essay" \
            "Multiple-response set \$pair"; do
  grep -qF "$want" "$T/sub.txt" || fail "convert --vars lost: $want"
done
expect 2 "$MURV" convert "$P" "$P"
expect 2 "$MURV" convert "$P" "$T/x.murv" --vars nosuch

# ---- cat, freq, stats, dict: arguments -> exit code and output ----
# Rows: exit code | arguments ($P the sample file, $S a small imported table,
# $C the sample file cut inside case 150) | the whole standard output, with
# \n for line ends; "~TEXT": the output contains TEXT; "*": any output.
printf 'x,s\n1,a\n1,b\n2,a\n,a\n3,\n' >"$T/small.csv"
"$MURV" import "$T/small.csv" "$T/small.murv" 2>/dev/null || fail "import of the small table"
head -c 60000 "$P" >"$T/cut.murv"
S="$T/small.murv" C="$T/cut.murv"
while IFS='|' read -r code args want; do
  [ -z "$code" ] && continue
  eval "set -- $args"
  "$MURV" "$@" >"$T/out" 2>"$T/err"
  got=$?
  [ "$got" = "$code" ] || { fail "murv $args: exit $got, expected $code ($(head -c 300 "$T/err"))"; continue; }
  case $want in
    '*') ;;
    '~'*) grep -qF -- "$(printf '%b' "${want#\~}")" "$T/out" || fail "murv $args: output lacks ${want#\~}: $(head -c 300 "$T/out")" ;;
    *) [ "$(cat "$T/out")" = "$(printf '%b' "$want")" ] || fail "murv $args: got $(head -c 300 "$T/out")" ;;
  esac
done <<'ROWS'
0|cat $P --vars id,born --cases 1:3|id,born\n2,1902-03-03\n3,1903-04-04
0|cat $P --vars score,name --cases 248:249 --labels --json|{"score":"highest","name":"Barbara"}
0|cat $P --vars id --cases 249:|id\n250
0|cat $P --vars id --cases -2: --no-header|249\n250
0|cat $P --vars id --cases -2|id\n249
0|cat $P --vars id --cases 5 --no-header|6
0|cat $P --vars id --cases :-248 --no-header|1\n2
0|cat $P --vars id --cases -300:1 --no-header|1
0|cat $P --vars id --cases 5:2|id
0|cat $P --vars id --cases 240: --limit 2 --no-header|241\n242
0|cat $P --vars id --limit 0|id
0|cat $P --vars id,score --cases 16:18 --null NA --no-header|17,NA\n18,-5.5
0|cat $P --vars id,score,born,IncomeOfTheHousehold --cases 0:2 --formatted|id,score,born,IncomeOfTheHousehold\n1.00,-9.75,02-FEB-1901,1234568\n2.00,-9.50,03-MAR-1902,2469135
0|cat $P --vars score,name,born --cases 248 --formatted --labels --json|{"score":"highest","name":"Barbara","born":"26-OCT-2149"}
0|cat $S --tsv --no-header --null '\N' --cases 3|\\N\ta
2|cat $P --cases 250|*
2|cat $P --cases 1:2:3|*
2|cat $P --cases x|*
2|cat $P --cases 5:2x|*
2|cat $P --csv --json|*
2|cat $P --json --null NA|*
2|cat $P --limit -1|*
2|import $S -|*
2|convert $P -|*
0|freq $S x|x\nValue             Label  Count  Percent  Valid percent  Cumulative percent\n1                            2     40.0           50.0                50.0\n2                            1     20.0           25.0                75.0\n3                            1     20.0           25.0               100.0\nValid total                  4     80.0          100.0\nMissing\n  System-missing             1     20.0\nMissing total                1     20.0\nTotal                        5    100.0
0|freq $S s --json|~{"name":"s","label":null,"values":[{"value":"","label":null,"count":1,"percent":20,"valid_percent":20,"cumulative_percent":20},{"value":"a","label":null,"count":3,"percent":60,"valid_percent":60,"cumulative_percent":80}
0|freq $P score|~Weighted by id
0|freq $P score|~  -1.00                       36      0.1
0|freq $P score --unweighted --json|~"user_missing":[{"value":-3,"label":null,"count":1,"percent":0.4},{"value":-2,"label":null,"count":1,"percent":0.4},{"value":-1,"label":null,"count":1,"percent":0.4}],"system_missing":{"count":14,
0|freq $P name --unweighted|~Ada          first of all     35     14.0           14.0                14.0
1|freq $C name --json|~"cases":149,
2|freq $P|*
2|freq $P nosuch|*
0|stats $S|Variable  N  Missing  Mean  Std. deviation  Minimum  Maximum  Label\nx         4        1  1.75            0.96        1        3
0|stats $S x --json|~{"name":"x","n":4,"cases":4,"missing":1,"mean":1.75,"sd":0.9574271077563381,"min":1,"max":3}
0|stats $P born|~31375        0  01-JUL-2067  21568 06:54:17  02-FEB-1901  27-NOV-2150
1|stats $C id|~149 cases could be read, and the figures count those; 
2|stats $P name|*
0|dict $P|~score                 numeric      F8.2    F8.2   unknown  right        8  -1, -2, -3  A score with a label
0|dict $P --csv|~score,numeric,0,A score with a label,F8.2,F8.2,unknown,right,8,"-1, -2, -3",-10=lowest; 0=zero; 52.25=highest
0|dict $P --csv --labels-table|variable,value,label\nscore,,A score with a label\nscore,-10,lowest\nscore,0,zero\nscore,52.25,highest\nname,Ada,first of all
2|dict $P --labels-table|*
2|dict $P --csv --json|*
ROWS
printf 'a,b\n"x\ty",1\n' | "$MURV" import - "$T/tab.murv"
same "$("$MURV" cat "$T/tab.murv" --tsv | tail -1)" 'x\ty	1' "cat --tsv escapes"
grep -q "case 150 of the 250 the header states cannot be read" <("$MURV" stats "$C" 2>&1) || fail "stats of a cut file: message"

# ---- check ----
expect 0 "$MURV" check "$P"
head -c 60000 "$P" >"$T/short.murv"
expect 4 "$MURV" check "$T/short.murv"
grep -q "holds 149 whole cases, its header states 250 (case 150: code 3 MURV_RC_FILE_READ" "$T/err" ||
  fail "check of a cut file: $(cat "$T/err")"
# A header that states one case fewer than the file holds (both counts).
python3 - "$P" "$T/more.murv" <<'EOF' || cp "$P" "$T/more.murv"
import struct, sys
d = bytearray(open(sys.argv[1], 'rb').read())
d[80:84] = struct.pack('<i', 249)
i = d.find(struct.pack('<iiii', 7, 16, 8, 2))
d[i + 24:i + 32] = struct.pack('<q', 249)
open(sys.argv[2], 'wb').write(d)
EOF
expect 4 "$MURV" check "$T/more.murv"
grep -q "holds 250 cases, its header states 249" "$T/err" || fail "check of extra cases: $(cat "$T/err")"
head -c 100 "$P" >"$T/header.murv"
expect 4 "$MURV" check "$T/header.murv"
grep -q "code 6 MURV_RC_BAD_FILE" "$T/err" || fail "check of a cut header: $(cat "$T/err")"
expect 3 "$MURV" check "$T/none.murv"

# ---- the program itself ----
for cmd in "" info dict cat freq stats import convert check; do
  expect 0 "$MURV" $cmd --help
  grep -q "Exit codes" "$T/out" || fail "murv $cmd --help does not document the exit codes"
done
for args in "" frobnicate info; do expect 2 "$MURV" $args; done
"$MURV" info "$P" >"$T/info.txt"
for want in "Byte order: *little-endian" "Cases: *250" "Variables: *7" "Weight variable: *id" \
            "Mult. resp. sets: *1" "Extension records: *subtypes 3 4 5 7 10"; do
  grep -q "$want" "$T/info.txt" || fail "info lacks $want"
done

[ $failures = 0 ] && echo "all murv checks passed"
exit $((failures > 0))
