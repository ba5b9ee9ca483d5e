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
# Names equal but for the case of letters beyond ASCII are one name too.
if LC_ALL=en_US.UTF-8 locale charmap 2>/dev/null | grep -q UTF-8; then
  printf 'É,é,Ѽ,ѽ\n1,2,3,4\n' >"$T/names8.csv"
  LC_ALL=en_US.UTF-8 "$MURV" import "$T/names8.csv" "$T/names8.murv" 2>"$T/err" || fail "import: $(cat "$T/err")"
  same "$(LC_ALL=en_US.UTF-8 "$MURV" cat "$T/names8.murv" | head -1)" "É,é_2,Ѽ,ѽ_2" "names equal but for case"
  same "$(LC_ALL=en_US.UTF-8 "$MURV" cat --vars É_2 "$T/names8.murv")" $'é_2\n2' "--vars without regard to case"
fi

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

# ---- import: CSV in, cat out ----
# input (printf format) | options (@ is the test directory) | exit | cat's
# output, lines joined by spaces | text on standard error | text of `dict --csv`
printf 'variable,value,label\nx,,The x\nx,1,one\ns,a,alpha\n' >"$T/cb.csv"
printf 'x,,The x\nnosuch,1,one\n' >"$T/cb-bad.csv"
while IFS='|' read -r input opts code want err dict; do
  printf "$input" >"$T/row.csv"
  LC_ALL=C.UTF-8 expect "$code" "$MURV" import "$T/row.csv" "$T/row.murv" ${opts//@/$T/}
  what="import of '$input' $opts"
  [ -z "$err" ] || grep -qF -- "$err" "$T/err" || fail "$what: stderr lacks '$err': $(cat "$T/err")"
  [ "$code" = 0 ] || continue
  same "$(LC_ALL=C.UTF-8 "$MURV" cat "$T/row.murv" | paste -sd' ')" "$want" "$what"
  [ -z "$dict" ] || "$MURV" dict --csv "$T/row.murv" | grep -qF -- "$dict" || fail "$what: dict lacks '$dict'"
done <<'EOF'
\xef\xbb\xbfid,a\n1,2\n||0|id,a 1,2||
\xff\xfei\x00d\x00\n\x001\x00\n\x00||0|id 1||
\xff\xfei\x00d\x00\n\x001\x00\n\x00|--encoding UTF-16LE|0|id 1||
a\0b,a\n1,2\n||0|a_b,a 1,2|'a\0b' -> a_b|
x\n+5\n-5\n||0|x 5 -5||
x\n+-5\n-+5\n||0|x +-5 -+5||
a,b,c\n1\n2,3\n4,5,6\n||0|a,b,c 1,, 2,3, 4,5,6|2 rows had fewer fields than the header names (the first on line 2)|
x,y\n1,NA\n2,3\n|--na NA|0|x,y 1, 2,3|1 cell made missing by --na|y,numeric,0
x\n1\nNA\n||0|x 1 NA||x,string,2
x\n-99\n5\n|--na -99,NaN|0|x  5|1 cell made missing|x,numeric,0
zip,n\n00123,1\n4,2\n|--text zip,N|0|zip,n 00123,1 4,2||n,string,1
d,t\n2024-01-15,2024-01-15 10:20:30\n,2024-01-15T10:20:30.25\n||0|d,t 2024-01-15,2024-01-15T10:20:30 ,2024-01-15T10:20:30.25||,DATETIME23.2,
d\n2024-01-15\n\n1582-10-14\n||0|d 2024-01-15  1582-10-14||,DATE11,
d\n2024-01-15\n|--no-dates|0|d 2024-01-15||d,string,10
d\n2024-02-30\n2024-01-15\n||0|d 2024-02-30 2024-01-15||d,string,10
d\n2024-01-15\n5\n||0|d 2024-01-15 5||d,string,10
x;y\n1,5;a\n-2;b\n|--delimiter ; --decimal ,|0|x,y 1.5,a -2,b||
x;y\n1,5;a\n-;b\n|--delimiter ; --decimal ,|0|x,y "1,5",a -,b||
x;y\n1.5;a\n|--delimiter ; --decimal ,|0|x,y 1.5,a||x,string,3
x\n1\n|--decimal ,|2|||
1,a\n2,b\n|--no-header|0|V1,V2 1,a 2,b||
title\nmore, "text\nx\n1\n|--skip 2|0|x 1||
a\n\xff\n||3||line 2, column a: not UTF-8|
\xff\n1\n||3||line 1: not UTF-8|
a\n\xe9\n|--encoding ISO-8859-1|0|a é||
x,s\n1,a\n2,b\n|--labels @cb.csv|0|x,s 1,a 2,b||1=one
x,s\n1,a\n2,b\n|--labels @cb-bad.csv|3||cb-bad.csv: line 2: no column nosuch|
x\n1\n|--text nosuch|2||--text: no column nosuch|
EOF

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
expect 2 "$MURV" convert "$P" "$T/x.murv" --vars id,score,ID
expect 2 "$MURV" cat "$P" --vars id,id --json

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
4|freq $C name --json|~"cases":149,
2|freq $P|*
2|freq $P nosuch|*
0|stats $S|Variable  N  Missing  Mean  Std. deviation  Minimum  Maximum  Label\nx         4        1  1.75            0.96        1        3
0|stats $S x --json|~{"name":"x","n":4,"cases":4,"missing":1,"mean":1.75,"sd":0.9574271077563381,"min":1,"max":3}
0|stats $P born|~31375        0  01-JUL-2067  21568 06:54:17  02-FEB-1901  27-NOV-2150
4|stats $C id|~149 cases could be read, and the figures count those; 
2|stats $P name|*
0|dict $P|~score                 numeric      F8.2    F8.2   unknown  right        8  -1, -2, -3  A score with a label
0|dict $P --csv|~score,numeric,0,A score with a label,F8.2,F8.2,unknown,right,8,"-1, -2, -3",-10=lowest; 0=zero; 52.25=highest
0|dict $P --csv --labels-table|variable,value,label\nscore,,A score with a label\nscore,-10,lowest\nscore,0,zero\nscore,52.25,highest\nname,Ada,first of all
2|dict $P --labels-table|*
2|dict $P --csv --json|*
ROWS
# ---- cat ----
same "$("$MURV" cat "$P" --vars id,born --cases 1:3)" $'id,born\n2,1902-03-03\n3,1903-04-04' "cat --cases --vars"
same "$("$MURV" cat "$P" --vars score,name --cases 248:249 --labels --json)" '{"score":"highest","name":"Barbara"}' \
  "cat --labels --json"
same "$("$MURV" cat "$P" --cases 249: | wc -l)" 2 "cat --cases 249: (the header and one case)"
for f in "$P" "$T/s/compressed.murv"; do
  expect 0 "$MURV" cat "$f" --cases 300:  # past the end of a sound file: no case, no damage
  same "$(wc -l <"$T/out")" 1 "cat --cases 300: of $(basename "$f")"
done
printf 'a,b\n"x\ty",1\n' | "$MURV" import - "$T/tab.murv"
same "$("$MURV" cat "$T/tab.murv" --tsv | tail -1)" 'x\ty	1' "cat --tsv escapes"
# The labels codebook that dict writes is the one import reads.
"$MURV" dict --csv --labels-table "$P" >"$T/codebook.csv" && "$MURV" cat "$P" >"$T/p.csv" &&
  "$MURV" import "$T/p.csv" "$T/p.murv" --labels "$T/codebook.csv" 2>/dev/null || fail "import --labels of dict's codebook"
same "$("$MURV" dict --csv --labels-table "$T/p.murv")" "$(cat "$T/codebook.csv")" "codebook round trip"
grep -q "damaged: the file ends inside case 150 of the 250 it states" <("$MURV" stats "$C" 2>&1) || fail "stats of a cut file: message"

# ---- check ----
expect 0 "$MURV" check "$P"
head -c 100 "$P" >"$T/header.murv"
expect 4 "$MURV" check "$T/header.murv"
grep -q "code 6 MURV_RC_BAD_FILE" "$T/err" || fail "check of a cut header: $(cat "$T/err")"
expect 3 "$MURV" check "$T/none.murv"

# ---- damaged cases: check, cat and convert say the same and keep every whole case ----
# Clean files of 16 cases (x = 1..16; x,y,z all 1..16). Compressed, one small
# number per command, so 8 bytes of commands hold 8 cells and the data is
# the last 16 (x) or 48 (x,y,z) bytes of the file; plain, the last 128 or 384.
seq 1 16 | sed 1ix >"$T/x.csv"
seq 1 16 | awk 'BEGIN { print "x,y,z" } { print $1 "," $1 "," $1 }' >"$T/xyz.csv"
for f in x xyz; do
  "$MURV" import "$T/$f.csv" "$T/$f-p.murv"
  "$MURV" import "$T/$f.csv" "$T/$f-c.murv" --compress
done
# Edits: cut N (keep all but the last N bytes), count N (state N cases in the
# header and in the 64-bit count record), poke N BYTE (the byte N from the end).
cut() { head -c $(($(stat -c %s "$1") - $2)) "$1" >"$1.tmp" && mv "$1.tmp" "$1"; }
count() {
  python3 - "$1" "$2" <<'EOF'
import struct, sys
d = bytearray(open(sys.argv[1], 'rb').read())
n = int(sys.argv[2])
d[80:84] = struct.pack('<i', n)
i = d.find(struct.pack('<iiii', 7, 16, 8, 2))
d[i + 24:i + 32] = struct.pack('<q', n)
open(sys.argv[1], 'wb').write(d)
EOF
}
poke() { printf "\\$(printf %o "$3")" | dd of="$1" bs=1 seek=$(($(stat -c %s "$1") - $2)) conv=notrunc 2>/dev/null; }
# file | edit | whole cases delivered | the message after "FILE: damaged: "
while IFS='|' read -r base edit rows msg; do
  F="$T/d.murv"
  cp "$T/$base.murv" "$F"
  eval "${edit//@/\"\$F\"}"
  for cmd in check cat convert; do
    rm -f "$T/dout.murv"
    case $cmd in
      check) expect 4 "$MURV" check "$F" ;;
      cat) expect 4 "$MURV" cat "$F" ;;
      convert) expect 4 "$MURV" convert "$F" "$T/dout.murv" ;;
    esac
    [ "$(head -1 "$T/err")" = "$F: damaged: $msg" ] || fail "$base, $edit: $cmd says: $(head -1 "$T/err")"
    [ -z "$rows" ] && continue
    case $cmd in
      cat) same "$(($(wc -l <"$T/out") - 1))" "$rows" "$base, $edit: cat rows" ;;
      convert) cmp -s <("$MURV" cat "$T/dout.murv") <("$MURV" cat "$T/$base.murv" | head -$((rows + 1))) ||
                 fail "$base, $edit: convert does not keep the $rows whole cases" ;;
    esac
  done
done <<'EOF'
x-p|cut @ 85|5|the file ends inside case 6 of the 16 it states
x-p|cut @ 88|5|the file ends after case 5 of the 16 it states
x-p|cut @ 128|0|the file ends after case 0 of the 16 it states
xyz-p|cut @ 100|11|the file ends inside case 12 of the 16 it states
x-c|cut @ 8|8|the file ends after case 8 of the 16 it states
x-c|cut @ 3|8|case 9 of the 16 it states cannot be read
xyz-c|cut @ 24|8|the file ends after case 8 of the 16 it states
xyz-c|cut @ 40|2|case 3 of the 16 it states cannot be read
x-p|count @ 20|16|the file ends after case 16 of the 20 it states
x-c|count @ 20|16|the file ends after case 16 of the 20 it states
x-p|count @ 15|16|the file holds 16 cases, more than the 15 it states
xyz-c|count @ 15|16|the file holds 16 cases, more than the 15 it states
x-c|count @ 2147483647|16|the file ends after case 16 of the 2147483647 it states
x-p|count @ -1; cut @ 85|5|the file ends inside case 6
x-c|count @ -1; cut @ 3|8|case 9 cannot be read
xyz-c|poke @ 39 252||case 14 of the 16 it states cannot be read
EOF

# ---- destinations of import and convert ----
# Only a regular file is replaced (mode kept); a link is followed and stays a
# link; anything else, and the input itself, is refused with exit 2 and left
# as it was. No temporary file is left either way.
printf 'a\n7\n' >"$T/in.csv"
"$MURV" import "$T/in.csv" "$T/in.murv"
mkdir "$T/dest"
D="$T/dest/D"
# setup | exit | what must hold afterwards
while IFS='|' read -r setup code after; do
  [ "${setup#mknod}" != "$setup" ] && [ "$(id -u)" != 0 ] && continue  # device nodes need root
  for cmd in import convert; do
    rm -rf "$T/dest"/* "$T/dest"/.[!.]*
    src=$([ $cmd = import ] && echo "$T/in.csv" || echo "$T/in.murv")
    eval "$setup"
    expect "$code" "$MURV" $cmd "$src" "$D"
    eval "$after" || fail "$cmd to a destination made by '$setup': '$after' does not hold ($(cat "$T/err"))"
    [ -z "$(ls -A "$T/dest" | grep '\.tmp$')" ] || fail "$cmd to '$setup' left a temporary file"
  done
done <<'EOF'
:|0|[ "$("$MURV" cat "$D")" = $'a\n7' ]
cp "$T/t.murv" "$D"; chmod 600 "$D"|0|[ "$(stat -c %a "$D")" = 600 ] && [ "$("$MURV" cat "$D")" = $'a\n7' ]
cp "$T/t.murv" "$T/dest/target"; ln -s target "$D"|0|[ -L "$D" ] && [ "$("$MURV" cat "$T/dest/target")" = $'a\n7' ]
ln -s "$T/dest/nowhere" "$D"|0|[ -L "$D" ] && [ "$("$MURV" cat "$T/dest/nowhere")" = $'a\n7' ]
mkfifo "$D"|2|[ -p "$D" ] && grep -q "is a named pipe" "$T/err"
mknod "$D" c 1 3|2|[ -c "$D" ] && grep -q "is a device" "$T/err"
mkdir "$D"|2|[ -d "$D" ] && grep -q "is a directory" "$T/err"
ln -s "$src" "$D"|2|grep -q "is the input file" "$T/err" && [ "$("$MURV" cat "$T/in.murv")" = $'a\n7' ] && grep -q 7 "$T/in.csv"
EOF
expect 2 "$MURV" import "$T/in.csv" "$T/in.csv"
grep -q "is the input file" "$T/err" && grep -q 7 "$T/in.csv" || fail "import over its own input"
# Interrupted while writing: the temporary file goes, the old file stays,
# and murv dies by the signal.
seq 1 2000000 | sed 1ix | "$MURV" import - "$T/big.murv"
for sig in INT TERM HUP; do
  rm -f "$D" && cp "$T/t.murv" "$D"
  env --default-signal="$sig" "$MURV" convert "$T/big.murv" "$D" &  # a background job starts with SIGINT ignored
  pid=$!
  while kill -0 $pid 2>/dev/null && ! compgen -G "$D.murv-*.tmp" >/dev/null; do :; done
  kill -$sig $pid
  wait $pid
  same "$?" "$((128 + $(kill -l $sig)))" "convert killed by SIG$sig: exit status"
  cmp -s "$D" "$T/t.murv" || fail "SIG$sig during convert changed the old file"
  [ -z "$(ls -A "$T/dest" | grep '\.tmp$')" ] || fail "SIG$sig during convert left a temporary file"
done

# Standard output that cannot be written is a failure of every command.
for cmd in info dict "dict --json" cat check; do
  "$MURV" $cmd "$P" >/dev/full 2>/dev/null
  same "$?" 3 "murv $cmd >/dev/full"
done

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
