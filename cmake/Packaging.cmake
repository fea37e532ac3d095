# The desktop integration that `cmake --install` puts in place, and the
# Debian package CPack builds from it (`cpack -G DEB` in the build folder).
include(GNUInstallDirs)

set(VISTREL_APP_ID com.quorbit.vistrel)
set(dist ${PROJECT_SOURCE_DIR}/dist)
install(FILES ${dist}/${VISTREL_APP_ID}.desktop DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/applications)
install(FILES ${dist}/${VISTREL_APP_ID}.metainfo.xml DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/metainfo)
install(FILES ${dist}/icons/${VISTREL_APP_ID}.svg
  DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/icons/hicolor/scalable/apps)
foreach(size 16 24 32 48 64 128 256)
  install(FILES ${dist}/icons/${size}x${size}/${VISTREL_APP_ID}.png
    DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/icons/hicolor/${size}x${size}/apps)
endforeach()

set(CPACK_PACKAGE_NAME vistrel)
set(CPACK_PACKAGE_VENDOR "Quorbit")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Share only the windows you choose in a video meeting")
set(CPACK_PACKAGE_CONTACT "Vistrel developers <vistrel@quorbit.invalid>")
set(CPACK_GENERATOR DEB)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION video)
# Library dependencies come from the binary's shared libraries (QtSvg among
# them, whose package also carries the SVG icon plugin); the rest is what Qt
# loads at run time: the X11 platform plugin and the camera pipeline.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "qt6-qpa-plugins, gstreamer1.0-plugins-good")
set(CPACK_STRIP_FILES ON)
include(CPack)
