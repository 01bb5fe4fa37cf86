# What `cmake --install` and CPack lay down: the program folder lib/quelix (client, loader,
# version file, sound and waiting strip), a launcher in bin/, the desktop entry and icons.
# `cpack` makes a .deb (installed under /usr) and a .tar.gz (the same tree under one top
# folder), the latter being what the update loader installs.
set(QUELIX_PROGRAM_DIR lib/quelix)
install(TARGETS Quelix qxload RUNTIME DESTINATION ${QUELIX_PROGRAM_DIR})
install(TARGETS quelix-sound quelix-webengine LIBRARY DESTINATION ${QUELIX_PROGRAM_DIR})
install(FILES ${CMAKE_BINARY_DIR}/app/Quelix.version DESTINATION ${QUELIX_PROGRAM_DIR})
install(DIRECTORY ${CMAKE_BINARY_DIR}/app/resource DESTINATION ${QUELIX_PROGRAM_DIR})
install(PROGRAMS ${CMAKE_SOURCE_DIR}/packaging/quelix.sh DESTINATION bin RENAME quelix)
install(FILES ${CMAKE_SOURCE_DIR}/packaging/quelix.desktop DESTINATION share/applications)
foreach(size 48 128 256)
  add_custom_command(OUTPUT ${CMAKE_BINARY_DIR}/icons/${size}/quelix.png
    COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_BINARY_DIR}/icons/${size}
    COMMAND ${CMAKE_COMMAND} -E env QT_QPA_PLATFORM=offscreen $<TARGET_FILE:quelix-svgrender>
            ${CMAKE_SOURCE_DIR}/resource/images/app_icon.svg ${CMAKE_BINARY_DIR}/icons/${size}/quelix.png ${size} ${size}
    DEPENDS quelix-svgrender ${CMAKE_SOURCE_DIR}/resource/images/app_icon.svg VERBATIM)
  list(APPEND quelix_icons ${CMAKE_BINARY_DIR}/icons/${size}/quelix.png)
  install(FILES ${CMAKE_BINARY_DIR}/icons/${size}/quelix.png
          DESTINATION share/icons/hicolor/${size}x${size}/apps)
endforeach()
add_custom_target(quelix_icons ALL DEPENDS ${quelix_icons})

set(CPACK_PACKAGE_NAME quelix)
set(CPACK_PACKAGE_VENDOR "Quelix")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Quelix, the company messenger")
set(CPACK_PACKAGE_FILE_NAME "Quelix-${PROJECT_VERSION}-Linux")
set(CPACK_GENERATOR "DEB;TGZ")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "Quelix developers <support@quelix.work>")
set(CPACK_DEBIAN_PACKAGE_SECTION net)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "libqt5multimedia5-plugins, libqt5sql5-sqlite")
set(CPACK_STRIP_FILES ON)
# The .tar.gz keeps its tree relative (top folder, then lib/quelix/...), so it can be
# unpacked anywhere; the loader looks for the program folder inside it.
set(CPACK_ARCHIVE_COMPONENT_INSTALL OFF)
set(CPACK_SET_DESTDIR OFF)
include(CPack)
