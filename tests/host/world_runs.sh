#!/bin/bash
# A world's entities across runs of the real tessara program, in a run directory
# of the test's own (so its Tessara-data folder is the test's too).
#
#   world_runs.sh TESSARA RUN_DIR SCRATCH CASE
#
# TESSARA is the program, RUN_DIR the build's run directory (for the sample
# module), SCRATCH a folder the test may fill. CASE is one of:
#   persist  the first run creates the sample entities and saves them; the second
#            finds the same ids, places and orientations, and the rover's wheels
#            where the first run left them
#   damaged  a damaged state file ends the run with status 1 and the reader's
#            message, and every file of the world stays as it was
set -u
tessara=$1 run_source=$2 case=$4 scratch=$3/world-$4
rm -rf "$scratch"
mkdir -p "$scratch/run/modules" || exit 1
ln -s "$run_source/modules/TESSARA_sample" "$scratch/run/modules/TESSARA_sample" || exit 1
cd "$scratch/run" || exit 1
entities=../Tessara-data/server/worlds/sample/entities
shown_entities=$(cd .. && pwd -P)/Tessara-data/server/worlds/sample/entities

fail() {
    echo "FAILED: $*"
    exit 1
}

# One run of 120 ticks (2 s at 60 ticks/s) into the log $1; shows the output and
# returns the program's status.
run() {
    "$tessara" --headless --module TESSARA_sample --world sample --ticks 120 --no-profile > "$1" 2>&1
    local status=$?
    echo "----- $1 (exit status $status)"
    cat "$1"
    return $status
}

expect() { # expect LOG TEXT: the log holds the fixed text
    grep -qF -- "$2" "$1" || fail "$1 lacks: $2"
}

listing() { # listing LOG HEADER: the sample module's entity lines that follow the line HEADER
    awk -v header="$2" 'index($0, header) == 1 { on = 1; next } on && /^\[sample\]   / { print; next } { on = 0 }' "$1"
}

stems() { # the entity ids that have a state file, sorted
    (cd "$entities" && ls -- *.entitystate) | sed 's/\.entitystate$//' | LC_ALL=C sort
}

run first.log || fail "the first run ended with status $?"
expect first.log "World 'sample': loaded 0 entities from $shown_entities"
expect first.log "[sample] new world: created 5 entities"
expect first.log "World 'sample': saved 5 entities to $shown_entities"
first_ids=$(stems)
[ "$(echo "$first_ids" | wc -l)" = 5 ] || fail "expected 5 state files, found: $first_ids"

case $case in
persist)
    run second.log || fail "the second run ended with status $?"
    expect second.log "World 'sample': loaded 5 entities from $shown_entities"
    expect second.log "[sample] world has 5 entities"
    [ "$(stems)" = "$first_ids" ] || fail "the state files changed names: $(stems)"

    # The sample module lists each entity by id with its place and orientation,
    # and the rover's wheels (its own state, turning at 30 degrees/s), when the
    # world is saved and when it is loaded.
    saved=$(listing first.log "[sample] saving 5 entities")
    loaded=$(listing second.log "[sample] world has 5 entities")
    [ "$(echo "$saved" | grep -F ' at (' | awk '{print $2}')" = "$first_ids" ] || fail "the listing does not match the files"
    [ "$loaded" = "$saved" ] || fail "the entities differ after loading"
    expect first.log "[sample]   rover wheels at 60.0 degrees"
    expect second.log "[sample]   rover wheels at 120.0 degrees"
    ;;
damaged)
    # The last file in load order, so that the others are loaded before it fails.
    victim=$(stems | tail -n 1)
    printf 'not an entity' > "$entities/$victim.entitystate"
    before=$(cd "$entities" && sha256sum -- *)
    run second.log
    status=$?
    [ "$status" = 1 ] || fail "expected exit status 1, got $status"
    expect second.log "tessara: the run ended with an error: world 'sample' could not be loaded from $shown_entities: Invalid save state magic string for entity $victim (its files were left as they are)"
    expect second.log "[sample] content unloaded"
    [ "$(cd "$entities" && sha256sum -- *)" = "$before" ] || fail "the world's files changed"
    ;;
*)
    fail "unknown case $case"
    ;;
esac
echo "PASSED: $case"
