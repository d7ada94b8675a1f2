# What an integrator gets: the library, its headers, a CMake package and a
# pkg-config file.
include(CMakePackageConfigHelpers)
set(headers_to ${CMAKE_INSTALL_INCLUDEDIR}/KQFileTransService)
set(package_to ${CMAKE_INSTALL_LIBDIR}/cmake/KQFileTransService)

install(TARGETS KQFileTransService EXPORT KQFileTransServiceTargets
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
foreach(folder platform net protocol client session server)
  install(DIRECTORY ${root}/${folder} DESTINATION ${headers_to}
    FILES_MATCHING PATTERN "*.h"
    PATTERN posix EXCLUDE PATTERN windows EXCLUDE)
endforeach()
install(FILES ${PROJECT_BINARY_DIR}/generated/KQFileTransServiceExport.h DESTINATION ${headers_to})
install(EXPORT KQFileTransServiceTargets NAMESPACE KQFileTransService:: DESTINATION ${package_to})

configure_package_config_file(${root}/cmake/KQFileTransServiceConfig.cmake.in
  ${PROJECT_BINARY_DIR}/KQFileTransServiceConfig.cmake INSTALL_DESTINATION ${package_to})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/KQFileTransServiceConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/KQFileTransServiceConfig.cmake
  ${PROJECT_BINARY_DIR}/KQFileTransServiceConfigVersion.cmake DESTINATION ${package_to})

# Found from the file itself, so that the installed tree can be moved.
file(RELATIVE_PATH KQFT_PREFIX_FROM_PC
  ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(${root}/cmake/KQFileTransService.pc.in
  ${PROJECT_BINARY_DIR}/KQFileTransService.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/KQFileTransService.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
