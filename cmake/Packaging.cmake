# Where a desktop finds the program (GNUInstallDirs under the prefix), and the Debian package
# that carries it: `cpack -G DEB` in the build folder.
include(GNUInstallDirs)
# Installing (and packaging) takes the programs as built; it does not build every test and
# benchmark first.
set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY ON)

install(TARGETS tavelquiston tavelquiston-cli RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES data/desktop/com.tavelquiston.app.desktop
  DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)
install(FILES data/desktop/com.tavelquiston.app.metainfo.xml
  DESTINATION ${CMAKE_INSTALL_DATADIR}/metainfo)
install(FILES data/icons/com.tavelquiston.app.svg
  DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps)
foreach(size 16 24 32 48 64 128 256 512)
  install(FILES data/icons/hicolor/${size}x${size}/apps/com.tavelquiston.app.png
    DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/${size}x${size}/apps)
endforeach()

set(CPACK_PACKAGE_NAME tavelquiston)
set(CPACK_PACKAGE_VENDOR "tavelquiston")
set(CPACK_PACKAGE_CONTACT "tavelquiston developers <dev@tavelquiston.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Screen recorder with a built-in editor")
set(CPACK_PACKAGE_DESCRIPTION
  "Records a display, an area, windows or applications with camera and sound, and keeps the \
pointer's clicks beside the movie for zooms and a smooth cursor in the editor.")
set(CPACK_PACKAGE_INSTALL_DIRECTORY tavelquiston)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION video)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE "https://tavelquiston.invalid")
# The libraries come from dpkg-shlibdeps; the services and plugins a desktop program needs at
# run time are not linked, so they are named here.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "qt6-qpa-plugins, libqt6svg6, dbus-user-session | dbus-x11")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "pipewire-pulse | pulseaudio, xdg-desktop-portal")
include(CPack)
