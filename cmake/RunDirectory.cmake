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

# Adds a content module library: tessara_add_module(NAME CLASS SOURCES...)
# builds modules/NAME/NAME.CLASS.so, linked against game.so and libnerox.so.
# ROOT_DIR overrides the folder that holds modules/ (tests use their own).
function(tessara_add_module name class)
  cmake_parse_arguments(ARG "" "ROOT_DIR" "SOURCES" ${ARGN})
  set(root "${TESSARA_RUN_DIR}")
  if(ARG_ROOT_DIR)
    set(root "${ARG_ROOT_DIR}")
  endif()
  set(target "module_${name}_${class}")
  add_library(${target} MODULE ${ARG_SOURCES})
  target_link_libraries(${target} PRIVATE game nerox)
  set_target_properties(${target} PROPERTIES
    PREFIX "" OUTPUT_NAME "${name}.${class}" SUFFIX ".so"
    LIBRARY_OUTPUT_DIRECTORY "${root}/modules/${name}"
    BUILD_RPATH "$ORIGIN/../..")
endfunction()
