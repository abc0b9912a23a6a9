# `cpack -G DEB` in a build folder: one Debian package with the library, the
# nvk tool, and what building against the library needs (headers, CMake
# package, pkg-config file).
set(CPACK_PACKAGE_NAME nvk)
set(CPACK_PACKAGE_VENDOR "nvk developers")
set(CPACK_PACKAGE_CONTACT "nvk developers <nvk@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "workflow platform client library: data trees, JSON, protocols, credentials")
set(CPACK_PACKAGE_DESCRIPTION
  "The client-side base library of a scientific workflow platform (libnvk) and the nvk command-line tool over it.")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
# The build keeps its debug information; the package does not.
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
# The runtime dependencies are read off the binaries when dpkg-shlibdeps is
# there (dpkg-dev); without it they are the libraries the binaries link, by
# the names Debian 12 gives their packages.
find_program(NVK_DPKG_SHLIBDEPS dpkg-shlibdeps)
if(NVK_DPKG_SHLIBDEPS)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
else()
  set(CPACK_DEBIAN_PACKAGE_DEPENDS "libc6 (>= 2.34), libexpat1 (>= 2.5), libgcc-s1 (>= 3.4), libnettle8, libpcre2-16-0, libcurl4, libcpp-httplib0.11, libstdc++6 (>= 11), libzip4")
endif()
include(CPack)
