# `cmake --install` puts the headers, libnerox.so, game.so and a pkg-config file
# under the prefix, so that module authors can build against them outside this tree.
include(GNUInstallDirs)
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
configure_file(cmake/tessara.pc.in "${CMAKE_BINARY_DIR}/tessara.pc" @ONLY)
install(FILES "${CMAKE_BINARY_DIR}/tessara.pc" DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
