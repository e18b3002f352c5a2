# Debian packages, one per install component (`cpack -G DEB` in the build tree):
#   libtavik<major.minor>  runtime: libtavik_core, libtavik_quick and the QML module
#   libtavik-dev           headers, .so links, the CMake package, tavik-core.pc
#   tavik-tools            tavik-sandbox and tavik
# Configure with -DCMAKE_INSTALL_PREFIX=/usr for packages: the libraries then go to the
# multiarch libdir and the QML module to the folder Debian's Qt 6 imports from.
# The version of every package is the project's, as is the CMake package's and the QML
# module's.
set(CPACK_PACKAGE_NAME tavik)
set(CPACK_PACKAGE_VENDOR "Tavik")
set(CPACK_PACKAGE_CONTACT "Tavik SDK maintainers <sdk@tavik.io>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_PACKAGE_HOMEPAGE_URL "https://tavik.io")
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_COMPONENTS_ALL runtime dev tools)
set(CPACK_STRIP_FILES ON)

set(tavik_runtime_package libtavik${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
set(tavik_exact "${tavik_runtime_package} (= ${PROJECT_VERSION})")

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# libtavik_core is found in the build tree when the tools' dependencies are worked out;
# it belongs to the runtime package, which the tools name themselves.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/src)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${tavik_runtime_package})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "${PROJECT_DESCRIPTION}: shared libraries and QML module
 tavik::core (configuration, HTTPS transport, ad fetching, rendering, event tracking) and
 tavik::quick with the QML module Tavik (banner, carousels, interstitial, picture in
 picture), which Qt 6 finds with no import path.")
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
if(TARGET tavik_quick)
  # What `import Tavik` pulls in at run time (QML modules and the SVG icon plug-in), which
  # no shared-library dependency shows.
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS "qml6-module-qtquick, qml6-module-qtmultimedia, libqt6svg6")
endif()

set(CPACK_DEBIAN_DEV_PACKAGE_NAME libtavik-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_DEV_DESCRIPTION "${PROJECT_DESCRIPTION}: development files
 Headers, the CMake package Tavik (find_package(Tavik COMPONENTS core quick)) and the
 pkg-config file tavik-core.")
set(tavik_dev_depends "${tavik_exact}, nlohmann-json3-dev (>= 3.10)")
if(TARGET tavik_quick)
  string(APPEND tavik_dev_depends ", qt6-base-dev, qt6-declarative-dev, qt6-multimedia-dev")
endif()
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "${tavik_dev_depends}")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME tavik-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION devel)
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "${PROJECT_DESCRIPTION}: tools
 tavik-sandbox, a local HTTPS stand-in for the ad services, and tavik, the command-line
 client.")
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${tavik_exact}")

include(CPack)
