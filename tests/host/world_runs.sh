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
#   damaged  a world with a cut file, a flipped magic, a NaN position, an unknown
#            item type and a stray file: the run ends with status 1 naming
#            the first damaged file, and every file stays as it was; with
#            --set-aside-damaged the rest loads, the damaged files are moved
#            into damaged/ unchanged and listed, the unknown type is kept
#   broken   the content module's library is junk: the loader's error is
#            printed, no entity loads, all of them stay on disk as they were
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

# One run of 120 ticks (2 s at 60 ticks/s) into the log $1, with more options
# after it; shows the output and returns the program's status.
run() {
    local log=$1
    shift
    "$tessara" --headless --module TESSARA_sample --world sample --ticks 120 --no-profile "$@" > "$log" 2>&1
    local status=$?
    echo "----- $log (exit status $status)"
    cat "$log"
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
expect first.log "[sample] new world: created 7 entities"
expect first.log "World 'sample': saved 7 entities to $shown_entities"
first_ids=$(stems)
[ "$(echo "$first_ids" | wc -l)" = 7 ] || fail "expected 7 state files, found: $first_ids"

case $case in
persist)
    run second.log || fail "the second run ended with status $?"
    expect second.log "World 'sample': loaded 7 entities from $shown_entities"
    expect second.log "[sample] world has 7 entities"
    [ "$(stems)" = "$first_ids" ] || fail "the state files changed names: $(stems)"

    # The sample module lists each entity by id with its place and orientation,
    # and the rover's wheels (its own state, turning at 30 degrees/s), when the
    # world is saved and when it is loaded.
    saved=$(listing first.log "[sample] saving 7 entities")
    loaded=$(listing second.log "[sample] world has 7 entities")
    [ "$(echo "$saved" | grep -F ' at (' | awk '{print $2}')" = "$first_ids" ] || fail "the listing does not match the files"
    [ "$loaded" = "$saved" ] || fail "the entities differ after loading"
    expect first.log "[sample]   rover wheels at 60.0 degrees"
    expect second.log "[sample]   rover wheels at 120.0 degrees"
    ;;
damaged)
    read -r cut flipped poisoned unknown intact other another <<< "$(stems | tr '\n' ' ')"
    file() { echo "$entities/$1.entitystate"; }
    poke() { printf "$3" | dd of="$(file "$1")" bs=1 seek="$2" conv=notrunc status=none; }
    number() { od -An -t u8 -j "$2" -N 8 "$(file "$1")" | tr -d ' '; } # the 8-byte number at $2
    truncate -s 40 "$(file "$cut")"
    poke "$flipped" 0 'X'
    # After 16 bytes of magic, the version, the module id and the item type's
    # length and bytes come two environments and the parent; then the position.
    poke "$poisoned" $((76 + $(number "$poisoned" 36))) '\x00\x00\x00\x00\x00\x00\xf8\x7f'
    poke "$unknown" 44 'X' # the item type's first letter
    type=$(dd if="$(file "$unknown")" bs=1 skip=44 count="$(number "$unknown" 36)" status=none)
    printf 'not an entity' > "$entities/notes.entitystate"
    before=$(cd "$entities" && sha256sum -- *)
    run second.log
    status=$?
    [ "$status" = 1 ] || fail "expected exit status 1, got $status"
    shown=../Tessara-data/server/worlds/sample/entities
    expect second.log "tessara: the run ended with an error: world 'sample' could not be loaded from $shown_entities: $shown/$cut.entitystate: Save state file is cut short for entity $cut (its files were left as they are; --set-aside-damaged loads the rest)"
    expect second.log "[sample] content unloaded"
    [ "$(cd "$entities" && sha256sum -- *)" = "$before" ] || fail "the world's files changed"

    # Set aside, the rest of the world loads; a crashed save's leftover goes.
    printf 'half' > "$entities/$intact.entitystate.tmp"
    run third.log --set-aside-damaged || fail "the run with --set-aside-damaged ended with status $?"
    expect third.log "Removed $shown/$intact.entitystate.tmp, left by an interrupted save"
    expect third.log "WARNING: item type '$type' of module TESSARA_sample is not loaded: 1 saved entity was left on disk"
    expect third.log "World 'sample': loaded 3 entities"
    expect third.log "4 damaged files were set aside in $(cd .. && pwd -P)/Tessara-data/server/worlds/sample/damaged:"
    expect third.log "  $shown/$cut.entitystate: Save state file is cut short for entity $cut"
    expect third.log "  $shown/$flipped.entitystate: Invalid save state magic string for entity $flipped"
    expect third.log "  $shown/$poisoned.entitystate: Save state file holds a non-finite position for entity $poisoned"
    expect third.log "  $shown/notes.entitystate: UniqueId string length should be 28"
    moved=$(echo "$before" | grep -v -e "$unknown" -e "$intact" -e "$other" -e "$another")
    [ "$(cd "$entities/../damaged" && sha256sum -- *)" = "$moved" ] || fail "the damaged files changed on the way"
    [ "$(stems | tr '\n' ' ')" = "$unknown $intact $other $another " ] || fail "entities/ should keep four files: $(stems)"
    [ "$(echo "$before" | grep "$unknown")" = "$(cd "$entities" && sha256sum -- "$unknown.entitystate")" ] ||
        fail "the entity of the unknown type changed"
    ;;
broken)
    rm "$scratch/run/modules/TESSARA_sample"
    cp -r "$run_source/modules/TESSARA_sample" "$scratch/run/modules/" || exit 1
    printf 'junk' > "$scratch/run/modules/TESSARA_sample/TESSARA_sample.TESSARA_Mod.so"
    before=$(cd "$entities" && sha256sum -- *)
    run second.log || fail "the run with a broken content module ended with status $?"
    expect second.log "tessara: content module 'TESSARA_sample' failed to load with error: "
    expect second.log "TESSARA_sample.TESSARA_Mod.so"
    expect second.log "WARNING: module TESSARA_sample is not loaded: 7 saved entities were left on disk"
    expect second.log "kept on disk:   7 entities whose module or item type is not loaded"
    [ "$(cd "$entities" && sha256sum -- *)" = "$before" ] || fail "the world's files changed"
    ;;
*)
    fail "unknown case $case"
    ;;
esac
echo "PASSED: $case"
