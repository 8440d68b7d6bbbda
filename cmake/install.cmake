# SPDX-License-Identifier: MIT
# Each component is a Debian package too, see debian/rules. Component "reader" is for a reader, which has
# its own libraries and management server. Component "standins" has the stand-ins for these, for any other
# machine.
set(share ${CMAKE_INSTALL_DATADIR}/tarnwick)
set(doc ${CMAKE_INSTALL_DOCDIR})
set(units lib/systemd/system)

install(TARGETS tarnwick twctl RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT reader)
install(FILES twctl/completion.bash RENAME twctl
  DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT reader)
install(FILES docs/man/twctl.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT reader)
install(FILES docs/man/tarnwick.8 docs/man/tarnwick-service.8
  DESTINATION ${CMAKE_INSTALL_MANDIR}/man8 COMPONENT reader)
install(PROGRAMS packaging/tarnwick-service DESTINATION ${CMAKE_INSTALL_SBINDIR} COMPONENT reader)
install(FILES packaging/tarnwick.service DESTINATION ${units} COMPONENT reader)
install(FILES packaging/sysusers.conf RENAME tarnwick.conf DESTINATION lib/sysusers.d COMPONENT reader)
install(FILES packaging/tmpfiles.conf RENAME tarnwick.conf DESTINATION lib/tmpfiles.d COMPONENT reader)
# Schemas and message definitions for clients.
install(FILES docs/mode.schema.json docs/events.schema.json docs/boot.schema.json DESTINATION ${share}/schema COMPONENT reader)
install(DIRECTORY tarnwick/proto DESTINATION ${share} COMPONENT reader FILES_MATCHING PATTERN *.proto)
# The documents have the same folders as here, so that the links between them work.
install(FILES LICENSE README.md CHANGELOG.md DESTINATION ${doc} COMPONENT reader)
install(DIRECTORY docs DESTINATION ${doc} COMPONENT reader PATTERN man EXCLUDE)
install(DIRECTORY examples DESTINATION ${doc} USE_SOURCE_PERMISSIONS COMPONENT reader
  PATTERN scenarios EXCLUDE PATTERN node_modules EXCLUDE)

set(simulator ${CMAKE_INSTALL_DATADIR}/tarnwick-simulator)
install(TARGETS rm_server RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT standins)
install(TARGETS Rxe tuvr LIBRARY DESTINATION ${TARNWICK_STANDINS_LIBDIR} COMPONENT standins)
install(PROGRAMS scripts/demo RENAME tarnwick-demo DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT standins)
install(FILES scripts/common.sh DESTINATION ${simulator} COMPONENT standins)
install(FILES packaging/tarnwick-simulator.service DESTINATION ${units} COMPONENT standins)
install(FILES docs/man/tarnwick-demo.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT standins)
install(FILES docs/man/tarnwick-scenario.5 DESTINATION ${CMAKE_INSTALL_MANDIR}/man5 COMPONENT standins)
install(FILES docs/man/rm_server.8 DESTINATION ${CMAKE_INSTALL_MANDIR}/man8 COMPONENT standins)
install(FILES engine/scenario.schema.json DESTINATION ${share}/schema COMPONENT standins)
install(FILES engine/README.md DESTINATION ${doc}/engine COMPONENT standins)
install(FILES rm_server/README.md DESTINATION ${doc}/rm_server COMPONENT standins)
# The simulator reads them where programs keep their data, and the documents link to them.
install(DIRECTORY examples/scenarios DESTINATION ${simulator} COMPONENT standins)
install(DIRECTORY DESTINATION ${doc}/examples COMPONENT standins)
file(RELATIVE_PATH scenarios /${doc}/examples /${simulator}/scenarios)
install(CODE "
  set(link \${CMAKE_INSTALL_PREFIX}/${doc}/examples/scenarios)
  file(CREATE_LINK ${scenarios} \$ENV{DESTDIR}\${link} SYMBOLIC)
  list(APPEND CMAKE_INSTALL_MANIFEST_FILES \${link})" COMPONENT standins)

# Component "boundary" is for the makers of a reader's libraries.
install(FILES include/rxe.h include/rxe_layout.h include/tuvr.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/tarnwick COMPONENT boundary)
install(FILES engine/exports.map RENAME libRxe.map DESTINATION ${share}/boundary COMPONENT boundary)
install(FILES epc_uri/exports.map RENAME libtuvr.map DESTINATION ${share}/boundary COMPONENT boundary)
install(FILES include/README.md DESTINATION ${doc}/include COMPONENT boundary)

# Component "gateway" is for a reader or another machine that delivers reports.
if(TARNWICK_BUILD_GATEWAY)
  install(TARGETS twgate RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT gateway)
  install(FILES docs/man/twgate.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT gateway)
  install(FILES packaging/twgate.service DESTINATION ${units} COMPONENT gateway)
  install(FILES packaging/sysusers-twgate.conf RENAME twgate.conf DESTINATION lib/sysusers.d COMPONENT gateway)
  install(FILES gateway/twgate.schema.json DESTINATION ${share}/schema COMPONENT gateway)
endif()

add_custom_target(uninstall
  COMMAND ${CMAKE_COMMAND} -D build=${CMAKE_BINARY_DIR} -P ${CMAKE_CURRENT_LIST_DIR}/uninstall.cmake
  VERBATIM)
