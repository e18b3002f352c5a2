# Install rules and the CMake package: `find_package(Tavik REQUIRED COMPONENTS core quick)`
# gives Tavik::core and Tavik::quick; the QML module "Tavik" goes to TAVIK_INSTALL_QMLDIR,
# which the package reports as Tavik_QML_IMPORT_DIR.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(TAVIK_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/Tavik
    CACHE STRING "Where the CMake package of the SDK is installed")
set(TAVIK_INSTALL_QMLDIR ${CMAKE_INSTALL_LIBDIR}/qml
    CACHE STRING "Where the QML module Tavik is installed (put it on the QML import path)")

# The core: its headers (the views' headers only with the views) and the generated version.
install(TARGETS tavik_core EXPORT TavikCoreTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT core
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT core
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT core)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/tavik DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
  COMPONENT core
  PATTERN views EXCLUDE
  PATTERN video EXCLUDE)
install(FILES ${PROJECT_BINARY_DIR}/generated/tavik/version.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/tavik COMPONENT core)
install(EXPORT TavikCoreTargets NAMESPACE Tavik:: DESTINATION ${TAVIK_INSTALL_CMAKEDIR}
  COMPONENT core)

if(TARGET tavik_quick)
  install(TARGETS tavik_quick EXPORT TavikQuickTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT quick)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/tavik/views ${PROJECT_SOURCE_DIR}/include/tavik/video
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/tavik COMPONENT quick)
  install(EXPORT TavikQuickTargets NAMESPACE Tavik:: DESTINATION ${TAVIK_INSTALL_CMAKEDIR}
    COMPONENT quick)
  # The module folder: the plugin (which loads libtavik_quick from two levels up), the
  # qmldir and the type information for tooling. The QML files themselves are compiled
  # into the library's resources, which the qmldir's "prefer" line points the engine at.
  file(RELATIVE_PATH plugin_to_lib /${TAVIK_INSTALL_QMLDIR}/Tavik /${CMAKE_INSTALL_LIBDIR})
  set_target_properties(tavik_quickplugin PROPERTIES INSTALL_RPATH "$ORIGIN/${plugin_to_lib}")
  install(TARGETS tavik_quickplugin
    LIBRARY DESTINATION ${TAVIK_INSTALL_QMLDIR}/Tavik COMPONENT quick)
  install(FILES ${TAVIK_QML_DIR}/Tavik/qmldir ${TAVIK_QML_DIR}/Tavik/tavik_quick.qmltypes
    DESTINATION ${TAVIK_INSTALL_QMLDIR}/Tavik COMPONENT quick)
endif()

# The programs an integrator reaches for: the local sandbox and the command-line tool.
file(RELATIVE_PATH bin_to_lib /${CMAKE_INSTALL_BINDIR} /${CMAKE_INSTALL_LIBDIR})
foreach(program tavik-sandbox tavik)
  if(TARGET ${program})
    set_target_properties(${program} PROPERTIES INSTALL_RPATH "$ORIGIN/${bin_to_lib}")
    install(TARGETS ${program} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
  endif()
endforeach()

configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/TavikConfig.cmake.in
  ${PROJECT_BINARY_DIR}/TavikConfig.cmake
  INSTALL_DESTINATION ${TAVIK_INSTALL_CMAKEDIR}
  PATH_VARS TAVIK_INSTALL_QMLDIR)
# 0.x releases may change the API between minor versions.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/TavikConfigVersion.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/TavikConfig.cmake ${PROJECT_BINARY_DIR}/TavikConfigVersion.cmake
  DESTINATION ${TAVIK_INSTALL_CMAKEDIR} COMPONENT core)
