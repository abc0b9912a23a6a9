# Libraries the library itself links, privately: its users need neither their
# headers nor their link names. Test-only and benchmark-only peers are found
# in tests/ and bench/.
pkg_check_modules(NETTLE REQUIRED IMPORTED_TARGET nettle)
target_link_libraries(nvk PRIVATE PkgConfig::NETTLE)
# Regular expressions (vcRegex) on PCRE2's 16-bit library, which searches wide
# text as it is; the HTTP client (CHttp) on libcurl.
pkg_check_modules(PCRE2 REQUIRED IMPORTED_TARGET libpcre2-16)
pkg_check_modules(CURL REQUIRED IMPORTED_TARGET libcurl)
target_link_libraries(nvk PRIVATE PkgConfig::PCRE2 PkgConfig::CURL)
# XML documents (XmlReader) on expat.
pkg_check_modules(EXPAT REQUIRED IMPORTED_TARGET expat)
target_link_libraries(nvk PRIVATE PkgConfig::EXPAT)
# Zipped WSDL bundles (CWsdlParser) on libzip.
pkg_check_modules(LIBZIP REQUIRED IMPORTED_TARGET libzip)
target_link_libraries(nvk PRIVATE PkgConfig::LIBZIP)
# The scheduler service (CSchedulerService) serves HTTP with cpp-httplib.
pkg_check_modules(HTTPLIB REQUIRED IMPORTED_TARGET cpp-httplib)
target_link_libraries(nvk PRIVATE PkgConfig::HTTPLIB)
