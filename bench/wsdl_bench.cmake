# The peer runs from the script beside the benchmark (Debian's python3-zeep).
target_compile_definitions(wsdl_bench PRIVATE NVK_BENCH_DIR="${CMAKE_CURRENT_SOURCE_DIR}")
# libexpat alone over the same files: the floor under any reader built on it.
target_link_libraries(wsdl_bench PRIVATE PkgConfig::EXPAT)
