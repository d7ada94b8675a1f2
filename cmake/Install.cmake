# What an integrator gets: both libraries, their public headers, a CMake
# package, pkg-config files, and the documents that programs are written by.
include(CMakePackageConfigHelpers)
include(${root}/cmake/PublicHeaders.cmake)
set(headers_to ${CMAKE_INSTALL_INCLUDEDIR}/KQFileTransService)
set(package_to ${CMAKE_INSTALL_LIBDIR}/cmake/KQFileTransService)

install(TARGETS KQFileTransService kqft_transfer EXPORT KQFileTransServiceTargets
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
foreach(header ${KQFT_PUBLIC_HEADERS} ${KQFT_PUBLIC_TRANSFER_HEADERS})
  get_filename_component(folder ${header} DIRECTORY)
  install(FILES ${root}/${header} DESTINATION ${headers_to}/${folder})
endforeach()
set(generated ${PROJECT_BINARY_DIR}/generated)
install(FILES ${generated}/KQFileTransServiceExport.h ${generated}/KQFTransferExport.h
  DESTINATION ${headers_to})
install(FILES ${generated}/transfer/Version.h DESTINATION ${headers_to}/transfer)
install(FILES ${root}/bindings/c/kqft.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY ${root}/bindings/c/kqft DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
if(WIN32)
  install(FILES ${root}/bindings/c/kqft.def DESTINATION ${CMAKE_INSTALL_LIBDIR})
endif()
install(FILES ${root}/docs/protocol.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(DIRECTORY ${root}/docs/examples DESTINATION ${CMAKE_INSTALL_DOCDIR})
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
foreach(package KQFileTransService kqft)
  configure_file(${root}/cmake/${package}.pc.in ${PROJECT_BINARY_DIR}/${package}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${package}.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()
