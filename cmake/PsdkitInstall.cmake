# Installation: the public headers, the static and the shared library, the psdkit tool, a CMake
# package (find_package(psdkit) gives psdkit::psdkit and psdkit::psdkit_shared) and psdkit.pc for
# pkg-config. Components: psdkit_headers (headers only; the API reference is built from them),
# psdkit_development (static library, CMake package, psdkit.pc, the shared library's link name) and
# psdkit_runtime (the versioned shared library and the tool).
include(CMakePackageConfigHelpers)

set(PSDKIT_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/psdkit)

# The public headers are exactly the tree include/psdkit; internal headers stay in src/.
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/psdkit DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
        COMPONENT psdkit_headers FILES_MATCHING PATTERN "*.hpp")
install(FILES ${PROJECT_BINARY_DIR}/generated/psdkit/Version.hpp
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/psdkit COMPONENT psdkit_headers)

install(TARGETS psdkit EXPORT psdkitTargets
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT psdkit_development)
if(TARGET psdkit_shared)
  install(TARGETS psdkit_shared EXPORT psdkitTargets
          LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT psdkit_runtime
                  NAMELINK_COMPONENT psdkit_development)
endif()
if(TARGET psdkit_cli)
  install(TARGETS psdkit_cli RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT psdkit_runtime)
endif()

install(EXPORT psdkitTargets NAMESPACE psdkit:: DESTINATION ${PSDKIT_CMAKE_DIR}
        COMPONENT psdkit_development)
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/psdkitConfig.cmake.in
    ${PROJECT_BINARY_DIR}/package/psdkitConfig.cmake INSTALL_DESTINATION ${PSDKIT_CMAKE_DIR})
# While the major version is 0, a minor version may change the interface: only the same minor
# version satisfies a request.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/package/psdkitConfigVersion.cmake
    COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/package/psdkitConfig.cmake
              ${PROJECT_BINARY_DIR}/package/psdkitConfigVersion.cmake
        DESTINATION ${PSDKIT_CMAKE_DIR} COMPONENT psdkit_development)

# psdkit.pc finds its prefix from its own place (${pcfiledir}), so an installed tree can be moved,
# and `cmake --install --prefix` works without configuring again.
file(RELATIVE_PATH PSDKIT_PC_TO_PREFIX /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
string(REGEX REPLACE "/$" "" PSDKIT_PC_TO_PREFIX "${PSDKIT_PC_TO_PREFIX}")
configure_file(${CMAKE_CURRENT_LIST_DIR}/psdkit.pc.in ${PROJECT_BINARY_DIR}/package/psdkit.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/package/psdkit.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
        COMPONENT psdkit_development)
