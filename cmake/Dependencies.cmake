# Libraries the library itself links. Test-only and benchmark-only peers are
# found in tests/ and bench/.
pkg_check_modules(NETTLE REQUIRED IMPORTED_TARGET nettle)
pkg_check_modules(EXPAT REQUIRED IMPORTED_TARGET expat)
target_link_libraries(nvk PRIVATE PkgConfig::NETTLE PkgConfig::EXPAT)
