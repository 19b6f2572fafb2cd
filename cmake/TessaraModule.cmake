# tessara_add_module(NAME CLASS SOURCES file... [ROOT_DIR dir])
#
# Builds the module library NAME.CLASS.so into ROOT_DIR/modules/NAME/ when
# ROOT_DIR is given, else into TESSARA_MODULES_DIR/NAME/, the folder layout
# the host loads from. NAME has the form VENDOR_name: two parts of 1 to 12
# letters and digits, each beginning with a letter, joined by "_" (MYCO_hello).
# CLASS is GAME_Init, GAME_Mod, SERVER_Mod or TESSARA_Mod.
#
# The library links against game.so and libnerox.so with the compile
# definitions they were built with.
#
# Shared by the game's own tree and the installed package (find_package(Tessara)).
set(TESSARA_MODULE_CLASSES GAME_Init GAME_Mod SERVER_Mod TESSARA_Mod)

function(tessara_add_module name class)
  cmake_parse_arguments(ARG "" "ROOT_DIR" "SOURCES" ${ARGN})
  string(FIND "${name}" "_" split)
  set(valid FALSE)
  if(split GREATER 0)
    string(SUBSTRING "${name}" 0 ${split} vendor)
    math(EXPR rest "${split} + 1")
    string(SUBSTRING "${name}" ${rest} -1 short)
    string(LENGTH "${vendor}" vendor_length)
    string(LENGTH "${short}" short_length)
    if(vendor MATCHES "^[A-Za-z][A-Za-z0-9]*$" AND short MATCHES "^[A-Za-z][A-Za-z0-9]*$"
       AND vendor_length LESS_EQUAL 12 AND short_length LESS_EQUAL 12)
      set(valid TRUE)
    endif()
  endif()
  if(NOT valid)
    message(FATAL_ERROR "tessara_add_module: '${name}' is not a module name. A module name has the form "
                        "VENDOR_name: two parts of 1 to 12 letters and digits, each beginning with a letter, "
                        "joined by '_' (for example MYCO_hello).")
  endif()
  if(NOT class IN_LIST TESSARA_MODULE_CLASSES)
    message(FATAL_ERROR "tessara_add_module(${name} ${class}): the class must be one of "
                        "${TESSARA_MODULE_CLASSES}")
  endif()
  if(NOT ARG_SOURCES)
    message(FATAL_ERROR "tessara_add_module(${name} ${class}): no SOURCES given")
  endif()
  if(ARG_ROOT_DIR)
    set(folder "${ARG_ROOT_DIR}/modules/${name}")
  elseif(TESSARA_MODULES_DIR)
    set(folder "${TESSARA_MODULES_DIR}/${name}")
  else()
    set(folder "${CMAKE_BINARY_DIR}/modules/${name}")
  endif()
  set(target "module_${name}_${class}")
  add_library(${target} MODULE ${ARG_SOURCES})
  target_link_libraries(${target} PRIVATE Tessara::game)
  set_target_properties(${target} PROPERTIES
    PREFIX "" OUTPUT_NAME "${name}.${class}" SUFFIX ".so"
    LIBRARY_OUTPUT_DIRECTORY "${folder}"
    BUILD_RPATH "$ORIGIN/../..")
endfunction()
