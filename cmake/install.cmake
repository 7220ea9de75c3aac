# Install rules of the library and its CMake and pkg-config packages, and
# the Debian packages made from all install rules (CPack). Included by the
# top-level CMakeLists.txt after every directory that installs something
# has added its rules (keloecg in tools/, the jar in java/).
#
# Components, one Debian package each:
#   runtime      libkeloecgsolver1      the shared library
#   development  libkeloecgsolver-dev   headers, the .so link, CMake and pkg-config files
#   keloecg      keloecg                the program and its bundled recording
#   java         libkelosolver-java     the jar and the library link where the JVM looks
include(CMakePackageConfigHelpers)

set(KELO_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/keloecgsolver)

install(TARGETS keloecgsolver EXPORT keloecgsolverTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development)
# Every public header, including those added later to include/keloecgsolver/.
install(DIRECTORY include/keloecgsolver ${KELO_GENERATED_INCLUDE}/keloecgsolver
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development
  FILES_MATCHING PATTERN "*.h")
install(EXPORT keloecgsolverTargets NAMESPACE keloecgsolver::
  DESTINATION ${KELO_CMAKE_DIR} COMPONENT development)

configure_package_config_file(cmake/keloecgsolverConfig.cmake.in
  ${PROJECT_BINARY_DIR}/package/keloecgsolverConfig.cmake
  INSTALL_DESTINATION ${KELO_CMAKE_DIR})
# Any 1.x satisfies a request for 1.y with y <= x: the C ABI only grows.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/package/keloecgsolverConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/package/keloecgsolverConfig.cmake
              ${PROJECT_BINARY_DIR}/package/keloecgsolverConfigVersion.cmake
  DESTINATION ${KELO_CMAKE_DIR} COMPONENT development)

# The .pc file finds the prefix from its own location, so that the
# installed tree can be moved (or unpacked elsewhere) as a whole.
file(RELATIVE_PATH KELO_PC_TO_PREFIX ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" KELO_PC_TO_PREFIX "${KELO_PC_TO_PREFIX}")
file(RELATIVE_PATH KELO_PC_LIBDIR ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_LIBDIR})
file(RELATIVE_PATH KELO_PC_INCLUDEDIR ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_INCLUDEDIR})
configure_file(cmake/keloecgsolver.pc.in ${PROJECT_BINARY_DIR}/package/keloecgsolver.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/package/keloecgsolver.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)

# ---- Debian packages -------------------------------------------------------
# cpack -G DEB in the build folder (or cpack --preset deb at the top).
set(KELO_DEB_runtime libkeloecgsolver${PROJECT_VERSION_MAJOR})
set(KELO_DEB_development libkeloecgsolver-dev)
set(KELO_DEB_keloecg keloecg)
set(KELO_DEB_java libkelosolver-java)
set(KELO_COMPONENTS runtime development)
if(KELO_BUILD_TOOLS)
  list(APPEND KELO_COMPONENTS keloecg)
endif()
if(KELO_BUILD_JNI)
  list(APPEND KELO_COMPONENTS java)
endif()

# Debian wants the licence of every package as /usr/share/doc/PACKAGE/copyright.
foreach(component IN LISTS KELO_COMPONENTS)
  install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${KELO_DEB_${component}}
          RENAME copyright COMPONENT ${component})
endforeach()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME keloecgsolver)
set(CPACK_PACKAGE_VENDOR "libkeloecgsolver developers")
set(CPACK_PACKAGE_CONTACT "libkeloecgsolver developers <keloecgsolver@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_COMPONENTS_ALL ${KELO_COMPONENTS})
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION science)
# Depends: from the ELF files (dpkg-shlibdeps) and between our own packages.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# keloecg needs libkeloecgsolver.so.1 from this build.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_JAVA_PACKAGE_SECTION java)
set(CPACK_DEBIAN_JAVA_PACKAGE_DEPENDS "default-jre-headless | java17-runtime-headless")
foreach(component IN LISTS KELO_COMPONENTS)
  string(TOUPPER ${component} upper)
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${KELO_DEB_${component}})
endforeach()
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
  "libkeloecgsolver: R peaks, quality grades, heart rate and HRV of single-lead ECG recordings (shared library)")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
  "libkeloecgsolver: C headers, CMake package and pkg-config file")
set(CPACK_COMPONENT_KELOECG_DESCRIPTION
  "keloecg: heart rate, HRV, validation and HTML reports of ECG recordings, with a bundled recording")
set(CPACK_COMPONENT_JAVA_DESCRIPTION
  "libkeloecgsolver: Java bridge (com.kelo.kelosolver) and the native library where the JVM finds it")
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS runtime)
set(CPACK_COMPONENT_KELOECG_DEPENDS runtime)
set(CPACK_COMPONENT_JAVA_DEPENDS runtime)
include(CPack)
