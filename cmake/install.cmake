# Install rules and the CMake package: `find_package(Tavik REQUIRED COMPONENTS core quick)`
# gives Tavik::core and Tavik::quick; the QML module "Tavik" goes to TAVIK_INSTALL_QMLDIR,
# which the package reports as Tavik_QML_IMPORT_DIR.
#
# Install components, which are also the Debian packages (cmake/packaging.cmake):
#   runtime  the two shared libraries and the QML module
#   dev      headers, the .so links, the CMake package, the pkg-config file of tavik-core
#   tools    tavik-sandbox and the tavik tool
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(TAVIK_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/Tavik
    CACHE STRING "Where the CMake package of the SDK is installed")
# Installed into Qt's own prefix (/usr on Debian), the module goes where that Qt looks for
# QML modules, so `import Tavik` needs no import path; anywhere else, <libdir>/qml. Left
# empty, the choice follows CMAKE_INSTALL_PREFIX when that changes.
set(TAVIK_INSTALL_QMLDIR "" CACHE STRING
    "Where the QML module Tavik is installed, relative to the prefix (empty: Qt's QML folder when installing into Qt's prefix, else <libdir>/qml)")
if(TAVIK_INSTALL_QMLDIR STREQUAL "")
  if(TARGET tavik_quick AND DEFINED QT6_INSTALL_PREFIX AND DEFINED QT6_INSTALL_QML
     AND CMAKE_INSTALL_PREFIX STREQUAL QT6_INSTALL_PREFIX)
    set(TAVIK_INSTALL_QMLDIR ${QT6_INSTALL_QML})
  else()
    set(TAVIK_INSTALL_QMLDIR ${CMAKE_INSTALL_LIBDIR}/qml)
  endif()
endif()

# The core: its headers (the views' headers only with the views) and the generated version.
install(TARGETS tavik_core EXPORT TavikCoreTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/tavik DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
  COMPONENT dev
  PATTERN views EXCLUDE
  PATTERN video EXCLUDE)
install(FILES ${PROJECT_BINARY_DIR}/generated/tavik/version.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/tavik COMPONENT dev)
install(EXPORT TavikCoreTargets NAMESPACE Tavik:: DESTINATION ${TAVIK_INSTALL_CMAKEDIR}
  COMPONENT dev)

# pkg-config for builds without CMake (tavik-core only; the views are a Qt project's
# business). The prefix is found from the file's own place, so the install relocates.
set(TAVIK_INSTALL_PKGCONFIGDIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH pc_to_prefix /${TAVIK_INSTALL_PKGCONFIGDIR} /)
string(REGEX REPLACE "/$" "" pc_to_prefix "${pc_to_prefix}")
configure_file(${CMAKE_CURRENT_LIST_DIR}/tavik-core.pc.in ${PROJECT_BINARY_DIR}/tavik-core.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/tavik-core.pc DESTINATION ${TAVIK_INSTALL_PKGCONFIGDIR}
  COMPONENT dev)

if(TARGET tavik_quick)
  install(TARGETS tavik_quick EXPORT TavikQuickTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/tavik/views ${PROJECT_SOURCE_DIR}/include/tavik/video
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/tavik COMPONENT dev)
  install(EXPORT TavikQuickTargets NAMESPACE Tavik:: DESTINATION ${TAVIK_INSTALL_CMAKEDIR}
    COMPONENT dev)
  # The module folder: the plugin (which loads libtavik_quick from two levels up), the
  # qmldir and the type information for tooling. The QML files themselves are compiled
  # into the library's resources, which the qmldir's "prefer" line points the engine at.
  file(RELATIVE_PATH plugin_to_lib /${TAVIK_INSTALL_QMLDIR}/Tavik /${CMAKE_INSTALL_LIBDIR})
  set_target_properties(tavik_quickplugin PROPERTIES INSTALL_RPATH "$ORIGIN/${plugin_to_lib}")
  install(TARGETS tavik_quickplugin
    LIBRARY DESTINATION ${TAVIK_INSTALL_QMLDIR}/Tavik COMPONENT runtime NAMELINK_SKIP)
  install(FILES ${TAVIK_QML_DIR}/Tavik/qmldir ${TAVIK_QML_DIR}/Tavik/tavik_quick.qmltypes
    DESTINATION ${TAVIK_INSTALL_QMLDIR}/Tavik COMPONENT runtime)
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
# Releases keep the API within a major version.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/TavikConfigVersion.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/TavikConfig.cmake ${PROJECT_BINARY_DIR}/TavikConfigVersion.cmake
  DESTINATION ${TAVIK_INSTALL_CMAKEDIR} COMPONENT dev)

include(${CMAKE_CURRENT_LIST_DIR}/packaging.cmake)
