# GLSL shaders compiled to SPIR-V with glslc (Debian package glslc).

# tessara_add_shaders(TARGET_NAME SOURCE_DIR OUTPUT_DIR): compiles every shader
# source below SOURCE_DIR into OUTPUT_DIR/<relative path>.spv for Vulkan 1.3,
# built by the target TARGET_NAME (part of ALL). Included files are tracked.
function(tessara_add_shaders target_name source_dir output_dir)
  find_program(TESSARA_GLSLC glslc)
  if(NOT TESSARA_GLSLC)
    message(FATAL_ERROR "glslc not found: shaders cannot be compiled. "
                        "Install the Debian package glslc (apt-get install glslc) or run scripts/setup.sh.")
  endif()
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS
    "${source_dir}/*.vert" "${source_dir}/*.frag" "${source_dir}/*.comp"
    "${source_dir}/*.rgen" "${source_dir}/*.rmiss" "${source_dir}/*.rchit"
    "${source_dir}/*.rahit" "${source_dir}/*.rint" "${source_dir}/*.rcall")
  set(depfile_dir "${CMAKE_CURRENT_BINARY_DIR}/${target_name}.dir")
  set(outputs "")
  foreach(source IN LISTS sources)
    file(RELATIVE_PATH relative "${source_dir}" "${source}")
    set(output "${output_dir}/${relative}.spv")
    set(depfile "${depfile_dir}/${relative}.d")
    get_filename_component(output_folder "${output}" DIRECTORY)
    get_filename_component(depfile_folder "${depfile}" DIRECTORY)
    add_custom_command(
      OUTPUT "${output}"
      COMMAND "${CMAKE_COMMAND}" -E make_directory "${output_folder}" "${depfile_folder}"
      COMMAND "${TESSARA_GLSLC}" --target-env=vulkan1.3 -O -MD -MF "${depfile}" -o "${output}" "${source}"
      MAIN_DEPENDENCY "${source}"
      DEPFILE "${depfile}"
      COMMENT "Compiling shader ${relative}"
      VERBATIM)
    list(APPEND outputs "${output}")
  endforeach()
  add_custom_target(${target_name} ALL DEPENDS ${outputs})
endfunction()
