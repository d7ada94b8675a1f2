# What is installed beside the library: programs, manual pages, completion
# and the units of the service.
file(RELATIVE_PATH from_bin_to_lib
  ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
# The same path in the build tree, where the library lies in ../lib: else CMake
# fills up a shorter one with ":", and the loader searches the current directory.
set(programs kqft kqft-server)
if(TARGET kqft-status)
  list(APPEND programs kqft-status)
endif()
set_target_properties(${programs} PROPERTIES BUILD_WITH_INSTALL_RPATH ON
  INSTALL_RPATH "$ORIGIN/${from_bin_to_lib};$ORIGIN/../lib")
install(TARGETS ${programs} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

if(WIN32)
  install(FILES ${PROJECT_SOURCE_DIR}/docs/windows.md ${PROJECT_SOURCE_DIR}/LICENSE
    ${PROJECT_SOURCE_DIR}/CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
else()
  install(FILES ${PROJECT_SOURCE_DIR}/docs/man/kqft.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  install(FILES ${PROJECT_SOURCE_DIR}/docs/man/kqft-server.8
    DESTINATION ${CMAKE_INSTALL_MANDIR}/man8)

  set(packaging ${PROJECT_SOURCE_DIR}/packaging)
  install(FILES ${packaging}/bash-completion/kqft ${packaging}/bash-completion/kqft-server
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
  foreach(unit kqft-server kqft-server@ kqft-verify)
    configure_file(${packaging}/systemd/${unit}.service.in
      ${PROJECT_BINARY_DIR}/${unit}.service @ONLY)
    install(FILES ${PROJECT_BINARY_DIR}/${unit}.service DESTINATION lib/systemd/system)
  endforeach()
  if(TARGET kqft-status)
    install(FILES ${PROJECT_SOURCE_DIR}/docs/man/kqft-status.1
      DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
    install(FILES ${packaging}/bash-completion/kqft-status
      DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
    configure_file(${packaging}/systemd/kqft-status.service.in
      ${PROJECT_BINARY_DIR}/kqft-status.service @ONLY)
    install(FILES ${PROJECT_BINARY_DIR}/kqft-status.service DESTINATION lib/systemd/system)
  endif()
  configure_file(${packaging}/systemd/kqft-watch@.service.in
    ${PROJECT_BINARY_DIR}/kqft-watch@.service @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/kqft-watch@.service DESTINATION lib/systemd/user)
  install(FILES ${packaging}/systemd/kqft-verify.timer DESTINATION lib/systemd/system)
  install(FILES ${packaging}/systemd/kqft-server.sysusers DESTINATION lib/sysusers.d
    RENAME kqft-server.conf)
  install(FILES ${packaging}/systemd/kqft-server.tmpfiles DESTINATION lib/tmpfiles.d
    RENAME kqft-server.conf)
  install(FILES ${packaging}/logrotate/kqft-server DESTINATION ${CMAKE_INSTALL_SYSCONFDIR}/logrotate.d)
  install(FILES ${packaging}/kqft-server.conf DESTINATION ${CMAKE_INSTALL_DOCDIR})
  install(FILES ${packaging}/wireshark/kqft.lua DESTINATION ${CMAKE_INSTALL_DATADIR}/kqft)
endif()
