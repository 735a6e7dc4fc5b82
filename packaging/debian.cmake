# The Debian packages, made by `cpack` in the build folder: jxdownloader and jxdownloader-tools.
set(JX_MAINTAINER "jxdownloader maintainers <maintainers@jxdownloader.invalid>" CACHE STRING
    "whom the packages name as their maintainer")
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT ${JX_MAINTAINER})
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/packages)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL jxdownloader jxdownloader-tools)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_SOURCE_DIR}/debian/staging.cmake)
set(CPACK_JX_DEBIAN_DIR ${CMAKE_CURRENT_SOURCE_DIR}/debian)
set(CPACK_JX_MAINTAINER ${JX_MAINTAINER})

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_JXDOWNLOADER_PACKAGE_NAME jxdownloader)
set(CPACK_DEBIAN_JXDOWNLOADER_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_JXDOWNLOADER_PACKAGE_DEPENDS
    "passwd, systemd | systemd-standalone-sysusers | systemd-sysusers, systemd | systemd-standalone-tmpfiles | systemd-tmpfiles")
set(CPACK_DEBIAN_JXDOWNLOADER_PACKAGE_RECOMMENDS "dbus, ca-certificates")
set(CPACK_DEBIAN_JXDOWNLOADER_PACKAGE_CONTROL_EXTRA
    ${CMAKE_CURRENT_SOURCE_DIR}/debian/postinst
    ${CMAKE_CURRENT_SOURCE_DIR}/debian/prerm
    ${CMAKE_CURRENT_SOURCE_DIR}/debian/postrm)
set(CPACK_COMPONENT_JXDOWNLOADER_DESCRIPTION
"application packages for a terminal, over HTTP and serial lines
Receives application packages from a browser over HTTP or from a sender on a
serial line and installs them, with the operator's screen as a web page.

The upload server or the screen is started by one of the units
jxdownloader-http and jxdownloader-terminal; neither runs unless enabled.")

set(CPACK_DEBIAN_JXDOWNLOADER-TOOLS_PACKAGE_NAME jxdownloader-tools)
set(CPACK_DEBIAN_JXDOWNLOADER-TOOLS_PACKAGE_SECTION utils)
set(CPACK_COMPONENT_JXDOWNLOADER-TOOLS_DESCRIPTION
"send and make application packages for a terminal
jxpush sends packages to a terminal over HTTP or a serial line, with progress
and the installer's log; jxpack makes packages, signed ones too.")

include(CPack)
