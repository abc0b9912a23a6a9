# Peers of the scheduler benchmark: expat alone under the XML reader, and a
# cpp-httplib server answering from memory under the scheduler service.
pkg_check_modules(BENCH_EXPAT REQUIRED IMPORTED_TARGET expat)
pkg_check_modules(BENCH_HTTPLIB REQUIRED IMPORTED_TARGET cpp-httplib)
target_link_libraries(scheduler_bench PRIVATE PkgConfig::BENCH_EXPAT PkgConfig::BENCH_HTTPLIB)
