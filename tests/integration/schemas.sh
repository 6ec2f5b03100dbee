#!/usr/bin/env bash
# What the library writes, the sample's files and the examples of the documents keep to the schemas, and the schemas
# refuse what no writer here writes.
set -euo pipefail
source=$1 build=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export PATH=$build/bin:$PATH
fail() { echo "$1" >&2; exit 1; }

keeps() { # keeps SCHEMA FILE...
  xmllint --nonet --noout --relaxng "$source/docs/schemas/$1.rng" "${@:2}" 2>"$work/log" || { cat "$work/log" >&2; exit 1; }
}
refused() { # refused SCHEMA FILE EDIT: the file as sed edits it
  sed -E "$3" "$2" >"$work/edited.xml"
  ! cmp -s "$2" "$work/edited.xml" || fail "$2 has nothing to edit with $3"
  ! xmllint --nonet --noout --relaxng "$source/docs/schemas/$1.rng" "$work/edited.xml" 2>"$work/log" || fail "$1.rng takes $3"
  grep -q 'fails to validate' "$work/log" || fail "$3 makes no document of $2"
}
examples() { # examples DOCUMENT: its xml blocks, one a file
  mkdir "$work/$1"
  awk -v folder="$work/$1" '/^```xml$/ { file = folder "/" ++count ".xml"; next } /^```$/ { file = "" } file { print > file }' \
    "$source/docs/$1.md"
}

# What a schema names, its document tells of; what the code names, its schema.
named() { grep -oE '<(element|attribute) name="[^"]+|<(name|value)>[^<]+' "$source/docs/schemas/$1.rng" | sed -E 's/.*(name="|>)//' | sort -u; }
told() { # told SCHEMA DOCUMENT
  named "$1" | while read -r name; do
    grep -qF -- "$name" "$source/docs/$2.md" || fail "docs/schemas/$1.rng names $name, docs/$2.md does not"
  done
}
told lineage lineage-xml
told job-file job-file
told definition-file definition-file
told identity identity
told metadata metadata-xml
steps=$(sed -n '/sqlSteps{/,/};/p' "$source/src/qvsqlstep.cpp" | grep -oE '"[A-Za-z]+"' | tr -d '"')
[[ -n $steps ]] || fail "src/qvsqlstep.cpp names no steps"
for step in $steps; do
  named job-file | grep -qx "$step" || fail "docs/schemas/job-file.rng does not know the step $step"
done

data=$source/tests/data
keeps lineage "$data/lineage_export.xml" "$data/sample-lineage.xml"
qvrepos lineage --config "$build/examples/qvrepos.ini" "$source"/examples/repository/{data,process}_services \
  -o "$work/lineage.xml"
keeps lineage "$work/lineage.xml"
examples lineage-xml
keeps lineage "$work"/lineage-xml/*.xml
refused lineage "$data/lineage_export.xml" 's/direction="1"/direction="2"/'
refused lineage "$data/lineage_export.xml" 's/analysisDate="([^"]*)"/analysisDate="\1Z"/'
refused lineage "$data/lineage_export.xml" 's/ label="[^"]*"//'
refused lineage "$data/lineage_export.xml" 's/DATA\.PATH/PATH/'

# Every job file of the sample but the one that is malformed on purpose.
find "$source/examples/repository" -type f ! -name broken_export.djf -print0 |
  xargs -0 xmllint --nonet --noout --relaxng "$source/docs/schemas/job-file.rng" 2>"$work/log" || fail "$(cat "$work/log")"
job=$source/examples/repository/batch_jobs/load_calendar.djf
refused job-file "$job" 's/SQLCreateTableSelect/SQLDropTable/'
refused job-file "$job" 's/TargetName="[^"]*"/TargetName="a.b.c.d"/'
refused job-file "$job" 's/<Create [^>]*>/<Create\/>/'
refused job-file "$job" 's/Name="Warehouse" //'
refused job-file "$job" 's/Name="holidays"//'
refused job-file "$source/examples/repository/data_services/mart_daily_sales.dmc" 's/PathURI="qvd:/PathURI="http:/'

keeps definition-file "$build"/examples/{system,user}/*.rcf "$source"/examples/{system,user}/*.rcf
qvrepos definitions create Orders --vault /srv/orders --set BASE/REPOS_USER_PATH="$work/user" >/dev/null
keeps definition-file "$work/user/Orders.rcf"
examples definition-file
keeps definition-file "$work"/definition-file/*.xml
refused definition-file "$work/user/Orders.rcf" 's/ Name="Orders"//'
refused definition-file "$work/user/Orders.rcf" 's/IsActive="true"/IsActive="TRUE"/'
refused definition-file "$work/user/Orders.rcf" 's/VaultPath>/Path>/g'
refused definition-file "$work/user/Orders.rcf" 's/>File</>Oracle</'

identity() { qvrepos identity make "$@" >"$work/$1.xml"; keeps identity "$work/$1.xml"; }
for kind in $(qvrepos identity make --help | sed -n '/^Subcommands:/,$p' | grep -oE '^  [a-z]+'); do
  example=$(qvrepos identity make "$kind" --help | sed -n 's/^Example: qvrepos identity make //p')
  eval "identity $example"
done
identity unified --type Profile --uuid 7f1c
identity unified --type Profile --id 42
identity file --filename '/data/in/"a" & b.txt'
identity table --table orders
identity table --dsn Sales --dsntype ODBC --catalog main --schema dbo --table orders
identity datasource --dsn 'DSN=Sales;QVXTYPE=ODBC;'
refused identity "$work/file.xml" 's/fileresource/tableresource/'
refused identity "$work/file.xml" 's/version="1"/version="2"/'
refused identity "$work/unified.xml" 's/id="42"/id=""/'
refused identity "$work/table.xml" 's/table="orders"/table=""/'
refused identity "$work/datasource.xml" 's/dsn="Sales"/dsn=""/'

# The identities of the document are those that the commands above them print.
examples identity
keeps identity "$work"/identity/*.xml
grep -oE '^`qvrepos identity make [^`]*' "$source/docs/identity.md" | tr -d '`' | while read -r command; do
  bash -c "$command"
done >"$work/printed"
diff "$work/printed" <(cat "$work"/identity/*.xml) || fail "docs/identity.md shows other identities than its commands print"

keeps metadata "$data"/metadata_*.xml
examples metadata-xml
keeps metadata "$work"/metadata-xml/*.xml
diff "$work/metadata-xml/1.xml" "$data/metadata_document.xml"
diff "$work/metadata-xml/2.xml" "$data/metadata_relationships.xml"
refused metadata "$data/metadata_document.xml" 's/class="[A-Za-z]*"/class="fileresource"/'
refused metadata "$data/metadata_document.xml" 's/ObjRef="T9"/ObjRef="T9" name="x"/'
refused metadata "$data/metadata_document.xml" 's/<Job Id="J1"/<Job/'
