# `cmake --install` puts the headers, libnerox.so, game.so, a CMake package
# (find_package(Tessara) and tessara_add_module) and a pkg-config file under the
# prefix, so that module authors can build against them outside this tree.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)
# Internal headers (template bodies instantiated inside game.so) stay out.
install(DIRECTORY nerox game DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/tessara
        FILES_MATCHING PATTERN "*.hpp" PATTERN "*.h"
        PATTERN "ModuleImpl.hpp" EXCLUDE)
install(TARGETS nerox LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/tessara)
install(TARGETS game LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/tessara)
install(DIRECTORY "${TESSARA_IMGUI_DIR}/" DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/tessara/imgui
        FILES_MATCHING PATTERN "imgui.h" PATTERN "imconfig.h" PATTERN "imgui_internal.h"
        PATTERN "imstb_*.h" PATTERN "backends" EXCLUDE PATTERN "examples" EXCLUDE
        PATTERN "docs" EXCLUDE PATTERN "debian" EXCLUDE)

# Modules outside the tree compile with the very definitions the game did.
get_target_property(TESSARA_PUBLIC_DEFINITIONS nerox INTERFACE_COMPILE_DEFINITIONS)
list(TRANSFORM TESSARA_PUBLIC_DEFINITIONS PREPEND "-D" OUTPUT_VARIABLE TESSARA_PKG_DEFINITIONS)
list(JOIN TESSARA_PKG_DEFINITIONS " " TESSARA_PKG_DEFINITIONS)
configure_file(cmake/tessara.pc.in "${CMAKE_BINARY_DIR}/tessara.pc" @ONLY)
install(FILES "${CMAKE_BINARY_DIR}/tessara.pc" DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

set(TESSARA_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/Tessara)
configure_package_config_file(cmake/TessaraConfig.cmake.in "${CMAKE_BINARY_DIR}/TessaraConfig.cmake"
                              INSTALL_DESTINATION ${TESSARA_PACKAGE_DIR}
                              PATH_VARS CMAKE_INSTALL_INCLUDEDIR CMAKE_INSTALL_LIBDIR)
write_basic_package_version_file("${CMAKE_BINARY_DIR}/TessaraConfigVersion.cmake"
                                 VERSION ${PROJECT_VERSION} COMPATIBILITY SameMinorVersion)
install(FILES "${CMAKE_BINARY_DIR}/TessaraConfig.cmake" "${CMAKE_BINARY_DIR}/TessaraConfigVersion.cmake"
              cmake/TessaraModule.cmake
        DESTINATION ${TESSARA_PACKAGE_DIR})
