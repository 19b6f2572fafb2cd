# The run directory is laid out as the game expects at run time:
#   run/tessara, run/game.so, run/libnerox.so
#   run/modules/N/N.CLASS.so
#   run/game/...            assets
#   ../Tessara-data/        user data, beside the run directory
set(TESSARA_RUN_DIR "${CMAKE_BINARY_DIR}/run")
set(TESSARA_DATA_DIR "${CMAKE_BINARY_DIR}/Tessara-data")
file(MAKE_DIRECTORY "${TESSARA_RUN_DIR}" "${TESSARA_RUN_DIR}/modules" "${TESSARA_RUN_DIR}/game"
                    "${TESSARA_DATA_DIR}")

# Puts a target's output straight into the run directory (or a folder below it).
function(tessara_place_in_run_dir target subdir)
  set(dir "${TESSARA_RUN_DIR}")
  if(subdir)
    set(dir "${TESSARA_RUN_DIR}/${subdir}")
  endif()
  set_target_properties(${target} PROPERTIES
    RUNTIME_OUTPUT_DIRECTORY "${dir}"
    LIBRARY_OUTPUT_DIRECTORY "${dir}")
endfunction()

# Content module libraries: tessara_add_module(NAME CLASS SOURCES...) builds
# run/modules/NAME/NAME.CLASS.so (cmake/TessaraModule.cmake, also installed for
# modules built outside this tree).
set(TESSARA_MODULES_DIR "${TESSARA_RUN_DIR}/modules")
include(${CMAKE_CURRENT_LIST_DIR}/TessaraModule.cmake)
