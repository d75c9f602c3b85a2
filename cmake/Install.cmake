# cmake --install: the bundle, what leads to its programs, manuals, completions and the unit, below any prefix.
include(GNUInstallDirs)
set(VARK_INSTALLED_BUNDLE lib/vark/Vark.app/Contents)
# Where a person's systemd looks, below every usual prefix.
set(VARK_USER_UNITS share/systemd/user CACHE STRING "Where units of a person go, below the prefix")

install(TARGETS vark DESTINATION ${VARK_INSTALLED_BUNDLE}/MacOS)
install(FILES ${VARK_BUNDLE}/Info.plist DESTINATION ${VARK_INSTALLED_BUNDLE})
install(CODE "
  set(programs \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR}\")
  file(MAKE_DIRECTORY \"\${programs}\")
  file(CREATE_LINK \"../${VARK_INSTALLED_BUNDLE}/MacOS/vark\" \"\${programs}/vark\" SYMBOLIC)")
install(DIRECTORY ${CMAKE_BINARY_DIR}/docs/man/ DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(DIRECTORY ${CMAKE_BINARY_DIR}/docs/completions/bash/ DESTINATION share/bash-completion/completions)
install(DIRECTORY ${CMAKE_BINARY_DIR}/docs/completions/zsh/ DESTINATION share/zsh/site-functions)
install(DIRECTORY ${CMAKE_BINARY_DIR}/docs/completions/fish/ DESTINATION share/fish/vendor_completions.d)
install(CODE "
  configure_file(\"${CMAKE_SOURCE_DIR}/Packaging/vark.service.in\"
                 \"${CMAKE_BINARY_DIR}/installed/vark.service\" @ONLY)")
install(FILES ${CMAKE_BINARY_DIR}/installed/vark.service DESTINATION ${VARK_USER_UNITS})
