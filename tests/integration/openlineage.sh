#!/usr/bin/env bash
# The events of the sample repository keep to the published schemas of OpenLineage, and the schemas refuse others.
set -euo pipefail
source=$1 build=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "$1" >&2; exit 1; }
check() { "$source/tests/support/openlineage_check.py" "$source/tests/data/openlineage"; }

# 1: the sample has a file that is malformed on purpose.
"$build/bin/qvrepos" graph "$source/examples/repository" --format openlineage --event-time 2026-11-21T10:15:30Z \
  --namespace Warehouse=postgres://db:5432/dwh >"$work/events" 2>"$work/log" || (($? == 1))
[[ $(check <"$work/events") == 41 ]] || fail "not 41 events"
grep -q '"namespace":"postgres://db:5432","name":"dwh.mart.daily_sales"' "$work/events" || fail "no mapped name"

refused() { # refused EDIT: the events as sed edits them
  sed -E "$1" "$work/events" >"$work/edited"
  ! cmp -s "$work/events" "$work/edited" || fail "there is nothing to edit with $1"
  ! check <"$work/edited" >"$work/log" 2>&1 || fail "the schemas take $1"
}
refused 's/"name":"batch_jobs\/load_calendar",//'
refused 's/"eventTime":"[^"]*",//'
refused 's/"processingType":"BATCH",//'
refused 's/"url":"file:[^"]*"/"path":"x"/'
refused 's/"_producer":"[^"]*",//'
