# Libraries the library itself links, privately: its users need neither their
# headers nor their link names. Test-only and benchmark-only peers are found
# in tests/ and bench/.
pkg_check_modules(NETTLE REQUIRED IMPORTED_TARGET nettle)
target_link_libraries(nvk PRIVATE PkgConfig::NETTLE)
