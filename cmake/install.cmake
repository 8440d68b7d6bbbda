# SPDX-License-Identifier: MIT
# Component "reader" is for a reader, which has its own libraries and management server. Component
# "standins" has the stand-ins for these, for any other machine.
set(share ${CMAKE_INSTALL_DATADIR}/tarnwick)
set(doc ${CMAKE_INSTALL_DOCDIR})

install(TARGETS tarnwick twctl RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT reader)
install(FILES twctl/completion.bash RENAME twctl
  DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT reader)
install(FILES docs/man/twctl.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT reader)
install(FILES docs/man/tarnwick.8 DESTINATION ${CMAKE_INSTALL_MANDIR}/man8 COMPONENT reader)
install(FILES packaging/tarnwick.service DESTINATION lib/systemd/system COMPONENT reader)
install(FILES packaging/sysusers.conf RENAME tarnwick.conf DESTINATION lib/sysusers.d COMPONENT reader)
# Schemas and message definitions for clients.
install(FILES docs/mode.schema.json docs/events.schema.json DESTINATION ${share}/schema COMPONENT reader)
install(DIRECTORY tarnwick/proto DESTINATION ${share} COMPONENT reader FILES_MATCHING PATTERN *.proto)
# The documents have the same folders as here, so that the links between them work.
install(FILES LICENSE README.md CHANGELOG.md DESTINATION ${doc} COMPONENT reader)
install(DIRECTORY docs DESTINATION ${doc} COMPONENT reader PATTERN man EXCLUDE)
install(DIRECTORY examples DESTINATION ${doc} USE_SOURCE_PERMISSIONS COMPONENT reader
  PATTERN scenarios EXCLUDE PATTERN node_modules EXCLUDE)

install(TARGETS rm_server RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT standins)
install(TARGETS Rxe tuvr LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT standins)
# For the makers of such libraries.
install(FILES include/rxe.h include/tuvr.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/tarnwick COMPONENT standins)
install(FILES docs/man/tarnwick-scenario.5 DESTINATION ${CMAKE_INSTALL_MANDIR}/man5 COMPONENT standins)
install(FILES engine/scenario.schema.json DESTINATION ${share}/schema COMPONENT standins)
install(FILES engine/README.md DESTINATION ${doc}/engine COMPONENT standins)
install(FILES rm_server/README.md DESTINATION ${doc}/rm_server COMPONENT standins)
install(DIRECTORY examples/scenarios DESTINATION ${doc}/examples COMPONENT standins)

# Component "gateway" is for a reader or another machine that delivers reports.
if(TARNWICK_BUILD_GATEWAY)
  install(TARGETS twgate RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT gateway)
  install(FILES docs/man/twgate.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT gateway)
  install(FILES packaging/twgate.service DESTINATION lib/systemd/system COMPONENT gateway)
  install(FILES packaging/twgate.sysusers.conf RENAME twgate.conf DESTINATION lib/sysusers.d COMPONENT gateway)
  install(FILES gateway/twgate.schema.json DESTINATION ${share}/schema COMPONENT gateway)
endif()

add_custom_target(uninstall
  COMMAND ${CMAKE_COMMAND} -D build=${CMAKE_BINARY_DIR} -P ${CMAKE_CURRENT_LIST_DIR}/uninstall.cmake
  VERBATIM)
