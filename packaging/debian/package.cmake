# The Debian package: all that is installed, and what Debian has in every package beside it.
set(maintainer "MVDirigo maintainers <maintainers@mvdirigo.invalid>")
set(debian_revision 1)
string(TIMESTAMP changed "%a, %d %b %Y %H:%M:%S +0000" UTC)
configure_file(debian/changelog.in changelog.Debian @ONLY)
configure_file(${PROJECT_SOURCE_DIR}/CHANGELOG.md changelog COPYONLY)
foreach(changes changelog.Debian changelog)
  made(${CMAKE_CURRENT_BINARY_DIR}/${changes}.gz ${CMAKE_CURRENT_BINARY_DIR}/${changes}
    ${GZIP} --best --no-name --keep --force ${CMAKE_CURRENT_BINARY_DIR}/${changes})
endforeach()
install(FILES debian/copyright ${CMAKE_CURRENT_BINARY_DIR}/changelog.Debian.gz
  ${CMAKE_CURRENT_BINARY_DIR}/changelog.gz
  DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT debian EXCLUDE_FROM_ALL)
install(FILES debian/lintian-overrides DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides
  RENAME mvdirigo COMPONENT debian EXCLUDE_FROM_ALL)

set(CPACK_INSTALL_CMAKE_PROJECTS "${PROJECT_BINARY_DIR};mvdirigo;ALL;/"
  "${PROJECT_BINARY_DIR};mvdirigo;debian;/")
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE ${debian_revision})
set(CPACK_DEBIAN_PACKAGE_MAINTAINER ${maintainer})
set(CPACK_DEBIAN_PACKAGE_SECTION electronics)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SUGGESTS qt6-wayland)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
"console for Movane motor controllers on a serial line
MVDirigo operates stepper and servo motor controllers of the Movane family.
Command strings are typed into rows and sent with a button each; the decoded
reply and a status light stand beside it. Presses are recorded and played back,
strings are kept in files, a controller is found by a search over ports and
rates, and its firmware is updated.
.
movane-sim simulates such controllers, to learn and try without hardware.")
include(CPack)
