#!/bin/bash
# The module author's kit through the real tessara program, in a run directory
# of the test's own (with the sample module linked in for its entities).
#
#   module_kit.sh TESSARA RUN_DIR SCRATCH CASE BUILD_DIR
#
# TESSARA is the program, RUN_DIR the build's run directory, SCRATCH a folder
# the test may fill (SCRATCH/reload-builds holds the test module's builds),
# BUILD_DIR the build folder. CASE is one of:
#   package  installs the build into a prefix, writes a module with `tessara
#            new-module`, builds it outside the tree with find_package(Tessara)
#            and runs it: each of its hooks prints its line
#   reload   a world runs in real time with --watch-modules while the server
#            module TEST_reload is replaced: by a build written in two halves
#            (refused while half written, loaded once whole), by a file that is
#            not a library (refused, the loaded build goes on), by a build that
#            cannot load (reported, the world goes on without it) and by the
#            first build again; the world's entities stay all the while
set -u
tessara=$1 run_source=$2 builds=$3/reload-builds case=$4 build=$5 scratch=$3/kit-$4
rm -rf "$scratch"
mkdir -p "$scratch/run/modules" || exit 1
ln -s "$run_source/modules/TESSARA_sample" "$scratch/run/modules/TESSARA_sample" || exit 1

fail() {
    echo "FAILED: $*"
    exit 1
}

expect() { # expect LOG TEXT: the log holds the fixed text
    grep -qF -- "$2" "$1" || fail "$1 lacks: $2"
}

case $case in
package)
    cd "$scratch" || exit 1
    cmake --install "$build" --prefix "$scratch/prefix" > install.log 2>&1 || { cat install.log; fail "cmake --install"; }
    [ -e prefix/include/tessara/game/modules/ModuleImpl.hpp ] && fail "an internal header was installed"
    "$tessara" new-module KIT_hello --dir hello || fail "new-module ended with status $?"
    "$tessara" new-module KIT_hello --dir hello > again.log 2>&1 && fail "new-module wrote into a module's folder"
    expect again.log "exists and is not empty"
    cmake -S hello -B hello/build -G Ninja -DCMAKE_PREFIX_PATH="$scratch/prefix" \
        -DTESSARA_MODULES_DIR="$scratch/run/modules" > configure.log 2>&1 || { cat configure.log; fail "configure"; }
    cmake --build hello/build > build.log 2>&1 || { cat build.log; fail "build"; }
    cd run || exit 1
    "$tessara" --module KIT_hello --world kit --ticks 90 --no-profile > run.log 2>&1
    status=$?
    cat run.log
    [ $status = 0 ] || fail "the run ended with status $status"
    for line in "[KIT_hello] client module loaded" "[KIT_hello] server module loaded" \
        "[KIT_hello] content module loaded" "[KIT_hello] Game_Start" "[KIT_hello] Load: no item types yet" \
        "[KIT_hello] Game_Ready" "[KIT_hello] Server_Load: world 'kit' with 0 entities" \
        "[KIT_hello] Server_GameUpdate: 1.0 s simulated, 0 entities" "[KIT_hello] Server_Serialize" \
        "[KIT_hello] Unload" "[KIT_hello] Game_Stop" "[KIT_hello] server module unloaded"; do
        expect run.log "$line"
    done
    ;;
reload)
    cd "$scratch/run" || exit 1
    lib=modules/TEST_reload/TEST_reload.SERVER_Mod.so
    first=$builds/first/modules/TEST_reload/TEST_reload.SERVER_Mod.so
    second=$builds/second/TEST_reload.SERVER_Mod.so
    unresolved=$builds/unresolved/TEST_reload.SERVER_Mod.so
    mkdir -p modules/TEST_reload && cp "$first" "$lib" || exit 1
    "$tessara" --module TESSARA_sample --server-mod TEST_reload --world reload --tick-rate 60 --watch-modules \
        --no-profile > run.log 2>&1 &
    pid=$!
    # Should the test itself be killed, the run still stops.
    (sleep 240 && kill -INT $pid) > /dev/null 2>&1 &
    watchdog=$!
    trap 'kill -KILL $pid 2> /dev/null' EXIT
    count() { grep -cF -- "$1" run.log; }
    wait_for() { # wait_for TEXT [N]: until the log holds TEXT N times (default once)
        for _ in $(seq 300); do
            [ "$(count "$1")" -ge "${2:-1}" ] && return 0
            kill -0 $pid 2> /dev/null || break
            sleep 0.1
        done
        cat run.log
        fail "the log lacks: $1"
    }
    replace() { # a new file in the library's place, as a linker writes it: the loaded one stays mapped
        rm -f "$lib" && cp "$1" "$lib"
    }
    wait_for "[reload] first build ticks with 7 entities"

    size=$(stat -c %s "$second")
    rm -f "$lib" && head -c $((size / 2)) "$second" > "$lib"
    wait_for "is refused: it ends before"
    tail -c +$((size / 2 + 1)) "$second" >> "$lib"
    wait_for "[reload] second build sees the world 'reload' with 7 entities"
    wait_for "[reload] second build ticks with 7 entities"

    rm -f "$lib" && echo "not a library" > "$lib"
    wait_for "is refused: it is not an ELF file"
    wait_for "[reload] second build ticks" $(($(count "[reload] second build ticks") + 2))

    replace "$unresolved"
    wait_for "stays out until a build of it loads; the game goes on"
    expect run.log "reload_test_data_nobody_defines"
    wait_for "[sample]" $(($(count "[sample]") + 2))

    replace "$first"
    wait_for "[reload] first build sees the world 'reload' with 7 entities"
    wait_for "[reload] first build ticks with 7 entities" $(($(count "[reload] first build ticks") + 1))
    kill $watchdog
    kill -INT $pid
    wait $pid
    status=$?
    trap - EXIT
    cat run.log
    [ $status = 0 ] || fail "the run ended with status $status"
    # Each build went before the next came; the unloadable one never ran.
    order=$(grep -E '^\[reload\] [a-z]+ build (loaded|unloaded)' run.log | tr '\n' '|')
    [ "$order" = "[reload] first build loaded|[reload] first build unloaded|[reload] second build loaded|[reload] second build unloaded|[reload] first build loaded|[reload] first build unloaded|" ] ||
        fail "loads and unloads out of order: $order"
    expect run.log "World 'reload': saved 7 entities"
    ;;
*)
    fail "unknown case $case"
    ;;
esac
echo PASS
