# What `cmake --install` (and so the Debian package) puts where.
include(GNUInstallDirs)

if(TARGET korvane)
  install(TARGETS korvane RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()
# The package makes /var/lib/korvane from this copy on first installation.
install(DIRECTORY ${CMAKE_SOURCE_DIR}/examples/office/
        DESTINATION ${CMAKE_INSTALL_DATADIR}/korvane/example)
install(FILES ${CMAKE_SOURCE_DIR}/docs/korvane.8 DESTINATION ${CMAKE_INSTALL_MANDIR}/man8)
# The program has the help pages compiled in; these copies are for a browser.
install(DIRECTORY ${CMAKE_SOURCE_DIR}/docs/help/ DESTINATION ${CMAKE_INSTALL_DOCDIR}/html)
install(FILES ${CMAKE_SOURCE_DIR}/packaging/korvane.desktop
        DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)
install(FILES ${CMAKE_SOURCE_DIR}/packaging/korvane.svg
        DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps)
